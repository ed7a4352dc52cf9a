// One-step colour conversions: the base converter, the copy, and BGR to RGB.
#include <opencv2/imgproc.hpp>

#include "ColourConversion.h"
#include "ImageConverter.h"
#include "MatrixBridge.h"

namespace ZTI {

void convertWithColourCode(ZTImage& dst, const ZTImage& src) {
    const cv::Mat source = sourceView(src);
    cv::Mat destination = destinationView(dst);
    // Looked up only once both views exist; a pair without a code aborts here.
    const int code = get_cv_cvt_type(dst.getPixelType(), src.getPixelType());
    // The destination view already has the size and type cvtColor produces, so the result
    // lands in the image's memory; nothing is copied back.
    cv::cvtColor(source, destination, code, 0);
}

void DefaultConverter::convert(ZTImage& dst, const ZTImage& src) { convertWithColourCode(dst, src); }

void CopyConverter::convert(ZTImage& dst, const ZTImage& src) { dst = src; }

void BGR2Rgb::convert(ZTImage& dst, const ZTImage& src) { convertWithColourCode(dst, src); }

}  // namespace ZTI
