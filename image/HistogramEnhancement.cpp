#include "HistogramEnhancement.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "MatrixBridge.h"
#include "PackedPairs.h"
#include "SimdLanes.h"
#include "ZTImageImpl.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace ZTI {
namespace {

// The stretch of one sample: t = (v - low) / (high - low) x max in double precision, truncated
// toward zero, clamped to [0, max]. Infinite results (high == low) clamp to max or 0 and the
// undefined 0 / 0 gives 0, the same on every platform.
inline uint16_t stretchSample(unsigned v, double low, double range, double max) {
    const double t = (static_cast<double>(v) - low) / range * max;
    if (!(t > 0.0)) return 0;  // also NaN
    if (t >= max) return static_cast<uint16_t>(max);
    return static_cast<uint16_t>(static_cast<int>(t));
}

// The mapping as a table over every input value, computed once per call; the pixel loops then
// only look values up.
std::vector<uint16_t> stretchTable(size_t size, unsigned low, unsigned high, double max) {
    std::vector<uint16_t> table(size);
    const double l = static_cast<double>(low);
    const double range = static_cast<double>(high) - static_cast<double>(low);
    for (size_t v = 0; v < size; ++v) table[v] = stretchSample(static_cast<unsigned>(v), l, range, max);
    return table;
}

// Mono12 samples are 16-bit words that may hold values above 4095. When every such value maps
// to one result (the usual case: the range ends inside 0..4095, so the mapping is saturated
// there), a 4097-entry table with the index clamped at 4096 suffices; otherwise all 65536
// values get an entry.
std::vector<uint16_t> mono12Table(unsigned low, unsigned high) {
    const double l = low, range = static_cast<double>(high) - static_cast<double>(low);
    const bool saturatedAbove = (low < 4096 || high != low) &&
                                stretchSample(4096, l, range, 4095.0) == stretchSample(65535, l, range, 4095.0);
    return stretchTable(saturatedAbove ? 4097 : 65536, low, high, 4095.0);
}

// The stretch of an increasing 8-bit range in 16-bit integers:
// out = d x aHigh + ((d x aLow) >> 16) with d = min(max(v - low, 0), dMax), that is
// floor(d x a / 2^16) for a = ceil(255 x 2^16 / range), which never exceeds 255 for d <= range.
// It is used only after it has been checked against the table for every input value, so it is
// exact by construction (in practice it holds for ranges up to 255 wide); it processes sixteen
// samples per vector instead of one table lookup per sample.
struct FixedPointStretch {
    bool exact = false;
    uint8_t low = 0, dMax = 0;
    uint16_t aHigh = 0, aLow = 0;
};

inline uint8_t fixedPointSample(uint8_t v, const FixedPointStretch& f) {
    uint8_t d = v > f.low ? static_cast<uint8_t>(v - f.low) : 0;
    d = d > f.dMax ? f.dMax : d;
    const uint16_t r = static_cast<uint16_t>(static_cast<uint16_t>(d * f.aHigh) +
                                             static_cast<uint16_t>((static_cast<uint32_t>(d) * f.aLow) >> 16));
    return static_cast<uint8_t>(r > 255 ? 255 : r);
}

FixedPointStretch fitMono8(unsigned low, unsigned high, const std::vector<uint16_t>& table) {
    FixedPointStretch f;
    if (high <= low || low > 255) return f;
    const uint64_t range = high - low;
    const uint64_t a = ((uint64_t{255} << 16) + range - 1) / range;
    if (a >= (uint64_t{256} << 16)) return f;
    f.low = static_cast<uint8_t>(low);
    f.dMax = static_cast<uint8_t>(std::min<uint64_t>(range, 255 - low));
    f.aHigh = static_cast<uint16_t>(a >> 16);
    f.aLow = static_cast<uint16_t>(a & 0xFFFF);
    for (unsigned v = 0; v < 256; ++v)
        if (fixedPointSample(static_cast<uint8_t>(v), f) != table[v]) return f;
    f.exact = true;
    return f;
}

void stretchMono8Fixed(const uint8_t* src, uint8_t* dst, size_t n, const FixedPointStretch& f) {
    size_t i = 0;
#ifdef ZT_HAVE_LANES
    using namespace lanes;
    const U8x16 low = splat<U8x16>(f.low), dMax = splat<U8x16>(f.dMax);
    const U16x8 aHigh = splat<U16x8>(f.aHigh), aLow = splat<U16x8>(f.aLow);
    for (; i + 16 <= n; i += 16) {
        const U8x16 d = min(subSat(load<U8x16>(src + i), low), dMax);
        const U16x8 first = widenLow(d), second = widenHigh(d);
        store(dst + i, narrow(first * aHigh + mulHigh(first, aLow), second * aHigh + mulHigh(second, aLow)));
    }
#endif
    for (; i < n; ++i) dst[i] = fixedPointSample(src[i], f);
}

void stretchMono8(const uint8_t* src, uint8_t* dst, size_t n, const std::vector<uint16_t>& table,
                  const FixedPointStretch& f) {
    if (f.exact) {
        stretchMono8Fixed(src, dst, n, f);
        return;
    }
    uint8_t lut[256];
    for (int i = 0; i < 256; ++i) lut[i] = static_cast<uint8_t>(table[i]);
    for (size_t i = 0; i < n; ++i) dst[i] = lut[src[i]];
}

// 12-bit stretch of an increasing range in 16-bit integer lanes:
// out = d x k + floor(d x f) with d = min(max(v - low, 0), dMax), where k + f is 4095 / range
// and the fraction f is held to 32 bits (fHigh:fLow, rounded up). floor(d x f) is taken from
// three 16 x 16-bit products: the high half of d x fHigh, plus 1 when the low half of d x fHigh
// and the high half of d x fLow add up to 2^16 or more (counted with a rounding half-add, which
// also counts a sum of exactly 2^16 - 1). That stays within 2^-16 of exact for every d below
// 65536, so it only differs from the table where the table's double arithmetic lands on an
// integer from below, or where that sum is 2^16 - 1; the form is used only after it has been
// checked against the table for every d, so it is exact, and it then never exceeds 4095.
struct FixedPointStretch12 {
    bool exact = false;
    uint16_t low = 0, dMax = 0, k = 0, fHigh = 0, fLow = 0;
};

inline uint16_t fixedPoint12(uint16_t v, const FixedPointStretch12& f) {
    uint16_t d = v > f.low ? static_cast<uint16_t>(v - f.low) : 0;
    d = d > f.dMax ? f.dMax : d;
    const uint32_t highLow = (static_cast<uint32_t>(d) * f.fHigh) & 0xFFFFu;
    const uint32_t highHigh = (static_cast<uint32_t>(d) * f.fHigh) >> 16;
    const uint32_t lowHigh = (static_cast<uint32_t>(d) * f.fLow) >> 16;
    const uint32_t carry = (highLow + lowHigh + 1) >> 16;
    return static_cast<uint16_t>(d * f.k + highHigh + carry);
}

FixedPointStretch12 fit12(unsigned low, unsigned high, unsigned maxInput) {
    FixedPointStretch12 f;
    if (high <= low || low > maxInput) return f;
    const uint64_t range = high - low;
    const uint64_t fraction = (((uint64_t{4095} % range) << 32) + range - 1) / range;
    f.low = static_cast<uint16_t>(low);
    f.dMax = static_cast<uint16_t>(std::min<uint64_t>(range, maxInput - low));
    f.k = static_cast<uint16_t>(4095 / range);
    f.fHigh = static_cast<uint16_t>(fraction >> 16);
    f.fLow = static_cast<uint16_t>(fraction & 0xFFFF);
    const double l = low, r = static_cast<double>(range);
    for (unsigned d = 0; d <= f.dMax; ++d) {
        const uint16_t v = static_cast<uint16_t>(low + d);
        if (fixedPoint12(v, f) != stretchSample(v, l, r, 4095.0)) return f;
    }
    f.exact = true;
    return f;
}

#ifdef ZT_HAVE_LANES
// fixedPoint12 on eight samples. The clamp of v - low to [0, dMax] is two saturating steps:
// adding 65535 - (low + dMax) saturates every v above low + dMax, and subtracting
// 65535 - dMax then leaves min(max(v - low, 0), dMax).
struct Lanes12 {
    explicit Lanes12(const FixedPointStretch12& f)
        : raise(lanes::splat<lanes::U16x8>(65535 - f.low - f.dMax)),
          lower(lanes::splat<lanes::U16x8>(65535 - f.dMax)),
          k(lanes::splat<lanes::U16x8>(f.k)),
          fHigh(lanes::splat<lanes::U16x8>(f.fHigh)),
          fLow(lanes::splat<lanes::U16x8>(f.fLow)) {}
    lanes::U16x8 raise, lower, k, fHigh, fLow;
};

inline __attribute__((always_inline)) lanes::U16x8 stretchLanes12(lanes::U16x8 v, const Lanes12& c) {
    using namespace lanes;
    const U16x8 d = subSat(addSat(v, c.raise), c.lower);
    const U16x8 carry = roundedMean(d * c.fHigh, mulHigh(d, c.fLow)) >> 15;
    return d * c.k + mulHigh(d, c.fHigh) + carry;
}
#endif

void stretch12Fixed(const unsigned char* src, unsigned char* dst, size_t n, const FixedPointStretch12& f) {
    size_t i = 0;
#ifdef ZT_HAVE_LANES
    // Little-endian 16-bit words, loaded as they lie: the buffers need not be aligned.
    const Lanes12 c(f);
    for (; i + 8 <= n; i += 8) lanes::store(dst + 2 * i, stretchLanes12(lanes::load<lanes::U16x8>(src + 2 * i), c));
#endif
    for (; i < n; ++i) {
        const uint16_t out = fixedPoint12(static_cast<uint16_t>(src[2 * i] | (src[2 * i + 1] << 8)), f);
        dst[2 * i] = static_cast<unsigned char>(out);
        dst[2 * i + 1] = static_cast<unsigned char>(out >> 8);
    }
}

void stretchMono12(const unsigned char* src, unsigned char* dst, size_t n, unsigned low, unsigned high) {
    const FixedPointStretch12 f = fit12(low, high, 65535);
    if (f.exact) {
        stretch12Fixed(src, dst, n, f);
        return;
    }
    const std::vector<uint16_t> table = mono12Table(low, high);
    const size_t last = table.size() - 1;
    for (size_t i = 0; i < n; ++i) {
        // Little-endian 16-bit words, read bytewise: the buffers need not be aligned.
        const unsigned v = src[2 * i] | (src[2 * i + 1] << 8);
        const uint16_t out = table[v < last ? v : last];
        dst[2 * i] = static_cast<unsigned char>(out);
        dst[2 * i + 1] = static_cast<unsigned char>(out >> 8);
    }
}

// Reading and writing one pixel of a three-byte pair at byte b. `second` selects the pair's
// second pixel, whose bytes are the shared middle byte (at b) and the last byte (at b + 1).
struct PackedLayout {
    bool lsbFirst;  // Mono12p; otherwise Mono12Packed

