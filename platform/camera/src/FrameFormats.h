// The pixel formats the virtual camera produces and how each is laid out in a frame.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ZTI {
namespace camera {

/// What one pixel of the sensor records.
enum class Sensor {
    Mono,     ///< one value per pixel (luma, or the polarizer mosaic)
    BayerRG,  ///< colour filter cell R G / G B
    BayerGR,  ///< G R / B G
    BayerGB,  ///< G B / R G
    BayerBG,  ///< B G / G R
    Colour,   ///< three channels per pixel
};

/// How the recorded values are stored.
enum class Encoding {
    Sample8,       ///< one byte per pixel
    Sample16,      ///< one little-endian 16-bit word per pixel, `bits` significant
    Group10,       ///< 10-bit stream, five-byte groups of four pixels, MSB first
    PairLsb12,     ///< 12-bit stream, three-byte pairs, least significant bits first
    PairPacked12,  ///< 12-bit stream, three-byte pairs, high bytes apart, low nibbles shared
    LsbFirst10,    ///< 10-bit stream, five-byte groups of four pixels, least significant bits first
    PairPacked10,  ///< 10-bit stream in 12-bit pairs: high bytes apart, low bit pairs in byte 1
    Rgb,           ///< R G B bytes
    Bgr,           ///< B G R bytes
    Rgba,          ///< R G B A bytes, A = 255
    Bgra,          ///< B G R A bytes, A = 255
    Uyvy,          ///< 4:2:2, U Y0 V Y1 per pixel pair
    Yuyv,          ///< 4:2:2, Y0 U Y1 V per pixel pair
    Uyv,           ///< 4:4:4, U Y V
    Ycbcr,         ///< 4:4:4, Y Cb Cr
};

struct FrameFormat {
    uint32_t code;
    const char* name;
    Sensor sensor;
    Encoding encoding;
    unsigned bits;  ///< significant bits of one stored value
};

/// The row of `code`, or null when the camera does not produce it.
const FrameFormat* findFrameFormat(uint32_t code);

/// The row of `code` as the camera encodes it with the standards' published layouts when
/// `published` is true (differs for the 10-bit packed codes only), else findFrameFormat(code).
const FrameFormat* findFrameFormat(uint32_t code, bool published);

/// True for the encodings whose pixels form one continuous bit stream.
bool isPackedStream(Encoding encoding);
/// True for the 4:2:2 encodings, which share chroma between pixel pairs.
bool isChromaShared(Encoding encoding);
/// Values per pixel as the ground truth numbers them: 1, 3 (RGB, YUV) or 4 (with alpha).
unsigned channelCount(Encoding encoding);
/// Bytes of one row's pixels for the encodings that have rows (not the packed streams).
uint64_t rowPixelBytes(Encoding encoding, uint32_t width);
/// Bytes of a whole frame: stride x height, or the packed stream rounded up to a byte.
uint64_t frameByteCount(const FrameFormat& format, uint32_t width, uint32_t height,
                        uint32_t paddingX);

}  // namespace camera
}  // namespace ZTI
