// Scaling of float products to 8 bits.
#include <cstring>

#include "FastMath.h"
#include "Polarization.h"
#include "Records.h"

namespace pol {

namespace {

/// The linear map v * gain + offset that brings a product's range onto 0..255.
struct Scaling {
    float gain;
    float offset;
};

bool scalingOf(int kind, Scaling& scaling) {
    switch (kind) {
        case kStokesS0:  // 0..510
            scaling = {0.5f, 0.0f};
            return true;
        case kStokesS1:  // -255..255
        case kStokesS2:
            scaling = {0.5f, 127.5f};
            return true;
        case kDolp:  // 0..1
            scaling = {255.0f, 0.0f};
            return true;
        case kAolp:  // -pi/2..pi/2: 255 (v + pi/2) / pi
            scaling = {255.0f / detail::kPi, 127.5f};
            return true;
        default:
            return false;
    }
}

void scaleRow(const float* __restrict in, unsigned char* __restrict out, int width,
              Scaling scaling) {
    for (int x = 0; x < width; ++x) out[x] = detail::toU8(in[x] * scaling.gain + scaling.offset);
}

}  // namespace

void ConvertTo8BPP(const ImageInfo& in, ImageInfo& out) {
    Scaling scaling{};
    const bool isFloat = scalingOf(in.kind, scaling);
    const bool usable = isFloat ? detail::isPlane(in, in.kind, 4) : detail::isPlane(in, kMono8, 1);
    if (!usable) {
        detail::clear(out);
        return;
    }
    cv::Mat result(in.height, in.width, CV_8UC1);
    for (int y = 0; y < in.height; ++y) {
        const unsigned char* row = detail::rowOf(in, y);
        if (isFloat)
            scaleRow(reinterpret_cast<const float*>(row), result.ptr(y), in.width, scaling);
        else
            std::memcpy(result.ptr(y), row, static_cast<size_t>(in.width));
    }
    detail::publish(std::move(result), kMono8, out);
}

}  // namespace pol
