// Bounds of the matrix views laid over images: a view may only span memory the image holds, and
// only whole pixel pairs of 4:2:2 images are handed to OpenCV.
#include <opencv2/core.hpp>

#include <cstdint>
#include <sstream>
#include <string>

#include "MatrixBridge.h"
#include "ZTImageImpl.h"

namespace ZTI {

uint64_t viewBytes(const ZTImage& image) {
    const uint64_t width = image.getWidth(), height = image.getHeight();
    if (width == 0 || height == 0) return 0;
    const int type = get_cv_mat_type(image.getPixelType());
    if (type < 0) return UINT64_MAX;
    // Every row but the last at the stride, the last one without its padding. The stride is
    // taken as the image states it, so a padding that made it wrap gives a sum that does not
    // fit and the view is refused.
    uint64_t rows = 0, total = 0;
    if (__builtin_mul_overflow(height - 1, static_cast<uint64_t>(image.getStride()), &rows) ||
        __builtin_add_overflow(rows, width * static_cast<uint64_t>(CV_ELEM_SIZE(type)), &total))
        return UINT64_MAX;
    return total;
}

bool viewFits(const ZTImage& image) { return viewBytes(image) <= readableBytes(image); }

void requireViewFits(const ZTImage& image) {
    if (viewFits(image)) return;
    const char* name = getPixelFormatName(image.getPixelType());
    std::ostringstream message;
    if (name != nullptr) message << name;
    else message << "pixel format 0x" << std::hex << image.getPixelType() << std::dec;
    message << " image " << image.getWidth() << " x " << image.getHeight() << " with stride "
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
    CV_Error(cv::Error::StsBadSize, std::string(getPixelFormatName(image.getPixelType())) + " image of odd width " +
                                        std::to_string(image.getWidth()) + ": its pixels come in pairs");
}

}  // namespace ZTI
