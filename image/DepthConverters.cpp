// Bit-depth and channel-count conversions between mono and RGB images of 8 to 16 bits.
#include <opencv2/imgproc.hpp>

#include "ImageConverter.h"
#include "MatrixBridge.h"

namespace ZTI {
namespace {

// Depth only: one pass straight into the destination, rounded and saturated by OpenCV.
void scaleDepth(ZTImage& dst, const ZTImage& src, int channels) {
    const cv::Mat source = sourceView(src);
    cv::Mat destination = destinationView(dst);
    const double alpha = depthScale(dst.getPixelType(), src.getPixelType());
    const int depth = getBitsPerChannel(dst.getPixelType()) > 8 ? CV_16U : CV_8U;
    source.convertTo(destination, CV_MAKETYPE(depth, channels), alpha, 0.0);
}

// Colour first at the source depth, then depth, through one temporary when they differ.
void convertChannels(ZTImage& dst, const ZTImage& src) {
    const cv::Mat source = sourceView(src);
    cv::Mat destination = destinationView(dst);
    const int code = get_cv_cvt_type(dst.getPixelType(), src.getPixelType());
    if (getBitsPerChannel(src.getPixelType()) == getBitsPerChannel(dst.getPixelType())) {
        cv::cvtColor(source, destination, code, 0);
        return;
    }
    cv::Mat temporary;
    cv::cvtColor(source, temporary, code, 0);
    temporary.convertTo(destination, destination.type(),
                        depthScale(dst.getPixelType(), src.getPixelType()), 0.0);
}

}  // namespace

void Mono2Mono::convert(ZTImage& dst, const ZTImage& src) { scaleDepth(dst, src, 1); }
void RGB2Rgb::convert(ZTImage& dst, const ZTImage& src) { scaleDepth(dst, src, 3); }
void Mono2Rgb::convert(ZTImage& dst, const ZTImage& src) { convertChannels(dst, src); }
void RGB2Mono::convert(ZTImage& dst, const ZTImage& src) { convertChannels(dst, src); }

}  // namespace ZTI