    unsigned read(const unsigned char* p, bool second) const {
        if (second) return secondOfPair(p[0], p[1]);
        return lsbFirst ? LsbFirstPair::first(p[0], p[1]) : PackedPair::first(p[0], p[1]);
    }
    void write(unsigned char* p, bool second, unsigned v) const {
        if (second)
            writeSecondOfPair(p, v);
        else if (lsbFirst)
            LsbFirstPair::writeFirst(p, v);
        else
            PackedPair::writeFirst(p, v);
    }
};

#ifdef ZT_HAVE_LANES
// Packed pairs in lanes need a byte shuffle: NEON always has one (tbl), x86 from SSSE3 on
// (pshufb); the shuffle-free x86-64 baseline keeps the table.
#if defined(__SSE2__) && !defined(__SSSE3__)
#define ZT_SHUFFLE_TARGET __attribute__((target("ssse3")))
#else
#define ZT_SHUFFLE_TARGET
#endif

// Stretches pairs in place, four per step (twelve bytes, eight samples in 16-bit lanes), and
// returns how many it did. A step reads sixteen bytes, so it stops while at least six pairs
// are left.
template <bool LsbFirst>
ZT_SHUFFLE_TARGET size_t stretchPairsInLanes(unsigned char* buf, size_t pairs, const FixedPointStretch12& f) {
    using namespace lanes;
    const Lanes12 c(f);
    size_t p = 0;
    for (; p + 6 <= pairs; p += 4) {
        unsigned char* at = buf + 3 * p;
        const U8x16 bytes = load<U8x16>(at);
        U16x8 samples;
        if (LsbFirst) {
            // Mono12p: the first sample is the low 12 bits of the word at the pair's byte 0, the
            // second the high 12 bits of the word at byte 1. Multiplying first samples by 16 drops
            // the bits above them, and the shift right drops those below the second ones.
            const U16x8 words = (U16x8)__builtin_shufflevector(bytes, bytes, 0, 1, 1, 2, 3, 4, 4, 5, 6, 7, 7, 8, 9,
                                                               10, 10, 11);
            samples = (words * U16x8{16, 1, 16, 1, 16, 1, 16, 1}) >> 4;
        } else {
            // Mono12Packed: b0 b1 b2 hold (b0 << 4 | low nibble of b1) and (b2 << 4 | high nibble
            // of b1). The words are b0:b1 and b2:b1 (high:low byte).
            const U16x8 words = (U16x8)__builtin_shufflevector(bytes, bytes, 1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10,
                                                               9, 10, 11);
            samples = ((words >> 4) & U16x8{0xFF0, 0xFFF, 0xFF0, 0xFFF, 0xFF0, 0xFFF, 0xFF0, 0xFFF}) |
                      (words & U16x8{0xF, 0, 0xF, 0, 0xF, 0, 0xF, 0});
        }
        // Repack each pair into the low three bytes of its 32-bit lane, then close the gaps.
        // Mono12p: first | second << 12 in one multiply-add. Mono12Packed: the bytes first >> 4
        // and second >> 4 at 0 and 2, and at 1 the two low nibbles, joined by a multiply-add.
        // Only the twelve bytes of the four pairs are written back: a sixteen-byte store would
        // overlap the next step's load, which then has to wait for the store to reach the cache
        // instead of taking its bytes from it.
        const U16x8 stretched = stretchLanes12(samples, c);
        const U32x4 packed = LsbFirst ? multiplyAddPairs(stretched, 1, 4096)
                                      : (U32x4)(stretched >> 4) | multiplyAddPairs(stretched & 0xF, 256, 4096);
        const U8x16 out = __builtin_shufflevector((U8x16)packed, (U8x16)packed, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13,
                                                  14, 3, 7, 11, 15);
        std::memcpy(at, &out, 12);
    }
    return p;
}

#if defined(__x86_64__)
typedef uint16_t U16x16 __attribute__((vector_size(32)));

// stretchPairsInLanes with AVX2, eight pairs per step: each 128-bit half of a register takes
// four pairs (twelve bytes) as the four-pair step does, then the two halves' 24 bytes are
// closed up and stored. A step reads 28 bytes, so it stops while at least ten pairs are left.
template <bool LsbFirst>
__attribute__((target("avx2"))) size_t stretchPairsAvx2(unsigned char* buf, size_t pairs,
                                                         const FixedPointStretch12& f) {
    const U16x16 raise = (U16x16)_mm256_set1_epi16(static_cast<short>(65535 - f.low - f.dMax));
    const __m256i lower = _mm256_set1_epi16(static_cast<short>(65535 - f.dMax));
    const U16x16 k = (U16x16)_mm256_set1_epi16(static_cast<short>(f.k));
    const U16x16 fHigh = (U16x16)_mm256_set1_epi16(static_cast<short>(f.fHigh));
    const __m256i fLow = _mm256_set1_epi16(static_cast<short>(f.fLow));
    const __m256i gather = _mm256_broadcastsi128_si256(
        LsbFirst ? _mm_setr_epi8(0, 1, 1, 2, 3, 4, 4, 5, 6, 7, 7, 8, 9, 10, 10, 11)
                 : _mm_setr_epi8(1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11));
    const __m256i close = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    const __m256i join = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
    size_t p = 0;
    for (; p + 10 <= pairs; p += 8) {
        unsigned char* at = buf + 3 * p;
        const __m256i bytes = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(at + 12),
                                                  reinterpret_cast<const __m128i*>(at));
        const U16x16 words = (U16x16)_mm256_shuffle_epi8(bytes, gather);
        const U16x16 samples = LsbFirst ? (words * (U16x16)_mm256_set1_epi32(0x00010010)) >> 4
                                        : ((words >> 4) & (U16x16)_mm256_set1_epi32(0x0FFF0FF0)) |
                                              (words & (U16x16)_mm256_set1_epi32(0x0000000F));
        const U16x16 d = (U16x16)_mm256_subs_epu16(_mm256_adds_epu16((__m256i)samples, (__m256i)raise), lower);
        const U16x16 carry = (U16x16)_mm256_avg_epu16((__m256i)(d * fHigh), _mm256_mulhi_epu16((__m256i)d, fLow)) >> 15;
        const U16x16 stretched = d * k + (U16x16)_mm256_mulhi_epu16((__m256i)d, (__m256i)fHigh) + carry;
        const __m256i packed =
            LsbFirst ? _mm256_madd_epi16((__m256i)stretched, _mm256_set1_epi32(0x10000001))
                     : (__m256i)(stretched >> 4) |
                           _mm256_madd_epi16((__m256i)(stretched & 0xF), _mm256_set1_epi32(0x10000100));
        const __m256i out = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(packed, close), join);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(at), _mm256_castsi256_si128(out));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(at + 16), _mm256_extracti128_si256(out, 1));
    }
    return p;
}
#endif

