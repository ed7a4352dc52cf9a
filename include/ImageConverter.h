// Converter objects: one stateless class per family of pixel-format conversions.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "PixelFormat.h"
#include "ZTImage.h"

namespace ZTI {

/// A pair of formats in the conversion machinery, always (destination, source).
using FormatPair = std::pair<PIXEL_TYPE, PIXEL_TYPE>;

/// Orders format pairs by destination, then source, each compared as a signed 32-bit value.
struct FormatPairLess {
    bool operator()(const FormatPair& a, const FormatPair& b) const {
        const auto key = [](const FormatPair& p) {
            return std::make_pair(static_cast<int32_t>(p.first), static_cast<int32_t>(p.second));
        };
        return key(a) < key(b);
    }
};

/// A conversion from one pixel format to another. Converters carry no state; one object may
/// serve several threads as long as each call gets distinct images.
class IImageConverter {
public:
    virtual ~IImageConverter() {}
    /// Writes `src` converted into `dst`, which must already have the destination format and
    /// the source's width and height (ZTImageFormatConverter ensures this). Returns nothing;
    /// OpenCV errors propagate as cv::Exception and may leave `dst` partly written. An image
    /// whose memory is shorter than its rows raises cv::Exception before anything is read or
    /// written.
    virtual void convert(ZTImage& dst, const ZTImage& src) = 0;
};

/// One OpenCV colour conversion, with the code the library assigns to the (destination,
/// source) pair. Aborts when the pair has no code (a programming error).
class DefaultConverter : public IImageConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};

/// Equal formats: a deep copy of the source (image assignment).
class CopyConverter : public IImageConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};

/// YUV 4:4:4 (YUV8_UYV, YCbCr8) to RGB8; the base conversion, not overridden.
class Yuv2Rgb : public DefaultConverter {};
/// RGBa8 and BGRa8 to RGB8, dropping alpha; the base conversion, not overridden.
class RGBA2Rgb : public DefaultConverter {};

/// BGR8 to RGB8 (channels 0 and 2 swapped).
class BGR2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 UYVY to Mono8 (luma).
class Uyvy2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 UYVY to RGB8.
class Uyvy2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 YUYV (YUV422_8, YCbCr422_8) to Mono8 (luma).
class Yuyv2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 YUYV to RGB8.
class Yuyv2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:4:4 to Mono8 through an RGB8 temporary.
class Yuv2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// Mono8/10/12/16 to another mono depth by the full-range linear scale
/// (2^d - 1) / (2^s - 1), saturated. OpenCV multiplies in single precision and rounds half to
/// even, so a product that lies just above a half can round down: Mono12 to Mono16 gives
/// round(v x 65535 / 4095) - 1 for v = 1229, 1775, 2321, 2867, 3413, 3959 and 3960.
class Mono2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// RGB10/12/16 to another RGB depth by the full-range linear scale.
class RGB2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// Mono to RGB: grey replicated into three channels, then scaled when the depths differ.
class Mono2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// RGB or BGR to mono: OpenCV's grey weights, then scaled when the depths differ.
class RGB2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};

/// Bayer mosaics (four patterns, 8 to 16 bits) to RGB: Hamilton-Adams demosaicing on 16-bit
/// samples, then one linear scale to the destination depth. By default a same-depth conversion
/// is exact and a depth change stretches to the frame's own range when that range exceeds a
/// quarter of the input scale (gain at most 4). The environment variable ZT_HIST_RANGE_POLICY,
/// read on every call, selects "raw" (never stretch) or "normalize" (also stretch same-depth
/// frames whose range lies in the band (0.25, 0.9) of the scale, or that exceed it).
class Bayer2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// Bayer mosaics to mono: demosaiced, turned to grey, and stretched to the frame's range when
/// that exceeds a quarter of the input scale (gain at most 4), whatever the depths.
class Bayer2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};

}  // namespace ZTI

/// A new, default-constructed converter of class T, owned by the caller.
template <typename T>
std::unique_ptr<ZTI::IImageConverter> createConverterPtr() {
    return std::unique_ptr<ZTI::IImageConverter>(new T());
}
