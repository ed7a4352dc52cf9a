// Single polarizer-angle planes of a mosaic.
#include "Polarization.h"
#include "Records.h"

namespace pol {

namespace {

/// Copies the samples at (2r + dy, 2c + dx) of the mosaic into a packed half-size plane.
void extractPlane(const ImageInfo& in, ImageInfo& out, int dy, int dx) {
    if (!detail::isMosaic(in)) {
        detail::clear(out);
        return;
    }
    const int width = in.width / 2;
    const int height = in.height / 2;
    cv::Mat result(height, width, CV_8UC1);
    for (int r = 0; r < height; ++r) {
        const unsigned char* __restrict src = detail::rowOf(in, 2 * r + dy) + dx;
        unsigned char* __restrict dst = result.ptr(r);
        for (int c = 0; c < width; ++c) dst[c] = src[2 * c];
    }
    detail::publish(std::move(result), kMono8, out);
}

}  // namespace

void ExtractPolarQuadrantI0(const ImageInfo& in, ImageInfo& out) { extractPlane(in, out, 1, 1); }
void ExtractPolarQuadrantI45(const ImageInfo& in, ImageInfo& out) { extractPlane(in, out, 0, 1); }
void ExtractPolarQuadrantI90(const ImageInfo& in, ImageInfo& out) { extractPlane(in, out, 0, 0); }
void ExtractPolarQuadrantI135(const ImageInfo& in, ImageInfo& out) { extractPlane(in, out, 1, 0); }

}  // namespace pol
