// Sixteen-byte vectors of unsigned 8- and 16-bit lanes for integer pixel kernels.
//
// GCC vector extensions carry what the compilers already map well on both targets (+, -, *,
// &, |, shifts, comparisons, constant shuffles); the helpers below add what plain C does not
// express to SSE2: saturating arithmetic, the unsigned byte minimum, the rounded mean, the high
// half of a 16 x 16-bit product, narrowing and pairwise multiply-adds, one or two SSE2 or NEON
// instructions each. Hosts with neither instruction set, or big-endian ones, get no lanes
// (ZT_HAVE_LANES stays undefined) and use the scalar code beside each kernel.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#if defined(__SSE2__)
#include <emmintrin.h>
#define ZT_HAVE_LANES 1
#elif defined(__aarch64__) && defined(__ARM_NEON)
#include <arm_neon.h>
#define ZT_HAVE_LANES 1
#endif
#endif

#ifdef ZT_HAVE_LANES
namespace ZTI {
namespace lanes {

typedef uint8_t U8x16 __attribute__((vector_size(16)));
typedef uint16_t U16x8 __attribute__((vector_size(16)));
typedef uint32_t U32x4 __attribute__((vector_size(16)));

#define ZT_LANE_INLINE inline __attribute__((always_inline))

// Unaligned loads and stores (movdqu, ldr q).
template <typename V>
ZT_LANE_INLINE V load(const void* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <typename V>
ZT_LANE_INLINE void store(void* p, V v) {
    std::memcpy(p, &v, sizeof v);
}

template <typename V, typename T>
ZT_LANE_INLINE V splat(T value) {
    return V{} + static_cast<decltype(V{}[0])>(value);
}

#if defined(__SSE2__)
ZT_LANE_INLINE U8x16 subSat(U8x16 a, U8x16 b) { return (U8x16)_mm_subs_epu8((__m128i)a, (__m128i)b); }
ZT_LANE_INLINE U16x8 subSat(U16x8 a, U16x8 b) { return (U16x8)_mm_subs_epu16((__m128i)a, (__m128i)b); }
ZT_LANE_INLINE U16x8 addSat(U16x8 a, U16x8 b) { return (U16x8)_mm_adds_epu16((__m128i)a, (__m128i)b); }
// (a + b + 1) >> 1 without losing the carry.
ZT_LANE_INLINE U16x8 roundedMean(U16x8 a, U16x8 b) { return (U16x8)_mm_avg_epu16((__m128i)a, (__m128i)b); }
ZT_LANE_INLINE U8x16 min(U8x16 a, U8x16 b) { return (U8x16)_mm_min_epu8((__m128i)a, (__m128i)b); }
ZT_LANE_INLINE U16x8 mulHigh(U16x8 a, U16x8 b) { return (U16x8)_mm_mulhi_epu16((__m128i)a, (__m128i)b); }
// Lanes already below 256: packing with unsigned saturation keeps them as they are.
ZT_LANE_INLINE U8x16 narrow(U16x8 low, U16x8 high) { return (U8x16)_mm_packus_epi16((__m128i)low, (__m128i)high); }
#else
ZT_LANE_INLINE U8x16 subSat(U8x16 a, U8x16 b) { return vqsubq_u8(a, b); }
ZT_LANE_INLINE U16x8 subSat(U16x8 a, U16x8 b) { return vqsubq_u16(a, b); }
ZT_LANE_INLINE U16x8 addSat(U16x8 a, U16x8 b) { return vqaddq_u16(a, b); }
ZT_LANE_INLINE U16x8 roundedMean(U16x8 a, U16x8 b) { return vrhaddq_u16(a, b); }
ZT_LANE_INLINE U8x16 min(U8x16 a, U8x16 b) { return vminq_u8(a, b); }
ZT_LANE_INLINE U16x8 mulHigh(U16x8 a, U16x8 b) {
    const uint32x4_t low = vmull_u16(vget_low_u16(a), vget_low_u16(b));
    const uint32x4_t high = vmull_high_u16(a, b);
    return vuzp2q_u16(vreinterpretq_u16_u32(low), vreinterpretq_u16_u32(high));
}
ZT_LANE_INLINE U8x16 narrow(U16x8 low, U16x8 high) { return vcombine_u8(vmovn_u16(low), vmovn_u16(high)); }
#endif

// Zero-extends the low or high eight bytes to 16-bit lanes (punpcklbw/punpckhbw, uxtl/uxtl2).
ZT_LANE_INLINE U16x8 widenLow(U8x16 v) {
    return (U16x8)__builtin_shufflevector(v, U8x16{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
ZT_LANE_INLINE U16x8 widenHigh(U8x16 v) {
    return (U16x8)__builtin_shufflevector(v, U8x16{}, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15,
                                          31);
}

// Splits 24 interleaved samples a0 b0 c0 a1 b1 c1 ... (three vectors) into the vectors of
// their a, b and c samples. Three rounds of the same shuffle, each interleaving the low half
// of one vector with the high half of another, undo the stride of three (punpcklwd with
// punpckhqdq on SSE2, table lookups on NEON).
ZT_LANE_INLINE void deinterleave3(U16x8& v0, U16x8& v1, U16x8& v2) {
    for (int round = 0; round < 3; ++round) {
        const U16x8 t0 = __builtin_shufflevector(v0, v1, 0, 12, 1, 13, 2, 14, 3, 15);
        const U16x8 t1 = __builtin_shufflevector(v0, v2, 4, 8, 5, 9, 6, 10, 7, 11);
        const U16x8 t2 = __builtin_shufflevector(v1, v2, 0, 12, 1, 13, 2, 14, 3, 15);
        v0 = t0;
        v1 = t1;
        v2 = t2;
    }
}

// (a w0 + b w1 + c w2 + 2^14) >> 15 per lane, exactly, for weights w0 + w1 + w2 = 2^15 (so
// the result fits 16 bits). SSE2 has no unsigned 16 x 16-bit multiply-add: the samples are
// offset by -2^15 into signed lanes (flipping their top bit), pmaddwd sums the pairs (a, b)
// and (c, 1) with the weights (w0, w1) and (w2, 2^14), and the offsets, 2^15 x 2^15 in all,
// cancel against the -2^15 that the signed narrowing needs, flipped back at the end. NEON
// multiplies and accumulates unsigned lanes directly (umull, umlal, shrn).
ZT_LANE_INLINE U16x8 weightedSum3(U16x8 a, U16x8 b, U16x8 c, uint16_t w0, uint16_t w1, uint16_t w2) {
#if defined(__SSE2__)
    const __m128i flip = _mm_set1_epi16(static_cast<short>(0x8000));
    const __m128i sa = _mm_xor_si128((__m128i)a, flip), sb = _mm_xor_si128((__m128i)b, flip);
    const __m128i sc = _mm_xor_si128((__m128i)c, flip), one = _mm_set1_epi16(1);
    const __m128i wab = _mm_set1_epi32(static_cast<int>(uint32_t{w1} << 16 | w0));
    const __m128i wc = _mm_set1_epi32(static_cast<int>(uint32_t{16384} << 16 | w2));
    const __m128i low = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(sa, sb), wab),
                                      _mm_madd_epi16(_mm_unpacklo_epi16(sc, one), wc));
    const __m128i high = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(sa, sb), wab),
                                       _mm_madd_epi16(_mm_unpackhi_epi16(sc, one), wc));
    return (U16x8)_mm_xor_si128(_mm_packs_epi32(_mm_srai_epi32(low, 15), _mm_srai_epi32(high, 15)), flip);
#else
    uint32x4_t low = vmlal_n_u16(vmlal_n_u16(vmull_n_u16(vget_low_u16(a), w0), vget_low_u16(b), w1),
                                 vget_low_u16(c), w2);
    uint32x4_t high = vmlal_high_n_u16(vmlal_high_n_u16(vmull_high_n_u16(a, w0), b, w1), c, w2);
    const uint32x4_t half = vdupq_n_u32(16384);
    low = vaddq_u32(low, half);
    high = vaddq_u32(high, half);
    return vcombine_u16(vshrn_n_u32(low, 15), vshrn_n_u32(high, 15));
#endif
}

// Lane-wise unsigned minimum and maximum (SSE2 has them for bytes only: a - (a -sat b) and
// b + (a -sat b), sharing the saturating difference).
ZT_LANE_INLINE U16x8 min(U16x8 a, U16x8 b) {
#if defined(__SSE2__)
    return a - subSat(a, b);
#else
    return vminq_u16(a, b);
#endif
}
ZT_LANE_INLINE U16x8 max(U16x8 a, U16x8 b) {
#if defined(__SSE2__)
    return b + subSat(a, b);
#else
    return vmaxq_u16(a, b);
#endif
}

// Each pair of 16-bit lanes (first, second) as first x m0 + second x m1 in a 32-bit lane, for
// lanes and multipliers below 2^15: one multiply-add on SSE2 (pmaddwd), two on NEON.
ZT_LANE_INLINE U32x4 multiplyAddPairs(U16x8 v, uint16_t m0, uint16_t m1) {
#if defined(__SSE2__)
    return (U32x4)_mm_madd_epi16((__m128i)v, _mm_set1_epi32(static_cast<int>(uint32_t{m1} << 16 | m0)));
#else
    return ((U32x4)v & 0xFFFF) * m0 + ((U32x4)v >> 16) * m1;
#endif
}

#undef ZT_LANE_INLINE

}  // namespace lanes
}  // namespace ZTI
#endif
