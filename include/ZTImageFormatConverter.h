// The front end of pixel-format conversion.
#pragma once

#include <map>
#include <memory>

#include "ImageConverter.h"
#include "ZTExport.h"

namespace ZTI {

/// Converts images into one output format. Remembers the converter of each (destination,
/// source) pair it has used, and pairs that have none, so a stream of frames creates no
/// converter after the first. One object must be used by one thread at a time.
class ZTI_API ZTImageFormatConverter {
public:
    /// Output format 0 (none) and an empty cache.
    ZTImageFormatConverter();

    PIXEL_TYPE getOutputFormat() const;

    /// Sets the format `convert` produces. Any value is accepted except the formats the
    /// library never produces as output: the four 8-bit Bayer formats, YUV422_8_UYVY and
    /// YUV422_8, which print "Invalid output format." and abort (a programming error).
    void setOutputFormat(PIXEL_TYPE fmt);

    /// Converts `src` into `dst` in the output format. `dst` is reset to the output format and
    /// the source's size only when it differs, so a stream into the same destination reuses
    /// its memory. Returns 0 on success (equal formats give a deep copy; an empty source gives
    /// an empty destination), -1 when no conversion exists for the pair or when `src` or `dst`
    /// has less memory than its rows span (stride x (height - 1) plus one row: a caller's
    /// buffer or a camera frame stated smaller, an invalid image, a size whose byte count
    /// wrapped), or when `src` is a 4:2:2 image of odd width; `dst` then has the output
    /// format and the source's size with undefined contents. OpenCV errors (such as a row
    /// padding that splits a 16-bit sample) pass through as cv::Exception.
    int convert(ZTImage& dst, const ZTImage& src);

    /// Chooses the demosaic of every later Bayer conversion of this object (to RGB and to
    /// mono); the scaling to the destination depth stays the same. The default,
    /// `DemosaicMethod::HamiltonAdams`, gives the documented results.
    void setDemosaicMethod(DemosaicMethod method);
    DemosaicMethod demosaicMethod() const;

private:
    std::map<FormatPair, std::shared_ptr<IImageConverter>, FormatPairLess> converterCache_;
    PIXEL_TYPE outputFormat_ = 0;
    DemosaicMethod demosaicMethod_ = DemosaicMethod::HamiltonAdams;
};

}  // namespace ZTI
