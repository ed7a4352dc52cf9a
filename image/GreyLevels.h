// Grey levels of interleaved 16-bit three-channel pixels, with the weights and the rounding of
// OpenCV's 16-bit colour-to-grey conversion, and their minimum and maximum.
#pragma once

#include <cstddef>
#include <cstdint>

#include "SimdLanes.h"

namespace ZTI {

/// Weights of the three channels, in units of 2^-15. OpenCV converts 16-bit colour to grey as
/// (w0 c0 + w1 c1 + w2 c2 + 2^14) >> 15 with 0.299, 0.587 and 0.114 rounded to 15 bits
/// (9798 + 19235 + 3735 = 2^15), exactly and without intermediate rounding: every sum fits
/// 31 bits, so plain 32-bit integer arithmetic gives its result for every input.
struct GreyWeights {
    uint32_t w0, w1, w2;
};
/// The channels in R, G, B order (COLOR_RGB2GRAY) and in B, G, R order (COLOR_BGR2GRAY).
constexpr GreyWeights kGreyOfRgb{9798, 19235, 3735};
constexpr GreyWeights kGreyOfBgr{3735, 19235, 9798};

/// Running minimum and maximum of grey levels. Starts empty (min above max).
struct GreyRange {
    uint32_t min = 0xFFFF;
    uint32_t max = 0;
};

/// The grey levels of `n` pixels at `pixels` (three samples each) folded into `range`, and, when
/// kWrite, written to `grey`. Eight pixels at a time in vector lanes where the host has them
/// (the extremes kept per lane and folded at the end), the rest one by one.
template <bool kWrite>
inline void greyLevels(const uint16_t* __restrict pixels, size_t n, GreyWeights w,
                       uint16_t* __restrict grey, GreyRange& range) {
    size_t i = 0;
    uint32_t lo = range.min, hi = range.max;
#ifdef ZT_HAVE_LANES
    using namespace lanes;
    if (n >= 8) {
        U16x8 low = splat<U16x8>(0xFFFF), high = splat<U16x8>(0);
        for (; i + 8 <= n; i += 8) {
            U16x8 c0 = load<U16x8>(pixels + 3 * i), c1 = load<U16x8>(pixels + 3 * i + 8),
                  c2 = load<U16x8>(pixels + 3 * i + 16);
            deinterleave3(c0, c1, c2);
            const U16x8 y = weightedSum3(c0, c1, c2, static_cast<uint16_t>(w.w0),
                                         static_cast<uint16_t>(w.w1), static_cast<uint16_t>(w.w2));
            if constexpr (kWrite) store(grey + i, y);
            low = min(low, y);
            high = max(high, y);
        }
        for (int k = 0; k < 8; ++k) {
            lo = low[k] < lo ? low[k] : lo;
            hi = high[k] > hi ? high[k] : hi;
        }
    }
#endif
    for (; i < n; ++i) {
        const uint32_t y = (pixels[3 * i] * w.w0 + pixels[3 * i + 1] * w.w1 + pixels[3 * i + 2] * w.w2 + 16384u) >> 15;
        if constexpr (kWrite) grey[i] = static_cast<uint16_t>(y);
        lo = y < lo ? y : lo;
        hi = y > hi ? y : hi;
    }
    range.min = lo;
    range.max = hi;
}

}  // namespace ZTI
