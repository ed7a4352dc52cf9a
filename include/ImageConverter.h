// Converter objects: one stateless class per family of pixel-format conversions.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "PixelFormat.h"
#include "ZTExport.h"
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
class ZTI_API IImageConverter {
public:
    virtual ~IImageConverter() {}
    /// Writes `src` converted into `dst`, which must already have the destination format and
    /// the source's width and height (ZTImageFormatConverter ensures this). Returns nothing;
    /// OpenCV errors propagate as cv::Exception and may leave `dst` partly written. An image
    /// whose memory is shorter than its rows raises cv::Exception before anything is read or
    /// written.
    virtual void convert(ZTImage& dst, const ZTImage& src) = 0;
};

/// The demosaic that Bayer conversions use: the library's documented Hamilton-Adams (the
/// default), or the residual-interpolation demosaic `QualityDemosaic`, which rebuilds detail
/// and colour edges more faithfully at many times the cost.
enum class DemosaicMethod { HamiltonAdams, Quality };

/// One OpenCV colour conversion, with the code the library assigns to the (destination,
/// source) pair. Aborts when the pair has no code (a programming error).
class ZTI_API DefaultConverter : public IImageConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};

/// Equal formats: a deep copy of the source (image assignment).
class ZTI_API CopyConverter : public IImageConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};

/// YUV 4:4:4 (YUV8_UYV, YCbCr8) to RGB8; the base conversion, not overridden.
class ZTI_API Yuv2Rgb : public DefaultConverter {};
/// RGBa8 and BGRa8 to RGB8, dropping alpha; the base conversion, not overridden.
class ZTI_API RGBA2Rgb : public DefaultConverter {};

/// BGR8 to RGB8 (channels 0 and 2 swapped).
class ZTI_API BGR2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 UYVY to Mono8 (luma).
class ZTI_API Uyvy2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 UYVY to RGB8.
class ZTI_API Uyvy2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 YUYV (YUV422_8, YCbCr422_8) to Mono8 (luma).
class ZTI_API Yuyv2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:2:2 YUYV to RGB8.
class ZTI_API Yuyv2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// YUV 4:4:4 to Mono8 through an RGB8 temporary.
class ZTI_API Yuv2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// Mono8/10/12/16 to another mono depth by the full-range linear scale
/// (2^d - 1) / (2^s - 1), saturated. OpenCV multiplies in single precision and rounds half to
/// even, so a product that lies just above a half can round down: Mono12 to Mono16 gives
/// round(v x 65535 / 4095) - 1 for v = 1229, 1775, 2321, 2867, 3413, 3959 and 3960.
class ZTI_API Mono2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// RGB10/12/16 to another RGB depth by the full-range linear scale.
class ZTI_API RGB2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// Mono to RGB: grey replicated into three channels, then scaled when the depths differ.
class ZTI_API Mono2Rgb : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};
/// RGB or BGR to mono: OpenCV's grey weights, then scaled when the depths differ.
class ZTI_API RGB2Mono : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override;
};

/// A conversion that demosaics. The method is an argument of each call, not a member, so the
/// object stays stateless; `convert(dst, src)` uses Hamilton-Adams.
class ZTI_API DemosaicingConverter : public DefaultConverter {
public:
    void convert(ZTImage& dst, const ZTImage& src) override {
        convert(dst, src, DemosaicMethod::HamiltonAdams);
    }
    /// As `convert(dst, src)`, demosaicing with `method`; the scaling to the destination depth
    /// is the same for every method.
    virtual void convert(ZTImage& dst, const ZTImage& src, DemosaicMethod method) = 0;
};

/// Bayer mosaics (four patterns, 8 to 16 bits) to RGB: Hamilton-Adams demosaicing (or another
/// `DemosaicMethod`) on 16-bit samples, then one linear scale to the destination depth. By
/// default a same-depth conversion is exact and a depth change stretches to the frame's own
/// range when that range exceeds a quarter of the input scale (gain at most 4). The environment
/// variable ZT_HIST_RANGE_POLICY, read on every call, selects "raw" (never stretch) or
/// "normalize" (also stretch same-depth frames whose range lies in the band (0.25, 0.9) of the
/// scale, or that exceed it).
class ZTI_API Bayer2Rgb : public DemosaicingConverter {
public:
    using DemosaicingConverter::convert;
    void convert(ZTImage& dst, const ZTImage& src, DemosaicMethod method) override;
};
/// Bayer mosaics to mono: demosaiced, turned to grey, and stretched to the frame's range when
/// that exceeds a quarter of the input scale (gain at most 4), whatever the depths.
class ZTI_API Bayer2Mono : public DemosaicingConverter {
public:
    using DemosaicingConverter::convert;
    void convert(ZTImage& dst, const ZTImage& src, DemosaicMethod method) override;
};

}  // namespace ZTI

/// A new, default-constructed converter of class T, owned by the caller.
template <typename T>
std::unique_ptr<ZTI::IImageConverter> createConverterPtr() {
    return std::unique_ptr<ZTI::IImageConverter>(new T());
}
