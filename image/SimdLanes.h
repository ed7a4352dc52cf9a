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
