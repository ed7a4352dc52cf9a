// Unpacking packed 10- and 12-bit camera data into 16-bit samples.
//
// Both unpackers are one linear pass: a fast body over whole blocks of groups, then the few
// remaining pixels with the plain per-group formulas. The fast bodies only read bytes that
// belong to the groups they unpack, so nothing past the packed stream is ever touched.
#include "PixelUnpack.h"
#include "PublishedUnpack.h"

#include <cstdint>
#include <cstring>

#include "PackedPairs.h"

namespace {

using namespace ZTI;

// The single-channel 10- and 12-bit packed codes: the unpackers read every one of them, the
// 10-bit ones as five-byte groups whatever their name says.
bool isAcceptedPackedFormat(PfncFormat_ format) {
    const PixelFormatInfo* info = getPixelFormatInfo(format);
    return info != nullptr && info->channels == 1 &&
           (info->packing == PixelPacking::LsbFirst || info->packing == PixelPacking::PackedPairs) &&
           (info->containerBits == 10 || info->containerBits == 12);
}

// The codes whose 12-bit pairs are stored least significant bits first; the other accepted
// codes use the packed-pair layout.
bool isLsbFirstPair(PfncFormat_ format) {
    const PixelFormatInfo* info = getPixelFormatInfo(format);
    return info != nullptr && info->packing == PixelPacking::LsbFirst;
}

// Pixel count as the callers define it: width x height in 32-bit signed arithmetic. A product
// that wraps to a negative number unpacks nothing.
int32_t pixelCount(int width, int height) {
    return static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
}

inline uint32_t load32(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void store16(unsigned char* dst, size_t index, unsigned value) {
    const auto v = static_cast<uint16_t>(value);
    std::memcpy(dst + 2 * index, &v, sizeof v);
}

// ---- 10 bits: five-byte groups of four pixels, most significant bits first ---------------

inline void unpackGroup10(const unsigned char* s, unsigned char* dst, size_t first) {
    const unsigned b0 = s[0], b1 = s[1], b2 = s[2], b3 = s[3], b4 = s[4];
    store16(dst, first + 0, (b0 << 2) | (b1 >> 6));
    store16(dst, first + 1, ((b1 & 0x3F) << 4) | (b2 >> 4));
    store16(dst, first + 2, ((b2 & 0x0F) << 6) | (b3 >> 2));
    store16(dst, first + 3, ((b3 & 0x03) << 8) | b4);
}

#if defined(__has_builtin)
#if __has_builtin(__builtin_shufflevector) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define ZT_UNPACK10_VECTOR 1
#endif
#endif

#ifdef ZT_UNPACK10_VECTOR
// Generic 16-byte vectors: GCC and Clang lower them to SSE2 on x86-64 and to NEON on
// AArch64. A plain loop does not vectorize here because the groups are five bytes apart and
// SSE2 has no byte shuffle for the compiler to gather them with; the interleave below is the
// one byte shuffle both instruction sets have (punpcklbw, zip1).
typedef uint8_t U8x16 __attribute__((vector_size(16)));
typedef uint16_t U16x8 __attribute__((vector_size(16)));
typedef uint32_t U32x4 __attribute__((vector_size(16)));

constexpr int kGroupsPerStep10 = 4;

// Most significant bits first, pixel k of a group (k = 0..3) is the big-endian word of its
// bytes k and k + 1 shifted right by 6 - 2k and cut to 10 bits; least significant bits first
// (the published "p" layout), it is the little-endian word of the same bytes shifted right by
// 2k. Interleaving bytes 0..3 of each group with bytes 1..4 builds those words in 16-bit lanes;
// multiplying lane k by 4^k, or 4^(3-k) least significant bits first (wrapping at 16 bits),
// drops the bits above the pixel, and the shift right by 6 drops those below, so each lane
// needs 2 operations.
template <bool kLsbFirst>
inline void unpackGroups10(const unsigned char* s, unsigned char* dst) {
    const U16x8 scale = kLsbFirst ? U16x8{64, 16, 4, 1, 64, 16, 4, 1} : U16x8{1, 4, 16, 64, 1, 4, 16, 64};
    for (int half = 0; half < kGroupsPerStep10 / 2; ++half) {
        const unsigned char* g = s + 10 * half;
        const U32x4 lead = {load32(g), load32(g + 5), 0, 0};
        const U32x4 next = {load32(g + 1), load32(g + 6), 0, 0};
        // Vector casts reinterpret the 16 bytes, as between any vector types of one size.
        const U8x16 low = (U8x16)(kLsbFirst ? lead : next), high = (U8x16)(kLsbFirst ? next : lead);
        const U8x16 words = __builtin_shufflevector(low, high,
                                                    0, 16, 1, 17, 2, 18, 3, 19,
                                                    4, 20, 5, 21, 6, 22, 7, 23);
        const U16x8 pixels = ((U16x8)words * scale) >> 6;
        std::memcpy(dst + 16 * half, &pixels, sizeof pixels);
    }
}
#endif

// ---- 12 bits: three-byte pairs -------------------------------------------------------------

constexpr size_t kPairsPerBlock12 = 16;

template <typename Layout>
void unpackPairs12(const unsigned char* src, unsigned char* dst, size_t pairs) {
    size_t p = 0;
    // A 32-bit load of pair p reads one byte of pair p + 1, so the block loop stops while a
    // later pair is still left; the fixed block size lets the compiler vectorize the body.
    for (; p + kPairsPerBlock12 < pairs; p += kPairsPerBlock12) {
        const unsigned char* s = src + 3 * p;
        // Built in a local block and copied out whole: storing straight into dst makes the
        // compiler guard the loop against src and dst overlapping and fall back to scalar code.
        uint32_t out[kPairsPerBlock12];
        for (size_t k = 0; k < kPairsPerBlock12; ++k) out[k] = Layout::both(load32(s + 3 * k));
        std::memcpy(dst + 4 * p, out, sizeof out);
    }
    for (; p < pairs; ++p) {
        const unsigned char* s = src + 3 * p;
        store16(dst, 2 * p, Layout::first(s[0], s[1]));
        store16(dst, 2 * p + 1, Layout::second(s[1], s[2]));
    }
}

}  // namespace

void unpack10BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                             unsigned char* dst) {
    if (!isAcceptedPackedFormat(format) || src == nullptr || dst == nullptr) return;
    const int32_t n = pixelCount(width, height);
    if (n <= 0) return;
    const size_t groups = static_cast<size_t>(n) / 4;
    size_t g = 0;
#ifdef ZT_UNPACK10_VECTOR
    for (; g + kGroupsPerStep10 <= groups; g += kGroupsPerStep10)
        unpackGroups10<false>(src + 5 * g, dst + 8 * g);
#endif
    for (; g < groups; ++g) unpackGroup10(src + 5 * g, dst, 4 * g);

    // Partial last group: pixel k reads bytes k and k + 1 only, so 1 to 3 pixels need 2 to 4
    // bytes and nothing past them is read.
    const size_t rest = static_cast<size_t>(n) % 4;
    const unsigned char* s = src + 5 * groups;
    const size_t base = 4 * groups;
    if (rest >= 1) store16(dst, base + 0, (s[0] << 2) | (s[1] >> 6));
    if (rest >= 2) store16(dst, base + 1, ((s[1] & 0x3F) << 4) | (s[2] >> 4));
    if (rest >= 3) store16(dst, base + 2, ((s[2] & 0x0F) << 6) | (s[3] >> 2));
}

