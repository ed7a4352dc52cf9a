// Stokes parameters, degree and angle of polarization, glare reduction and heat maps of
// polarized-sensor frames, computed by the polarization library.
#include "PolarizationProducts.h"

#include "Polarization.h"
#include "ImageConverterFactory.h"
#include "MatrixBridge.h"
#include "PolarizationBridge.h"
#include "ZTImageFormatConverter.h"

namespace ZTI {

namespace {

using polarization::describe;
using polarization::mono8Source;
using polarization::publish;

using Product = void (*)(const pol::ImageInfo&, pol::ImageInfo&);

/// A product scaled to 8 bits into `dst`.
int scaledProduct(const ZTImage& src, ZTImage& dst, Product product) {
    ZTImage converted;
    const ZTImage* mosaic = mono8Source(src, converted);
    if (mosaic == nullptr) return -1;
    pol::ImageInfo value;
    product(describe(*mosaic), value);
    pol::ImageInfo scaled;
    pol::ConvertTo8BPP(value, scaled);
    return publish(scaled, Mono8, 1, dst) ? 0 : -1;
}

}  // namespace

int CreateStokesS0(const ZTImage& src, ZTImage& dst) {
    return scaledProduct(src, dst, pol::CreateStokesS0);
}

int CreateStokesS1(const ZTImage& src, ZTImage& dst) {
    return scaledProduct(src, dst, pol::CreateStokesS1);
}

int CreateStokesS2(const ZTImage& src, ZTImage& dst) {
    return scaledProduct(src, dst, pol::CreateStokesS2);
}

int CreateDolp(const ZTImage& src, ZTImage& dst) { return scaledProduct(src, dst, pol::CreateDOLP); }

int CreateAolp(const ZTImage& src, ZTImage& dst) { return scaledProduct(src, dst, pol::CreateAOLP); }

int CreateGlareReduced(const ZTImage& src, ZTImage& dst) {
    ZTImage converted;
    const ZTImage* mosaic = mono8Source(src, converted);
    if (mosaic == nullptr) return -1;
    pol::ImageInfo glare;
    pol::CreateGlareReduced(describe(*mosaic), glare);
    return publish(glare, Mono8, 1, dst) ? 0 : -1;
}

int CreateHeatmap(const ZTImage& src, ZTImage& dst, unsigned int low, unsigned int high,
                  unsigned int lowColor, unsigned int highColor) {
    // A source whose memory does not hold its rows is refused like every other product's:
    // the failed conversion below would otherwise leave a working image of undefined pixels.
    // Formats with no matrix form have no conversion and are mapped regardless (below).
    if (!src.isValid() || (get_cv_mat_type(src.getPixelType()) >= 0 && !viewFits(src))) return -1;
    ZTImage converted;
    const ZTImage* mosaic = &src;
    if (src.getPixelType() != Mono8) {
        // The conversion's result is deliberately not examined: a source without a conversion
        // still gets a map, made of the destination the converter left behind (Mono8 of the
        // source's size, undefined pixels). Only memory that cannot be read stops it.
        // A listed pair without colour code (deep RGB and BGR) would stop the process inside
        // convert; a frame's format is data, so such a source is refused instead.
        if (!ImageConverterFactory::canConvert(Mono8, src.getPixelType()) &&
            ImageConverterFactory().createConverter(Mono8, src.getPixelType()) != nullptr)
            return -1;
        ZTImageFormatConverter converter;
        converter.setOutputFormat(Mono8);
        converter.convert(converted, src);
        mosaic = &converted;
    }
    if (!polarization::isReadableMono8(*mosaic)) return -1;
    pol::HeatmapOption option;
    option.flag = true;
    option.first = low;
    option.second = high;
    option.third = lowColor;
    option.fourth = highColor;
    pol::ImageInfo map;
    pol::ApplyHeatmap(describe(*mosaic), map, option);
    return polarization::publishRows(map, RGB8, 3, dst) ? 0 : -1;
}

}  // namespace ZTI
