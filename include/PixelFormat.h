// GenICam PFNC pixel-format codes and the size rules derived from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "PixelFormatList.h"
#include "ZTExport.h"

/// A GenICam PFNC pixel-format code; 0 means no format. Plain codes such as 0x01080001
/// may be passed wherever a format is expected.
using PfncFormat_ = uint32_t;

namespace ZTI {

using PfncFormat_ = ::PfncFormat_;
/// Another name of PfncFormat_, used in the conversion interfaces.
using PIXEL_TYPE = PfncFormat_;

/// Named PFNC codes, e.g. ZTI::Mono8 == 0x01080001.
#define ZT_PFNC_CONSTANT(name, code, bits) constexpr PfncFormat_ name = code##u;
#define ZT_PFNC_UNNAMED(code, bits)
ZT_PFNC_FORMAT_LIST(ZT_PFNC_CONSTANT, ZT_PFNC_UNNAMED)
#undef ZT_PFNC_CONSTANT
#undef ZT_PFNC_UNNAMED

/// Bits one pixel occupies in memory: bits 23..16 of the code.
constexpr unsigned int getBitsPerPixel(PfncFormat_ format) { return (format >> 16) & 0xFFu; }

/// Whole bytes one pixel occupies, rounded down (a 12-bit packed format gives 1): bits 23..19.
constexpr unsigned int getBytesPerPixel(PfncFormat_ format) { return (format >> 19) & 0x1Fu; }

/// Significant bits of one channel (Mono12 gives 12, RGB8 gives 8); 0 for codes the library
/// does not know. Pure; callable from any thread.
ZTI_API unsigned int getBitsPerChannel(PfncFormat_ format);

/// Byte count of a tightly packed image (no row padding), computed as the library allocates:
/// ((bitsPerPixel * ((width * height) mod 2^32)) mod 2^32) / 8, so very large sizes wrap.
ZTI_API uint64_t getPackedByteCount(PfncFormat_ format, uint32_t width, uint32_t height);

/// Bytes from one row to the next: 0 when format is 0, else
/// (bytesPerPixel * width) mod 2^32 + paddingX.
ZTI_API size_t getRowStride(PfncFormat_ format, uint32_t width, int64_t paddingX);

/// Bytes the rows of an image span from its first byte: every row but the last at `stride`,
/// the last one only its `rowBytes` of pixels, without padding. 0 when `height` or `rowBytes`
/// is 0; UINT64_MAX when the sum does not fit 64 bits. Pure; callable from any thread.
ZTI_API uint64_t getSpannedByteCount(uint64_t rowBytes, uint64_t stride, uint64_t height);

/// How the samples of a format lie in memory.
enum class PixelPacking : uint8_t {
    None,         ///< every sample in its own 8- or 16-bit container (Mono8, Mono12, RGB8, YUV422_8, ...)
    LsbFirst,     ///< PFNC "p" codes: samples back to back, least significant bits first
                  ///< (Mono10p, Mono12p, BayerRG12p, RGB10p, Mono1p, ...)
    PackedPairs,  ///< GigE Vision "Packed" codes: two pixels in three bytes (Mono10Packed,
                  ///< Mono12Packed, BayerRG12Packed, ...)
    Other,        ///< layouts the library does not read (planar, 5-6-5, V1Packed, 10p32, 4:1:1, ...)
};

/// Everything the library knows about one pixel format: plain values, valid for the life of
/// the process. Obtained from getPixelFormatInfo or getPixelFormats; never written.
struct PixelFormatInfo {
    const char* name;            ///< PFNC name; null for a code the library knows only by number
    PfncFormat_ code;            ///< the PFNC code
    unsigned int bitsPerPixel;   ///< bits one pixel occupies in memory: bits 23..16 of the code
    unsigned int bitsPerChannel; ///< significant bits of one channel, as getBitsPerChannel
    unsigned int channels;       ///< channels of the matrix laid over such an image: 1 for mono
                                 ///< and Bayer, 2 for YUV 4:2:2, 3 for RGB, BGR and YUV 4:4:4,
                                 ///< 4 with alpha
    unsigned int containerBits;  ///< bits one sample occupies: 8 or 16 for unpacked layouts, the
                                 ///< sample depth for packed ones, 0 for layouts not read
    PixelPacking packing;        ///< how the samples lie in memory
    const char* bayerPattern;    ///< colour-filter pattern read from the top-left 2 x 2 cell
                                 ///< ("RGGB", "GRBG", "GBRG", "BGGR"), or null
    PfncFormat_ unpackedFormat;  ///< the format attachGrabResult makes of a frame: the code
                                 ///< itself when attached as it is, the 16-bit format when
                                 ///< unpacked, 0 when unusable
    bool isColour;               ///< holds colour: colour formats and Bayer mosaics
};

/// The description of `code`, or null when the library does not know the code. Pure;
/// callable from any thread.
ZTI_API const PixelFormatInfo* getPixelFormatInfo(PfncFormat_ code);

/// The table of known formats, in the order of the library's format list.
struct PixelFormatRange {
    const PixelFormatInfo* first;
    const PixelFormatInfo* last;
    const PixelFormatInfo* begin() const { return first; }
    const PixelFormatInfo* end() const { return last; }
    size_t size() const { return static_cast<size_t>(last - first); }
};
ZTI_API PixelFormatRange getPixelFormats();

/// PFNC name of a code, or null when the code has no name in the library.
ZTI_API const char* getPixelFormatName(PfncFormat_ format);

/// How messages name a format: its PFNC name, or its code as "0x" and eight hexadecimal digits
/// when it has no name ("BayerRG12p", "0x0104010D").
ZTI_API std::string getPixelFormatLabel(PfncFormat_ format);

/// Code of a PFNC name, compared without regard to case ("bayerrg12p" finds BayerRG12p);
/// 0 when the name is unknown.
ZTI_API PfncFormat_ findPixelFormat(const char* name);

}  // namespace ZTI
