#include "ZTImageFormatConverter.h"

#include <cstdio>

#include "Assert.h"
#include "ImageConverterFactory.h"
#include "MatrixBridge.h"

namespace ZTI {

ZTImageFormatConverter::ZTImageFormatConverter() = default;

PIXEL_TYPE ZTImageFormatConverter::getOutputFormat() const { return outputFormat_; }

void ZTImageFormatConverter::setOutputFormat(PIXEL_TYPE fmt) {
    // Only these six are refused, as the interface always has (YCbCr422_8 and the deeper
    // mosaics are not); every other value is stored unchecked, and convert then reports a
    // missing pair with -1.
    static constexpr PIXEL_TYPE kRefused[] = {BayerGR8, BayerRG8, BayerGB8, BayerBG8, YUV422_8_UYVY, YUV422_8};
    bool validOutputFormat = true;
    for (PIXEL_TYPE refused : kRefused)
        if (fmt == refused) validOutputFormat = false;
    if (!validOutputFormat) {
        std::fputs("Invalid output format.\n", stderr);
        // The expression is spelled as the message has always shown it.
        ZT_ASSERT(validOutputFormat==true, "void ZTI::ZTImageFormatConverter::setOutputFormat(PIXEL_TYPE)");
    }
    outputFormat_ = fmt;
}

int ZTImageFormatConverter::convert(ZTImage& dst, const ZTImage& src) {
    if (dst.getPixelType() != outputFormat_ || dst.getWidth() != src.getWidth() ||
        dst.getHeight() != src.getHeight())
        dst.reset(outputFormat_, src.getWidth(), src.getHeight());

    if (dst.getPixelType() == src.getPixelType()) {
        dst = src;
        return 0;
    }

    const FormatPair key{dst.getPixelType(), src.getPixelType()};
    auto it = converterCache_.find(key);
    if (it == converterCache_.end()) {
        // Pairs without a converter are remembered too, so the factory is asked only once.
        std::shared_ptr<IImageConverter> converter = ImageConverterFactory().createConverter(key.first, key.second);
        it = converterCache_.emplace(key, std::move(converter)).first;
    }
    if (!it->second) return -1;
    // An empty image has nothing to convert (OpenCV would reject its empty matrices).
    if (src.getWidth() == 0 || src.getHeight() == 0) return 0;
    // Memory shorter than the rows (a caller's buffer or a frame stated smaller, a byte count
    // that wrapped, a failed allocation) is refused rather than read or written past its end.
    // So is a 4:2:2 image of odd width, whose last pixel has no partner to share chroma with.
    if (!viewFits(src) || !viewFits(dst) || !hasWholePixelPairs(src)) return -1;
    // Only demosaicing converters take a method; the default keeps the plain call.
    auto* demosaicing = demosaicMethod_ == DemosaicMethod::HamiltonAdams
                            ? nullptr
                            : dynamic_cast<DemosaicingConverter*>(it->second.get());
    if (demosaicing != nullptr) demosaicing->convert(dst, src, demosaicMethod_);
    else it->second->convert(dst, src);
    return 0;
}

void ZTImageFormatConverter::setDemosaicMethod(DemosaicMethod method) { demosaicMethod_ = method; }

DemosaicMethod ZTImageFormatConverter::demosaicMethod() const { return demosaicMethod_; }

}  // namespace ZTI