// The widest pair kernel this processor runs, if any: returns how many pairs it did.
size_t stretchPairsFast(unsigned char* buf, size_t pairs, bool lsbFirst, const FixedPointStretch12& f) {
#if defined(__x86_64__)
    static const bool avx2 = __builtin_cpu_supports("avx2");
    if (avx2) return lsbFirst ? stretchPairsAvx2<true>(buf, pairs, f) : stretchPairsAvx2<false>(buf, pairs, f);
#endif
#if defined(__SSE2__) && !defined(__SSSE3__)
    static const bool ssse3 = __builtin_cpu_supports("ssse3");
    if (!ssse3) return 0;
#endif
    return lsbFirst ? stretchPairsInLanes<true>(buf, pairs, f) : stretchPairsInLanes<false>(buf, pairs, f);
}
#endif

void stretchPacked(unsigned char* buf, size_t width, size_t height, PfncFormat_ format, unsigned low,
                   unsigned high) {
    const PackedLayout layout{format == Mono12p};
    const std::vector<uint16_t> table = stretchTable(4096, low, high, 4095.0);
    if (width % 2 == 0) {
        // Even widths: every row starts a pair, so the image is one stream of pairs.
        const size_t pairs = width * height / 2;
        size_t done = 0;
#ifdef ZT_HAVE_LANES
        const FixedPointStretch12 f = fit12(low, high, 4095);
        if (f.exact) done = stretchPairsFast(buf, pairs, layout.lsbFirst, f);
#endif
        for (size_t i = done; i < pairs; ++i) {
            unsigned char* p = buf + 3 * i;
            const unsigned first = table[layout.read(p, false)];
            const unsigned second = table[layout.read(p + 1, true)];
            layout.write(p, false, first);
            layout.write(p + 1, true, second);
        }
        return;
    }
    // Odd widths: the byte comes from the row's bit offset and the half of the pair from the
    // column's parity, as the library has always addressed these rows.
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x) {
            const bool second = (x & 1) != 0;
            unsigned char* p = buf + (3 * width * y + 3 * x) / 2;
            layout.write(p, second, table[layout.read(p, second)]);
        }
    }
}

}  // namespace

