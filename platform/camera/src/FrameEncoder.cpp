#include "FrameEncoder.h"

#include <cstddef>
#include <cstring>

#include "CameraCheck.h"

namespace ZTI {
namespace camera {
namespace {

constexpr unsigned char kPaddingByte = 0xA5;

// Fills `row` with the 16-bit values the sensor records along sensor row y: the canvas's
// mono plane, or for a Bayer sensor the channel each pixel's filter passes.
void sensorRow(const FrameFormat& format, const SceneCanvas& canvas, const SensorWindow& window,
               uint32_t y, uint16_t* row) {
    const size_t first = (size_t{y} + window.top) * canvas.width + window.left;
    if (format.sensor == Sensor::Mono) {
        std::memcpy(row, &canvas.mono16[first], size_t{window.width} * sizeof(uint16_t));
        return;
    }
    const uint16_t* rgb = &canvas.rgb16[3 * first];
    const unsigned channel[2] = {bayerChannel(format.sensor, 0, y),
                                 bayerChannel(format.sensor, 1, y)};
    for (uint32_t x = 0; x < window.width; ++x) row[x] = rgb[3 * x + channel[x & 1]];
}

// Packs n samples (already cut to 10 bits) into five-byte groups of four, most significant
// bits first. A last partial group of r pixels takes r + 1 bytes.
void packGroups10(const uint16_t* p, size_t n, unsigned char* out) {
    size_t i = 0;
    for (; i + 4 <= n; i += 4, out += 5) {
        out[0] = static_cast<unsigned char>(p[i] >> 2);
        out[1] = static_cast<unsigned char>((p[i] & 0x03) << 6 | p[i + 1] >> 4);
        out[2] = static_cast<unsigned char>((p[i + 1] & 0x0F) << 4 | p[i + 2] >> 6);
        out[3] = static_cast<unsigned char>((p[i + 2] & 0x3F) << 2 | p[i + 3] >> 8);
        out[4] = static_cast<unsigned char>(p[i + 3]);
    }
    const size_t rest = n - i;
    if (rest == 0) return;
    uint16_t last[4] = {0, 0, 0, 0};
    for (size_t k = 0; k < rest; ++k) last[k] = p[i + k];
    unsigned char group[5];
    packGroups10(last, 4, group);
    std::memcpy(out, group, rest + 1);
}

// Packs n 12-bit samples into three-byte pairs, least significant bits first; an odd last
// pixel takes two bytes.
void packPairsLsb12(const uint16_t* p, size_t n, unsigned char* out) {
    size_t i = 0;
    for (; i + 2 <= n; i += 2, out += 3) {
        out[0] = static_cast<unsigned char>(p[i]);
        out[1] = static_cast<unsigned char>(p[i] >> 8 | (p[i + 1] & 0x0F) << 4);
        out[2] = static_cast<unsigned char>(p[i + 1] >> 4);
    }
    if (i < n) {
        out[0] = static_cast<unsigned char>(p[i]);
        out[1] = static_cast<unsigned char>(p[i] >> 8);
    }
}

// Packs n 12-bit samples into three-byte pairs holding the high eight bits of each pixel in
// bytes 0 and 2 and both low nibbles in byte 1, the first pixel's in the low half.
void packPairsPacked12(const uint16_t* p, size_t n, unsigned char* out) {
    size_t i = 0;
    for (; i + 2 <= n; i += 2, out += 3) {
        out[0] = static_cast<unsigned char>(p[i] >> 4);
        out[1] = static_cast<unsigned char>((p[i] & 0x0F) | (p[i + 1] & 0x0F) << 4);
        out[2] = static_cast<unsigned char>(p[i + 1] >> 4);
    }
    if (i < n) {
        out[0] = static_cast<unsigned char>(p[i] >> 4);
        out[1] = static_cast<unsigned char>(p[i] & 0x0F);
    }
}

// Packs n samples (already cut to 10 bits) back to back, least significant bits first: four
// pixels in five bytes. A last partial group of r pixels takes the ceil(10 r / 8) bytes it
// touches.
void packLsbFirst10(const uint16_t* p, size_t n, unsigned char* out) {
    const size_t bytes = (10 * n + 7) / 8;
    std::memset(out, 0, bytes);
    for (size_t i = 0; i < n; ++i) {
        const size_t bit = 10 * i;
        const unsigned v = unsigned{p[i]} << (bit % 8);
        out[bit / 8] = static_cast<unsigned char>(out[bit / 8] | v);
        out[bit / 8 + 1] = static_cast<unsigned char>(out[bit / 8 + 1] | v >> 8);
    }
}

// Packs n 10-bit samples into three-byte pairs: the high eight bits of each pixel in bytes 0
// and 2, the low two bits of the first in bits 1..0 of byte 1 and of the second in bits 5..4.
// An odd last pixel takes two bytes.
void packPairsPacked10(const uint16_t* p, size_t n, unsigned char* out) {
    size_t i = 0;
    for (; i + 2 <= n; i += 2, out += 3) {
        out[0] = static_cast<unsigned char>(p[i] >> 2);
        out[1] = static_cast<unsigned char>((p[i] & 0x03) | (p[i + 1] & 0x03) << 4);
        out[2] = static_cast<unsigned char>(p[i + 1] >> 2);
    }
    if (i < n) {
        out[0] = static_cast<unsigned char>(p[i] >> 2);
        out[1] = static_cast<unsigned char>(p[i] & 0x03);
    }
}

void encodePackedStream(const FrameFormat& format, const SceneCanvas& canvas,
                        const SensorWindow& window, unsigned char* out,
                        std::vector<uint16_t>& scratch) {
    const size_t width = window.width, n = width * window.height;
    scratch.resize(n);
    const unsigned shift = 16 - format.bits;
    for (uint32_t y = 0; y < window.height; ++y) {
        uint16_t* row = &scratch[y * width];
        sensorRow(format, canvas, window, y, row);
        for (size_t x = 0; x < width; ++x) row[x] = static_cast<uint16_t>(row[x] >> shift);
    }
    switch (format.encoding) {
        case Encoding::Group10: packGroups10(scratch.data(), n, out); break;
        case Encoding::PairLsb12: packPairsLsb12(scratch.data(), n, out); break;
        case Encoding::PairPacked12: packPairsPacked12(scratch.data(), n, out); break;
        case Encoding::LsbFirst10: packLsbFirst10(scratch.data(), n, out); break;
        case Encoding::PairPacked10: packPairsPacked10(scratch.data(), n, out); break;
        default: ZT_CAMERA_CHECK(false);
    }
}

void encodeSampleRows(const FrameFormat& format, const SceneCanvas& canvas,
                      const SensorWindow& window, unsigned char* out, size_t stride,
                      std::vector<uint16_t>& scratch) {
    scratch.resize(window.width);
    const unsigned shift = 16 - format.bits;
    for (uint32_t y = 0; y < window.height; ++y) {
        sensorRow(format, canvas, window, y, scratch.data());
        unsigned char* row = out + y * stride;
        if (format.encoding == Encoding::Sample8) {
            for (uint32_t x = 0; x < window.width; ++x)
                row[x] = static_cast<unsigned char>(scratch[x] >> 8);
        } else {
            // Little-endian words, whatever the host.
            for (uint32_t x = 0; x < window.width; ++x) {
                const unsigned v = scratch[x] >> shift;
                row[2 * x] = static_cast<unsigned char>(v);
                row[2 * x + 1] = static_cast<unsigned char>(v >> 8);
            }
        }
    }
}

void encodeRgbRows(const FrameFormat& format, const SceneCanvas& canvas,
                   const SensorWindow& window, unsigned char* out, size_t stride) {
    const bool bgr = format.encoding == Encoding::Bgr || format.encoding == Encoding::Bgra;
    const bool alpha = format.encoding == Encoding::Rgba || format.encoding == Encoding::Bgra;
    const unsigned bytes = alpha ? 4 : 3;
    const unsigned first = bgr ? 2 : 0, last = bgr ? 0 : 2;
    for (uint32_t y = 0; y < window.height; ++y) {
        const size_t start = (size_t{y} + window.top) * canvas.width + window.left;
        const uint16_t* rgb = &canvas.rgb16[3 * start];
        unsigned char* row = out + y * stride;
        for (uint32_t x = 0; x < window.width; ++x) {
            unsigned char* px = row + bytes * x;
            px[0] = static_cast<unsigned char>(rgb[3 * x + first] >> 8);
            px[1] = static_cast<unsigned char>(rgb[3 * x + 1] >> 8);
            px[2] = static_cast<unsigned char>(rgb[3 * x + last] >> 8);
            if (alpha) px[3] = 255;
        }
    }
}

void encodeYuvRows(const FrameFormat& format, const SceneCanvas& canvas,
                   const SensorWindow& window, unsigned char* out, size_t stride) {
    for (uint32_t y = 0; y < window.height; ++y) {
        const size_t start = (size_t{y} + window.top) * canvas.width + window.left;
        const uint8_t* ycc = &canvas.ycc8[3 * start];
        unsigned char* row = out + y * stride;
        switch (format.encoding) {
            case Encoding::Ycbcr:
                std::memcpy(row, ycc, 3 * size_t{window.width});
                break;
            case Encoding::Uyv:
                for (uint32_t x = 0; x < window.width; ++x) {
                    row[3 * x] = ycc[3 * x + 1];
                    row[3 * x + 1] = ycc[3 * x];
                    row[3 * x + 2] = ycc[3 * x + 2];
                }
                break;
            case Encoding::Uyvy:
            case Encoding::Yuyv: {
                // Luma positions within the 4-byte pair: U Y V Y or Y U Y V.
                const bool lumaFirst = format.encoding == Encoding::Yuyv;
                const unsigned y0 = lumaFirst ? 0 : 1, u = lumaFirst ? 1 : 0;
                for (uint32_t x = 0; x + 1 < window.width; x += 2) {
                    const uint8_t* a = ycc + 3 * x;
                    unsigned char* px = row + 2 * x;
                    px[y0] = a[0];
                    px[y0 + 2] = a[3];
                    px[u] = static_cast<unsigned char>((a[1] + a[4] + 1) / 2);
                    px[u + 2] = static_cast<unsigned char>((a[2] + a[5] + 1) / 2);
                }
                break;
            }
            default:
                ZT_CAMERA_CHECK(false);
        }
    }
}

}  // namespace

unsigned bayerChannel(Sensor sensor, uint32_t x, uint32_t y) {
    // The 2 x 2 cell row by row, 0 R, 1 G, 2 B.
    static constexpr unsigned char kCells[4][4] = {
        {0, 1, 1, 2},  // RG: R G / G B
        {1, 0, 2, 1},  // GR: G R / B G
        {1, 2, 0, 1},  // GB: G B / R G
        {2, 1, 1, 0},  // BG: B G / G R
    };
    unsigned pattern = 0;
    switch (sensor) {
        case Sensor::BayerRG: pattern = 0; break;
        case Sensor::BayerGR: pattern = 1; break;
        case Sensor::BayerGB: pattern = 2; break;
        case Sensor::BayerBG: pattern = 3; break;
        default: ZT_CAMERA_CHECK(false);
    }
    return kCells[pattern][(y & 1) * 2 + (x & 1)];
}

void encodeFrame(const FrameFormat& format, const SceneCanvas& canvas, const SensorWindow& window,
                 unsigned char* out, std::vector<uint16_t>& scratch) {
    if (isPackedStream(format.encoding)) {
        encodePackedStream(format, canvas, window, out, scratch);
        return;
    }
    const size_t rowBytes = rowPixelBytes(format.encoding, window.width);
    const size_t stride = rowBytes + window.paddingX;
    switch (format.encoding) {
        case Encoding::Sample8:
        case Encoding::Sample16:
            encodeSampleRows(format, canvas, window, out, stride, scratch);
            break;
        case Encoding::Rgb: case Encoding::Bgr: case Encoding::Rgba: case Encoding::Bgra:
            encodeRgbRows(format, canvas, window, out, stride);
            break;
        default:
            encodeYuvRows(format, canvas, window, out, stride);
            break;
    }
    if (window.paddingX != 0)
        for (uint32_t y = 0; y < window.height; ++y)
            std::memset(out + y * stride + rowBytes, kPaddingByte, window.paddingX);
}

}  // namespace camera
}  // namespace ZTI
