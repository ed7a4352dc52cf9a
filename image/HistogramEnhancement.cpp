#include "HistogramEnhancement.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "MatrixBridge.h"
#include "ZTImageImpl.h"

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
// out = min(d x aHigh + ((d x aLow) >> 16), 255) with d = min(max(v - low, 0), dMax), that is
// floor(d x a / 2^16) for a = ceil(255 x 2^16 / range). It is used only after it has been checked
// against the table for every input value, so it is exact by construction (in practice it
// holds for ranges up to 255 wide); it lets the compiler process sixteen samples per vector
// instead of one table lookup per sample.
struct FixedPointStretch {
    bool exact = false;
    uint8_t low = 0, dMax = 0;
    uint16_t aHigh = 0, aLow = 0;
};

inline uint8_t fixedPointSample(uint8_t v, const FixedPointStretch& f) {
    uint8_t d = v > f.low ? static_cast<uint8_t>(v - f.low) : 0;
    d = d > f.dMax ? f.dMax : d;
    // Each term narrowed to 16 bits on its own, so the compiler keeps 16-bit lanes (a 16-bit
    // multiply and a high-half multiply) instead of widening to 32 bits.
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

// Kept out of line with plain scalar parameters: that is the form in which the compiler turns
// the two products into 16-bit lane multiplies (pmullw/pmulhuw, NEON umull/mul).
__attribute__((noinline)) void stretchMono8Fixed(const uint8_t* src, uint8_t* dst, size_t n, uint8_t low,
                                                 uint8_t dMax, uint16_t aHigh, uint16_t aLow) {
    for (size_t i = 0; i < n; ++i) {
        uint8_t d = src[i] > low ? static_cast<uint8_t>(src[i] - low) : 0;
        d = d > dMax ? dMax : d;
        const uint16_t r = static_cast<uint16_t>(static_cast<uint16_t>(d * aHigh) +
                                                 static_cast<uint16_t>((static_cast<uint32_t>(d) * aLow) >> 16));
        dst[i] = static_cast<uint8_t>(r > 255 ? 255 : r);
    }
}

void stretchMono8(const uint8_t* src, uint8_t* dst, size_t n, const std::vector<uint16_t>& table,
                  const FixedPointStretch& f) {
    if (f.exact) {
        stretchMono8Fixed(src, dst, n, f.low, f.dMax, f.aHigh, f.aLow);
        return;
    }
    uint8_t lut[256];
    for (int i = 0; i < 256; ++i) lut[i] = static_cast<uint8_t>(table[i]);
    for (size_t i = 0; i < n; ++i) dst[i] = lut[src[i]];
}

// 12-bit stretch of an increasing range in 16-bit integer lanes:
// out = min(d x k + floor(d x f), 4095) with d = min(max(v - low, 0), dMax), where k + f is
// 4095 / range and the fraction f is held to 32 bits (fHigh:fLow, rounded up). The 32-bit
// fraction keeps d x f within 2^-16 of exact for every d below 65536, so the sum only differs
// from the exact table where the table's double arithmetic lands on an integer from below; the
// form is used only after it has been checked against the table for every d, so it is exact.
struct FixedPointStretch12 {
    bool exact = false;
    uint16_t low = 0, dMax = 0, k = 0, fHigh = 0, fLow = 0;
};

inline uint16_t fixedPoint12(uint16_t v, uint16_t low, uint16_t dMax, uint16_t k, uint16_t fHigh, uint16_t fLow) {
    uint16_t d = v > low ? static_cast<uint16_t>(v - low) : 0;
    d = d > dMax ? dMax : d;
    // floor(d x (fHigh:fLow) / 2^32) from three 16 x 16-bit products, carrying by hand.
    const uint16_t highLow = static_cast<uint16_t>(d * fHigh);
    const uint16_t highHigh = static_cast<uint16_t>((static_cast<uint32_t>(d) * fHigh) >> 16);
    const uint16_t lowHigh = static_cast<uint16_t>((static_cast<uint32_t>(d) * fLow) >> 16);
    const uint16_t sum = static_cast<uint16_t>(highLow + lowHigh);
    const uint16_t carry = sum < highLow ? 1 : 0;
    const uint16_t q = static_cast<uint16_t>(static_cast<uint16_t>(d * k) + highHigh + carry);
    return q > 4095 ? 4095 : q;
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
        if (fixedPoint12(v, f.low, f.dMax, f.k, f.fHigh, f.fLow) != stretchSample(v, l, r, 4095.0)) return f;
    }
    f.exact = true;
    return f;
}

// Kept out of line with scalar parameters so the compiler keeps the products in 16-bit lanes.
__attribute__((noinline)) void stretch12Fixed(const uint16_t* src, uint16_t* dst, size_t n, uint16_t low,
                                              uint16_t dMax, uint16_t k, uint16_t fHigh, uint16_t fLow) {
    for (size_t i = 0; i < n; ++i) dst[i] = fixedPoint12(src[i], low, dMax, k, fHigh, fLow);
}

void stretchMono12(const unsigned char* src, unsigned char* dst, size_t n, unsigned low, unsigned high) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    // Little-endian hosts hold the samples as native 16-bit words.
    const FixedPointStretch12 f = fit12(low, high, 65535);
    if (f.exact && reinterpret_cast<uintptr_t>(src) % 2 == 0 && reinterpret_cast<uintptr_t>(dst) % 2 == 0) {
        stretch12Fixed(reinterpret_cast<const uint16_t*>(src), reinterpret_cast<uint16_t*>(dst), n, f.low, f.dMax,
                       f.k, f.fHigh, f.fLow);
        return;
    }
#endif
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
        if (!second) return lsbFirst ? (p[0] | ((p[1] & 0x0Fu) << 8)) : ((p[0] << 4) | (p[1] & 0x0Fu));
        return lsbFirst ? ((p[0] >> 4) | (p[1] << 4)) : ((p[1] << 4) | (p[0] >> 4));
    }
    void write(unsigned char* p, bool second, unsigned v) const {
        if (!second) {
            p[0] = static_cast<unsigned char>(lsbFirst ? v : v >> 4);
            p[1] = static_cast<unsigned char>((p[1] & 0xF0u) | (lsbFirst ? v >> 8 : v & 0x0Fu));
        } else {
            p[0] = static_cast<unsigned char>((p[0] & 0x0Fu) | ((v & 0x0Fu) << 4));
            p[1] = static_cast<unsigned char>(v >> 4);
        }
    }
};

void stretchPacked(unsigned char* buf, size_t width, size_t height, PfncFormat_ format, unsigned low,
                   unsigned high) {
    // Packed pairs go through the table: unpacking into 16-bit lanes and packing back costs
    // more than the lookups it would save.
    const PackedLayout layout{format == Mono12p};
    const std::vector<uint16_t> table = stretchTable(4096, low, high, 4095.0);
    if (width % 2 == 0) {
        // Even widths: every row starts a pair, so the image is one stream of pairs.
        const size_t pairs = width * height / 2;
        for (size_t i = 0; i < pairs; ++i) {
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
