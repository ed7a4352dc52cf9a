// Viewing images as OpenCV matrices, and the lookups behind it.
#pragma once

#include <opencv2/core.hpp>

#include "ZTImage.h"

namespace ZTI {

/// OpenCV element type of a whole image of format `fmt`, or -1 when it has no matrix form.
int get_cv_mat_type(PIXEL_TYPE fmt);

/// OpenCV colour-conversion code of the (dst, src) pair. A pair without a code is a
/// programming error: the process aborts.
int get_cv_cvt_type(PIXEL_TYPE dst, PIXEL_TYPE src);

/// True when the colour-conversion table has a code for (dst, src).
bool hasColourCode(PIXEL_TYPE dst, PIXEL_TYPE src);

/// Channels of an image of format `fmt` as a matrix (0 when it has no matrix form).
int channelCount(PIXEL_TYPE fmt);

/// A matrix over the image's own pixels (rows = height, columns = width, row step = stride),
/// read through the non-detaching accessor. No copy; must not outlive the image.
inline cv::Mat sourceView(const ZTImage& image) {
    return cv::Mat(static_cast<int>(image.getHeight()), static_cast<int>(image.getWidth()),
                   get_cv_mat_type(image.getPixelType()), image.getBuffer(), image.getStride());
}

/// A writable matrix over the image's pixels (the image gets private memory first).
inline cv::Mat destinationView(ZTImage& image) {
    return cv::Mat(static_cast<int>(image.getHeight()), static_cast<int>(image.getWidth()),
                   get_cv_mat_type(image.getPixelType()), image.getBuffer(), image.getStride());
}

/// Full-range gain between two depths, (2^d - 1) / (2^s - 1), computed in 32-bit integers
/// as the library always has (shift counts modulo 32, maxima read as signed).
double depthScale(PIXEL_TYPE dst, PIXEL_TYPE src);

}  // namespace ZTI
