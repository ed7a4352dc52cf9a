// Checks of input records and construction of output records, shared by every product.
#pragma once

#include <cstddef>

#include "Polarization.h"

namespace pol {
namespace detail {

/// True when `in` describes an 8-bit polarizer mosaic this library can read: data set, kind
/// kMono8, even width and height of at least 2, and a stride of at least one row.
bool isMosaic(const ImageInfo& in);

/// True when `in` describes `kind` pixels of `bytesPerPixel` bytes each (4 means float, which
/// must then be aligned for float access), at least 1 x 1, with a stride of at least one row.
bool isPlane(const ImageInfo& in, int kind, int bytesPerPixel);

/// Makes `out` the empty record that reports an unusable input.
void clear(ImageInfo& out);

/// Makes `out` describe `matrix`, which it takes over, as an image of `kind`: width and
/// height in pixels from the matrix's columns and rows, stride from its row step.
void publish(cv::Mat&& matrix, int kind, ImageInfo& out);

/// First byte of row `y` of an input record.
inline const unsigned char* rowOf(const ImageInfo& in, int y) {
    return in.data + static_cast<std::ptrdiff_t>(y) * in.stride;
}

}  // namespace detail
}  // namespace pol
