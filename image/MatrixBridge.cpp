// The matrix bridge: the element type of a format's matrix, and the bounds of the views laid
// over images (a view may only span memory the image holds, and only whole pixel pairs of
// 4:2:2 images are handed to OpenCV). The colour-code lookup lives beside the route table.
#include <opencv2/core.hpp>

#include <cstdint>
#include <sstream>
#include <string>

#include "ImageConverterFactory.h"
#include "MatrixBridge.h"
#include "ZTImageImpl.h"

namespace ZTI {

int get_cv_mat_type(PIXEL_TYPE fmt) {
    // Only the formats the converters work on have a matrix form; its channels and depth are
    // the format's own.
    if (!isConvertedFormat(fmt)) return -1;
    const PixelFormatInfo* info = getPixelFormatInfo(fmt);
    return get_cv_type(static_cast<int>(info->containerBits), static_cast<int>(info->channels));
}

int channelCount(PIXEL_TYPE fmt) {
    const int type = get_cv_mat_type(fmt);
    return type < 0 ? 0 : CV_MAT_CN(type);
}

int get_cv_type(int bitsPerChannel, int channels) {
    if (channels < 1 || channels > 4) return -1;
    if (bitsPerChannel == 8) return CV_MAKETYPE(CV_8U, channels);
    if (bitsPerChannel >= 9 && bitsPerChannel <= 16) return CV_MAKETYPE(CV_16U, channels);
    return -1;
}

double depthScale(PIXEL_TYPE dst, PIXEL_TYPE src) {
    return fullScale(getBitsPerChannel(dst)) / fullScale(getBitsPerChannel(src));
}

uint64_t viewBytes(const ZTImage& image) {
    const int type = get_cv_mat_type(image.getPixelType());
    if (type < 0) return image.getWidth() == 0 || image.getHeight() == 0 ? 0 : UINT64_MAX;
    // The stride is taken as the image states it, so a padding that made it wrap gives a sum
    // that does not fit and the view is refused.
    return getSpannedByteCount(uint64_t{image.getWidth()} * static_cast<uint64_t>(CV_ELEM_SIZE(type)),
                               image.getStride(), image.getHeight());
}

bool viewFits(const ZTImage& image) { return viewBytes(image) <= readableBytes(image); }

void requireViewFits(const ZTImage& image) {
    if (viewFits(image)) return;
    std::ostringstream message;
    message << getPixelFormatLabel(image.getPixelType()) << " image " << image.getWidth() << " x " << image.getHeight() << " with stride "
            << image.getStride();
    if (get_cv_mat_type(image.getPixelType()) < 0)
        message << " has no matrix form";
    else
        message << " spans " << viewBytes(image) << " bytes, its memory holds " << readableBytes(image);
    CV_Error(cv::Error::StsOutOfRange, message.str());
}

bool hasWholePixelPairs(const ZTImage& image) {
    // The two-channel matrices are the 4:2:2 formats, whose pixel pairs share chroma.
    return channelCount(image.getPixelType()) != 2 || image.getWidth() % 2 == 0;
}

void requireWholePixelPairs(const ZTImage& image) {
    if (hasWholePixelPairs(image)) return;
    CV_Error(cv::Error::StsBadSize, getPixelFormatLabel(image.getPixelType()) + " image of odd width " +
                                        std::to_string(image.getWidth()) + ": its pixels come in pairs");
}

}  // namespace ZTI
