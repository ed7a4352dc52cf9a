// YUV 4:2:2 and 4:4:4 frames to RGB8 and Mono8.
#include <opencv2/imgproc.hpp>

#include "ColourConversion.h"
#include "ImageConverter.h"
#include "MatrixBridge.h"

namespace ZTI {

namespace {

// 4:2:2 rows of odd width end in half a pair, which OpenCV would read and write past.
void convert422(ZTImage& dst, const ZTImage& src) {
    requireWholePixelPairs(src);
    convertWithColourCode(dst, src);
}

}  // namespace

void Uyvy2Mono::convert(ZTImage& dst, const ZTImage& src) { convert422(dst, src); }
void Uyvy2Rgb::convert(ZTImage& dst, const ZTImage& src) { convert422(dst, src); }
void Yuyv2Mono::convert(ZTImage& dst, const ZTImage& src) { convert422(dst, src); }
void Yuyv2Rgb::convert(ZTImage& dst, const ZTImage& src) { convert422(dst, src); }

void Yuv2Mono::convert(ZTImage& dst, const ZTImage& src) {
    const cv::Mat source = sourceView(src);
    cv::Mat destination = destinationView(dst);
    cv::Mat rgb;
    // Through the RGB8 conversion of the same source, then to grey with the BGR weights.
    cv::cvtColor(source, rgb, get_cv_cvt_type(RGB8, src.getPixelType()), 0);
    cv::cvtColor(rgb, destination, cv::COLOR_BGR2GRAY, 0);
}

}  // namespace ZTI
