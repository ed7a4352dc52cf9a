// Stokes parameters, degree and angle of polarization, glare reduction and heat maps of
// polarized-sensor frames, computed by the polarization library.
#include "PolarizationProducts.h"

#include "Polarization.h"
#include "PolarizationBridge.h"
#include "ZTImageFormatConverter.h"

namespace ZTI {

namespace {

using polarization::describe;
using polarization::makeWorkingImage;
using polarization::publish;

using Product = void (*)(const pol::ImageInfo&, pol::ImageInfo&);

/// A product scaled to 8 bits into `dst`.
int scaledProduct(const ZTImage& src, ZTImage& dst, Product product) {
    ZTImage work;
    if (!makeWorkingImage(src, work)) return -1;
    const pol::ImageInfo in = describe(work, work.getBuffer());
    pol::ImageInfo value;
    product(in, value);
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
    ZTImage work;
    if (!makeWorkingImage(src, work)) return -1;
    const pol::ImageInfo in = describe(work, work.getBuffer());
    pol::ImageInfo glare;
    pol::CreateGlareReduced(in, glare);
    return publish(glare, Mono8, 1, dst) ? 0 : -1;
}

int CreateHeatmap(const ZTImage& src, ZTImage& dst, unsigned int low, unsigned int high,
                  unsigned int lowColor, unsigned int highColor) {
    if (!src.isValid()) return -1;
    ZTImage work;
    pol::ImageInfo in;
    if (src.getPixelType() == Mono8) {
        // The library only reads its input: a Mono8 source is handed over without a copy.
        if (!polarization::isReadableMono8(src)) return -1;
        in = describe(src, src.getBuffer());
    } else {
        // The conversion's result is deliberately not examined: a source without a conversion
        // still gets a map, made of the destination the converter left behind (Mono8 of the
        // source's size, undefined pixels). Only memory that cannot be read stops it.
        ZTImageFormatConverter converter;
        converter.setOutputFormat(Mono8);
        converter.convert(work, src);
        if (!polarization::isReadableMono8(work)) return -1;
        in = describe(work, work.getBuffer());
    }
    pol::HeatmapOption option;
    option.flag = true;
    option.first = low;
    option.second = high;
    option.third = lowColor;
    option.fourth = highColor;
    pol::ImageInfo map;
    pol::ApplyHeatmap(in, map, option);
    return publish(map, RGB8, 3, dst) ? 0 : -1;
}

}  // namespace ZTI
