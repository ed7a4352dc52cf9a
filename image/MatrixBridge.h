// Viewing images as OpenCV matrices, and the lookups behind it.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

#include "ZTImage.h"

namespace ZTI {

/// OpenCV element type of a whole image of format `fmt`, or -1 when it has no matrix form.
int get_cv_mat_type(PIXEL_TYPE fmt);

/// True when some conversion route reads or writes `fmt`: the formats that have a matrix form.
bool isConvertedFormat(PIXEL_TYPE fmt);

/// OpenCV colour-conversion code of the (dst, src) pair. A pair without a code is a
/// programming error: the process aborts.
int get_cv_cvt_type(PIXEL_TYPE dst, PIXEL_TYPE src);

/// True when the colour-conversion table has a code for (dst, src).
bool hasColourCode(PIXEL_TYPE dst, PIXEL_TYPE src);

/// Channels of an image of format `fmt` as a matrix (0 when it has no matrix form).
int channelCount(PIXEL_TYPE fmt);

/// Bytes a matrix view of the image spans: every row but the last at the stride, the last one
/// without its padding. 0 for an empty image; UINT64_MAX when the format has no matrix form or
/// the sum does not fit 64 bits.
uint64_t viewBytes(const ZTImage& image);

/// True when the image's memory (the stated size of a caller's buffer or a frame, the
/// allocation of pool memory) holds every byte of its matrix view.
bool viewFits(const ZTImage& image);

/// Raises cv::Exception (StsOutOfRange), naming the geometry and the memory, when the image's
/// memory does not hold its matrix view.
void requireViewFits(const ZTImage& image);

/// False for a 4:2:2 image (YUV422_8_UYVY, YUV422_8, YCbCr422_8) of odd width: its pixels come
/// in pairs that share chroma, and OpenCV's conversions of a row with half a pair read and
/// write past the row's end. True for every other image.
bool hasWholePixelPairs(const ZTImage& image);

/// Raises cv::Exception (StsBadSize) when hasWholePixelPairs is false.
void requireWholePixelPairs(const ZTImage& image);

/// A matrix over the image's own pixels (rows = height, columns = width, row step = stride),
/// read through the non-detaching accessor. No copy; must not outlive the image. Raises
/// cv::Exception when the image's memory is shorter than the view.
inline cv::Mat sourceView(const ZTImage& image) {
    requireViewFits(image);
    return cv::Mat(static_cast<int>(image.getHeight()), static_cast<int>(image.getWidth()),
                   get_cv_mat_type(image.getPixelType()), image.getBuffer(), image.getStride());
}

/// A writable matrix over the image's pixels (the image gets private memory first). Raises
/// cv::Exception when the image's memory is shorter than the view.
inline cv::Mat destinationView(ZTImage& image) {
    requireViewFits(image);
    return cv::Mat(static_cast<int>(image.getHeight()), static_cast<int>(image.getWidth()),
                   get_cv_mat_type(image.getPixelType()), image.getBuffer(), image.getStride());
}

/// 2^bits - 1, the largest sample of a depth, computed in 32-bit unsigned integers as the
/// library always has (shift counts modulo 32, so 0 and 32 bits give 0).
inline double fullScale(unsigned bits) { return static_cast<double>((1u << (bits & 31u)) - 1u); }

/// Full-range gain between two depths, fullScale(d) / fullScale(s).
double depthScale(PIXEL_TYPE dst, PIXEL_TYPE src);

}  // namespace ZTI
