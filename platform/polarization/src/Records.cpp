#include "Records.h"

#include <cstdint>
#include <utility>

namespace pol {
namespace detail {

bool isMosaic(const ImageInfo& in) {
    return in.data != nullptr && in.kind == kMono8 && in.width >= 2 && in.height >= 2 &&
           in.width % 2 == 0 && in.height % 2 == 0 && in.stride >= in.width;
}

bool isPlane(const ImageInfo& in, int kind, int bytesPerPixel) {
    if (in.data == nullptr || in.kind != kind || in.width < 1 || in.height < 1) return false;
    // Row byte counts in 64 bits: a huge width must not wrap into an acceptable stride.
    if (in.stride < static_cast<int64_t>(in.width) * bytesPerPixel) return false;
    if (bytesPerPixel == 4) {
        // Rows are read as float arrays, which needs float alignment on every row.
        if (reinterpret_cast<uintptr_t>(in.data) % alignof(float) != 0) return false;
        if (in.stride % static_cast<int>(sizeof(float)) != 0) return false;
    }
    return true;
}

void clear(ImageInfo& out) {
    out.width = 0;
    out.height = 0;
    out.stride = 0;
    out.data = nullptr;
    out.kind = kMono8;
    out.matrix.release();
}

void publish(cv::Mat&& matrix, int kind, ImageInfo& out) {
    out.width = matrix.cols;
    out.height = matrix.rows;
    out.stride = static_cast<int>(matrix.step[0]);
    out.data = matrix.data;
    out.kind = kind;
    out.matrix = std::move(matrix);
}

}  // namespace detail
}  // namespace pol