void unpack12BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                             unsigned char* dst) {
    if (!isAcceptedPackedFormat(format) || src == nullptr || dst == nullptr) return;
    const int32_t n = pixelCount(width, height);
    // An odd last pixel is left unwritten: its slot keeps whatever the buffer held.
    if (n < 2) return;
    const size_t pairs = static_cast<size_t>(n) / 2;
    if (isLsbFirstPair(format))
        unpackPairs12<LsbFirstPair>(src, dst, pairs);
    else
        unpackPairs12<PackedPair>(src, dst, pairs);
}

// ---- Published layouts ---------------------------------------------------------------------
// The layouts the standards publish, for frames that real cameras send: PFNC "p" codes pack
// pixels back to back least significant bits first (10 bits: four pixels in five bytes);
// GigE Vision "Packed" codes put two pixels in three bytes, the high bits of each in bytes 0
// and 2 and the low bits of both in byte 1 (bits 1..0 for the first pixel, 5..4 for a 10-bit
// second one, 7..4 for a 12-bit second one).

namespace {

// Two 10-bit pixels in three bytes: p0 = b0 << 2 | b1 & 3, p1 = b2 << 2 | (b1 >> 4) & 3.
struct PackedPair10 {
    static unsigned first(unsigned b0, unsigned b1) { return (b0 << 2) | (b1 & 0x03); }
    static unsigned second(unsigned b1, unsigned b2) { return (b2 << 2) | ((b1 >> 4) & 0x03); }
    static uint32_t both(uint32_t x) {
        return ((x << 2) & 0x03FC03FCu) | ((x >> 8) & 0x03u) | ((x << 4) & 0x00030000u);
    }
};

// Pixel k (k = 0..3) of a five-byte group starts at bit 10 k: byte k, bit 2 k.
inline unsigned lsbFirst10(const unsigned char* s, unsigned k) {
    return ((s[k] | s[k + 1] << 8) >> (2 * k)) & 0x3FFu;
}


// n pixels of one continuous run; a last partial group reads only the bytes its pixels touch.
void unpackRunLsbFirst10(const unsigned char* src, unsigned char* dst, size_t n) {
    const size_t groups = n / 4;
    size_t g = 0;
#ifdef ZT_UNPACK10_VECTOR
    for (; g + kGroupsPerStep10 <= groups; g += kGroupsPerStep10)
        unpackGroups10<true>(src + 5 * g, dst + 8 * g);
#endif
    for (; g < groups; ++g)
        for (unsigned k = 0; k < 4; ++k) store16(dst, 4 * g + k, lsbFirst10(src + 5 * g, k));
    const unsigned char* s = src + 5 * groups;
    for (unsigned k = 0; k < n % 4; ++k) store16(dst, 4 * groups + k, lsbFirst10(s, k));
}

// n pixels in pairs; an odd last pixel reads the first two bytes of its pair.
template <typename Layout>
void unpackRunPairs(const unsigned char* src, unsigned char* dst, size_t n) {
    unpackPairs12<Layout>(src, dst, n / 2);
    if (n % 2) {
        const unsigned char* s = src + 3 * (n / 2);
        store16(dst, n - 1, Layout::first(s[0], s[1]));
    }
}

using RunUnpacker = void (*)(const unsigned char*, unsigned char*, size_t);

RunUnpacker publishedRunUnpacker(const PixelFormatInfo& info) {
    if (info.bitsPerChannel == 10 && info.packing == PixelPacking::LsbFirst) return unpackRunLsbFirst10;
    if (info.bitsPerChannel == 10 && info.packing == PixelPacking::PackedPairs) return unpackRunPairs<PackedPair10>;
    if (info.bitsPerChannel == 12 && info.packing == PixelPacking::LsbFirst) return unpackRunPairs<LsbFirstPair>;
    if (info.bitsPerChannel == 12 && info.packing == PixelPacking::PackedPairs) return unpackRunPairs<PackedPair>;
    return nullptr;
}

}  // namespace

namespace ZTI {

bool hasPublishedUnpacking(PfncFormat_ format) {
    const PixelFormatInfo* info = getPixelFormatInfo(format);
    return info != nullptr && info->channels == 1 && publishedRunUnpacker(*info) != nullptr;
}

uint64_t publishedRowBytes(PfncFormat_ format, uint32_t pixels) {
    return (uint64_t{pixels} * getBitsPerPixel(format) + 7) / 8;
}

void unpackPublished(PfncFormat_ format, uint32_t width, uint32_t height, uint32_t paddingX,
                     const unsigned char* src, unsigned char* dst) {
    const PixelFormatInfo* info = getPixelFormatInfo(format);
    const RunUnpacker unpack = info != nullptr ? publishedRunUnpacker(*info) : nullptr;
    if (unpack == nullptr || src == nullptr || dst == nullptr) return;
    if (paddingX == 0) {
        unpack(src, dst, size_t{width} * height);
        return;
    }
    const uint64_t stride = publishedRowBytes(format, width) + paddingX;
    for (uint32_t y = 0; y < height; ++y) unpack(src + y * stride, dst + 2 * size_t{width} * y, width);
}

}  // namespace ZTI
