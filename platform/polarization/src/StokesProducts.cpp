// Stokes parameters, degree and angle of linear polarization, and the glare-reduced image.
#include <utility>

#include "FastMath.h"
#include "MosaicRows.h"
#include "Polarization.h"
#include "Records.h"
#include "Stokes.h"

namespace pol {

using detail::computeProduct;
using detail::polarizedPart;
using detail::stokesS0;

namespace {

/// Runs a float product over the mosaic `in` and publishes it in `out` as `kind`.
template <typename Product>
void floatProduct(const ImageInfo& in, ImageInfo& out, int kind, Product product) {
    if (!detail::isMosaic(in)) {
        detail::clear(out);
        return;
    }
    cv::Mat result(in.height, in.width, CV_32FC1);
    computeProduct<float>(in, result, product);
    detail::publish(std::move(result), kind, out);
}

}  // namespace

void CreateStokesS0(const ImageInfo& in, ImageInfo& out) {
    floatProduct(in, out, kStokesS0, [](float i0, float i45, float i90, float i135) {
        return stokesS0(i0, i45, i90, i135);
    });
}

void CreateStokesS1(const ImageInfo& in, ImageInfo& out) {
    floatProduct(in, out, kStokesS1,
                 [](float i0, float, float i90, float) { return i0 - i90; });
}

void CreateStokesS2(const ImageInfo& in, ImageInfo& out) {
    floatProduct(in, out, kStokesS2,
                 [](float, float i45, float, float i135) { return i45 - i135; });
}

void CreateDOLP(const ImageInfo& in, ImageInfo& out) {
    floatProduct(in, out, kDolp, [](float i0, float i45, float i90, float i135) {
        return detail::degreeOfPolarization(i0, i45, i90, i135);
    });
}

void CreateAOLP(const ImageInfo& in, ImageInfo& out) {
    floatProduct(in, out, kAolp, [](float i0, float i45, float i90, float i135) {
        return 0.5f * detail::atan2Fast(i45 - i135, i0 - i90);
    });
}

void CreateGlareReduced(const ImageInfo& in, ImageInfo& out) {
    if (!detail::isMosaic(in)) {
        detail::clear(out);
        return;
    }
    // The intensity behind a polarizer at angle t is S0/2 + (S1 cos 2t + S2 sin 2t)/2, whose
    // least value over t is (S0 - sqrt(S1^2 + S2^2)) / 2: the light with its polarized
    // reflection filtered out as well as a polarizer can.
    cv::Mat result(in.height, in.width, CV_8UC1);
    computeProduct<unsigned char>(in, result, [](float i0, float i45, float i90, float i135) {
        return detail::toU8(0.5f * (stokesS0(i0, i45, i90, i135) -
                                    polarizedPart(i0, i45, i90, i135)));
    });
    detail::publish(std::move(result), kMono8, out);
}

}  // namespace pol
