// Twelve-bit pixel pairs in three bytes b0 b1 b2, in the two layouts cameras send: read by the
// unpackers and read and written in place by the packed contrast stretch.
#pragma once

#include <cstdint>

namespace ZTI {

// The second pixel of a 12-bit pair has the same bits in both layouts: its low nibble in the
// high half of b1, the rest in b2.
inline unsigned secondOfPair(unsigned b1, unsigned b2) { return (b1 >> 4) | (b2 << 4); }

// PFNC "p" codes (Mono12p, BayerRG12p, ...): least significant bits first.
// b0 = p0 bits 0..7, b1 = p0 bits 8..11 | p1 bits 0..3 << 4, b2 = p1 bits 4..11.
struct LsbFirstPair {
    static unsigned first(unsigned b0, unsigned b1) { return b0 | ((b1 & 0x0Fu) << 8); }
    static unsigned second(unsigned b1, unsigned b2) { return secondOfPair(b1, b2); }
    // Both pixels as p0 | p1 << 16 from a little-endian 32-bit load of the pair's bytes
    // (b0 | b1 << 8 | b2 << 16 | junk << 24).
    static uint32_t both(uint32_t x) { return (x & 0xFFFu) | ((x << 4) & 0x0FFF0000u); }
    // Writes p0 into the pair at p, keeping p1's bits of the shared byte.
    static void writeFirst(unsigned char* p, unsigned v) {
        p[0] = static_cast<unsigned char>(v);
        p[1] = static_cast<unsigned char>((p[1] & 0xF0u) | ((v >> 8) & 0x0Fu));
    }
};

// GigE Vision "Packed" codes (Mono12Packed, BayerRG12Packed, ...):
// b0 = p0 bits 4..11, b1 = p0 bits 0..3 | p1 bits 0..3 << 4, b2 = p1 bits 4..11.
struct PackedPair {
    static unsigned first(unsigned b0, unsigned b1) { return (b0 << 4) | (b1 & 0x0Fu); }
    static unsigned second(unsigned b1, unsigned b2) { return secondOfPair(b1, b2); }
    static uint32_t both(uint32_t x) { return ((x << 4) & 0x0FFF0FF0u) | ((x >> 8) & 0x0Fu); }
    static void writeFirst(unsigned char* p, unsigned v) {
        p[0] = static_cast<unsigned char>(v >> 4);
        p[1] = static_cast<unsigned char>((p[1] & 0xF0u) | (v & 0x0Fu));
    }
};

// Writes the second pixel of a 12-bit pair in either layout; `p` points at b1.
inline void writeSecondOfPair(unsigned char* p, unsigned v) {
    p[0] = static_cast<unsigned char>((p[0] & 0x0Fu) | ((v & 0x0Fu) << 4));
    p[1] = static_cast<unsigned char>(v >> 4);
}

}  // namespace ZTI