int histStretch(ZTImage& src, ZTImage& dst, unsigned int low, unsigned int high) {
    const PfncFormat_ format = src.getPixelType();
    if (format != Mono8 && format != Mono12 && format != Mono12Packed && format != Mono12p) {
        std::fputs("Unsupported format.\n", stderr);
        return -1;
    }
    const bool packed = format == Mono12Packed || format == Mono12p;
    unsigned char* srcBuffer = packed ? nullptr : src.getBuffer();
    unsigned char* dstBuffer = dst.getBuffer();
    const size_t height = src.getHeight(), width = src.getWidth();
    if (height < 1 || width < 1) return 0;

    // Bytes the layout touches: whole pixels for Mono8 and Mono12; for the packed formats the
    // pairs, or with odd widths the two bytes read for the last pixel (one past the packed
    // size when the pixel count is odd).
    const uint64_t pixels = static_cast<uint64_t>(width) * height;
    uint64_t needed = format == Mono8 ? pixels : 2 * pixels;
    if (packed)
        needed = width % 2 == 0 ? 3 * pixels / 2 : (3 * width * (height - 1) + 3 * (width - 1)) / 2 + 2;
    if (dstBuffer == nullptr || readableBytes(dst) < needed ||
        (!packed && (srcBuffer == nullptr || readableBytes(src) < needed)))
        return -1;

    if (format == Mono8) {
        const std::vector<uint16_t> table = stretchTable(256, low, high, 255.0);
        stretchMono8(srcBuffer, dstBuffer, pixels, table, fitMono8(low, high, table));
    } else if (format == Mono12) {
        stretchMono12(srcBuffer, dstBuffer, pixels, low, high);
    } else {
        stretchPacked(dstBuffer, width, height, format, low, high);
    }
    return 0;
}

int histEqual(ZTImage& src, ZTImage& dst) {
    if (!src.isValid() || !dst.isValid()) return -1;
    const PfncFormat_ format = src.getPixelType();
    // 8-bit one-channel images only; others are left alone.
    if (getBitsPerPixel(format) != 8 || channelCount(format) != 1) return 0;
    if (get_cv_mat_type(dst.getPixelType()) != CV_8UC1 || dst.getWidth() != src.getWidth() ||
        dst.getHeight() != src.getHeight())
        return -1;
    const uint64_t bytes = static_cast<uint64_t>(src.getWidth()) * src.getHeight();
    if (readableBytes(src) < bytes || readableBytes(dst) < bytes) return -1;

    const int rows = static_cast<int>(src.getHeight()), cols = static_cast<int>(src.getWidth());
    const cv::Mat in(rows, cols, CV_8UC1, src.getBuffer());
    cv::Mat out(rows, cols, CV_8UC1, dst.getBuffer());
    cv::equalizeHist(in, out);
    return 0;
}

}  // namespace ZTI
