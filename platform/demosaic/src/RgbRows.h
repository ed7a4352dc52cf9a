// Writing demosaiced rows as interleaved 16-bit RGB, shared by the demosaics of this library.
#pragma once

#include <cstdint>
#include <cstring>

namespace bayer {

// out[2k] = a[k], out[2k + 1] = b[k] for k < n.
template <class T>
inline void interleave(const T* __restrict a, const T* __restrict b, uint16_t* __restrict out, int n)
{
    for (int k = 0; k < n; ++k) {
        out[2 * k] = static_cast<uint16_t>(a[k]);
        out[2 * k + 1] = static_cast<uint16_t>(b[k]);
    }
}

// A 64-bit word holding the four bytes of `first` followed by the four bytes of `second`.
inline uint64_t joinUnits(uint32_t first, uint32_t second)
{
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
        return first | static_cast<uint64_t>(second) << 32;
    else
        return static_cast<uint64_t>(first) << 32 | second;
}

// Interleaves the planes of even (r0, g0, b0) and odd (r1, g1, b1) columns into RGB pixels.
// A three-way interleave of 16-bit samples does not vectorize on SSE2 (it has no byte
// shuffle), and scalar code would spend three stores per pixel. So the row is built from steps
// that do vectorize: two-way interleaves into the sample pairs (r0 g0), (b0 r1) and (g1 b1),
// then 64-bit words of two such pairs, three words for every two column pairs.
// `pairs` is scratch for 3 x `stride` samples, stride >= cols + 1.
template <class T>
inline void writeRow(const T* __restrict r0, const T* __restrict g0, const T* __restrict b0,
              const T* __restrict r1, const T* __restrict g1, const T* __restrict b1,
              uint16_t* __restrict pairs, int stride, uint16_t* __restrict out, int cols)
{
    const int pairCount = cols / 2;
    uint16_t* rg = pairs;
    uint16_t* br = pairs + stride;
    uint16_t* gb = pairs + 2 * stride;
    interleave(r0, g0, rg, pairCount);
    interleave(b0, r1, br, pairCount);
    interleave(g1, b1, gb, pairCount);
    const int quads = pairCount / 2;
    for (int q = 0; q < quads; ++q) {
        uint32_t rg0, rg1, br0, br1, gb0, gb1;
        std::memcpy(&rg0, rg + 4 * q, 4);
        std::memcpy(&rg1, rg + 4 * q + 2, 4);
        std::memcpy(&br0, br + 4 * q, 4);
        std::memcpy(&br1, br + 4 * q + 2, 4);
        std::memcpy(&gb0, gb + 4 * q, 4);
        std::memcpy(&gb1, gb + 4 * q + 2, 4);
        const uint64_t w0 = joinUnits(rg0, br0);
        const uint64_t w1 = joinUnits(gb0, rg1);
        const uint64_t w2 = joinUnits(br1, gb1);
        std::memcpy(out + 12 * q, &w0, 8);
        std::memcpy(out + 12 * q + 4, &w1, 8);
        std::memcpy(out + 12 * q + 8, &w2, 8);
    }
    // The column pair left over by the words, and the last column of an odd width.
    for (int k = 2 * quads; k < pairCount; ++k) {
        const uint16_t pixels[6] = {rg[2 * k], rg[2 * k + 1], br[2 * k],
                                    br[2 * k + 1], gb[2 * k], gb[2 * k + 1]};
        std::memcpy(out + 6 * k, pixels, sizeof pixels);
    }
    if (cols & 1) {
        out[6 * pairCount + 0] = static_cast<uint16_t>(r0[pairCount]);
        out[6 * pairCount + 1] = static_cast<uint16_t>(g0[pairCount]);
        out[6 * pairCount + 2] = static_cast<uint16_t>(b0[pairCount]);
    }
}

}  // namespace bayer
