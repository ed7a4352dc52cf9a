// Widening of 8-bit Bayer samples to the 16-bit scale of the demosaic library.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ZTI {

/// out[i] = in[i] x 257 (the byte repeated in both halves: 0 -> 0, 255 -> 65535). Blocks of
/// sixteen samples are written so the compiler emits one wide vector operation per block on
/// SSE2 and NEON; up to fifteen remaining samples take the scalar tail.
inline void widenRow(const uint8_t* in, uint16_t* out, size_t n) {
    size_t i = 0;
    for (; i + 16 <= n; i += 16)
        for (size_t k = 0; k < 16; ++k) out[i + k] = static_cast<uint16_t>(in[i + k] * 257u);
    for (; i < n; ++i) out[i] = static_cast<uint16_t>(in[i] * 257u);
}

}  // namespace ZTI
