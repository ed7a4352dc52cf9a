// The conversion tables and the lookups over them. Both tables are built when the library is
// loaded, colour codes first, and are read-only afterwards: lookups never insert, so any
// thread may search them without a lock.
#include <opencv2/imgproc.hpp>

#include <functional>
#include <map>

#include "Assert.h"
#include "ImageConverterFactory.h"
#include "MatrixBridge.h"

namespace ZTI {
namespace {

using CodeTable = std::map<FormatPair, int, FormatPairLess>;
using ConverterCreator = std::unique_ptr<IImageConverter> (*)();
using Registry = std::map<FormatPair, std::function<std::unique_ptr<IImageConverter>()>, FormatPairLess>;

// The four Bayer patterns at each depth, with the OpenCV codes named after the same pattern.
// The codes are kept as the library has always used them: OpenCV names its Bayer codes after
// another cell of the mosaic, and the colour order of the library's RGB output follows them.
struct BayerFamily {
    PIXEL_TYPE bits8, bits10, bits12, bits16;
    int toGray, toColour;
};
const BayerFamily kBayerFamilies[] = {
    // 8         10         12         16         grey code              colour code
    {BayerGR8, BayerGR10, BayerGR12, BayerGR16, cv::COLOR_BayerGR2GRAY, cv::COLOR_BayerGR2BGR},
    {BayerRG8, BayerRG10, BayerRG12, BayerRG16, cv::COLOR_BayerRG2GRAY, cv::COLOR_BayerRG2BGR},
    {BayerGB8, BayerGB10, BayerGB12, BayerGB16, cv::COLOR_BayerGB2GRAY, cv::COLOR_BayerGB2BGR},
    {BayerBG8, BayerBG10, BayerBG12, BayerBG16, cv::COLOR_BayerBG2GRAY, cv::COLOR_BayerBG2BGR},
};

// Calls add(dst, src, family) for every Bayer pair of the tables: the 8-bit destinations take
// every depth, the 10- and 12-bit ones the same depth, the 16-bit ones 10, 12 and 16 bits.
template <typename Add>
void forEachBayerPair(PIXEL_TYPE dst8, PIXEL_TYPE dst10, PIXEL_TYPE dst12, PIXEL_TYPE dst16, Add add) {
    for (const BayerFamily& f : kBayerFamilies) {
        for (PIXEL_TYPE src : {f.bits8, f.bits10, f.bits12, f.bits16}) add(dst8, src, f);
        add(dst10, f.bits10, f);
        add(dst12, f.bits12, f);
        for (PIXEL_TYPE src : {f.bits10, f.bits12, f.bits16}) add(dst16, src, f);
    }
}

CodeTable buildColourCodeTable() {
    // Some codes look crossed and are kept so on purpose: RGB8 goes to grey with the BGR
    // weights and BGR8 with the RGB weights (likewise with alpha), and YUV 4:4:4 goes to RGB8
    // with YCrCb2BGR. The library's colour order depends on them.
    CodeTable table = {
        // destination  source          code
        {{Mono8, RGB8}, cv::COLOR_BGR2GRAY},
        {{Mono8, BGR8}, cv::COLOR_RGB2GRAY},
        {{Mono8, RGBa8}, cv::COLOR_BGRA2GRAY},
        {{Mono8, BGRa8}, cv::COLOR_RGBA2GRAY},
        {{Mono8, YUV422_8_UYVY}, cv::COLOR_YUV2GRAY_UYVY},
        {{Mono8, YCbCr422_8}, cv::COLOR_YUV2GRAY_YUY2},
        {{Mono8, YUV422_8}, cv::COLOR_YUV2GRAY_YUY2},
        {{RGB8, Mono8}, cv::COLOR_GRAY2RGB},
        {{RGB8, Mono10}, cv::COLOR_GRAY2RGB},
        {{RGB8, Mono12}, cv::COLOR_GRAY2RGB},
        {{RGB8, Mono16}, cv::COLOR_GRAY2RGB},
        {{RGB8, BGR8}, cv::COLOR_BGR2RGB},
        {{RGB8, RGBa8}, cv::COLOR_RGBA2RGB},
        {{RGB8, BGRa8}, cv::COLOR_BGRA2RGB},
        {{RGB8, YUV422_8_UYVY}, cv::COLOR_YUV2RGB_UYVY},
        {{RGB8, YCbCr422_8}, cv::COLOR_YUV2RGB_YUY2},
        {{RGB8, YUV422_8}, cv::COLOR_YUV2RGB_YUY2},
        {{RGB8, YUV8_UYV}, cv::COLOR_YCrCb2BGR},
        {{RGB8, YCbCr8}, cv::COLOR_YCrCb2BGR},
        {{RGB10, Mono10}, cv::COLOR_GRAY2RGB},
        {{RGB12, Mono12}, cv::COLOR_GRAY2RGB},
        {{RGB16, Mono10}, cv::COLOR_GRAY2RGB},
        {{RGB16, Mono12}, cv::COLOR_GRAY2RGB},
        {{RGB16, Mono16}, cv::COLOR_GRAY2RGB},
    };
    forEachBayerPair(Mono8, Mono10, Mono12, Mono16, [&](PIXEL_TYPE d, PIXEL_TYPE s, const BayerFamily& f) {
        table.emplace(FormatPair{d, s}, f.toGray);
    });
    forEachBayerPair(RGB8, RGB10, RGB12, RGB16, [&](PIXEL_TYPE d, PIXEL_TYPE s, const BayerFamily& f) {
        table.emplace(FormatPair{d, s}, f.toColour);
    });
    return table;
}

Registry buildConverterRegistry() {
    Registry registry = {
        // destination  source         converter
        {{Mono8, Mono10}, &createConverterPtr<Mono2Mono>},
        {{Mono8, Mono12}, &createConverterPtr<Mono2Mono>},
        {{Mono8, Mono16}, &createConverterPtr<Mono2Mono>},
        {{Mono16, Mono10}, &createConverterPtr<Mono2Mono>},
        {{Mono16, Mono12}, &createConverterPtr<Mono2Mono>},
        {{Mono8, YUV422_8_UYVY}, &createConverterPtr<Uyvy2Mono>},
        {{Mono8, YUV422_8}, &createConverterPtr<Yuyv2Mono>},
        {{Mono8, YCbCr422_8}, &createConverterPtr<Yuyv2Mono>},
        {{Mono8, YUV8_UYV}, &createConverterPtr<Yuv2Mono>},
        {{Mono8, YCbCr8}, &createConverterPtr<Yuv2Mono>},
        {{Mono8, RGB8}, &createConverterPtr<RGB2Mono>},
        {{Mono8, RGB10}, &createConverterPtr<RGB2Mono>},
        {{Mono8, RGB12}, &createConverterPtr<RGB2Mono>},
        {{Mono8, RGB16}, &createConverterPtr<RGB2Mono>},
        {{Mono8, BGR8}, &createConverterPtr<RGB2Mono>},
        {{Mono8, BGR10}, &createConverterPtr<RGB2Mono>},
        {{Mono8, BGR12}, &createConverterPtr<RGB2Mono>},
        {{Mono8, BGR16}, &createConverterPtr<RGB2Mono>},
        {{Mono10, RGB10}, &createConverterPtr<RGB2Mono>},
        {{Mono10, BGR10}, &createConverterPtr<RGB2Mono>},
        {{Mono12, RGB12}, &createConverterPtr<RGB2Mono>},
        {{Mono12, BGR12}, &createConverterPtr<RGB2Mono>},
        {{Mono16, RGB10}, &createConverterPtr<RGB2Mono>},
        {{Mono16, RGB12}, &createConverterPtr<RGB2Mono>},
        {{Mono16, RGB16}, &createConverterPtr<RGB2Mono>},
        {{Mono16, BGR10}, &createConverterPtr<RGB2Mono>},
        {{Mono16, BGR12}, &createConverterPtr<RGB2Mono>},
        {{Mono16, BGR16}, &createConverterPtr<RGB2Mono>},
        {{RGB8, Mono8}, &createConverterPtr<Mono2Rgb>},
        {{RGB8, Mono10}, &createConverterPtr<Mono2Rgb>},
        {{RGB8, Mono12}, &createConverterPtr<Mono2Rgb>},
        {{RGB8, Mono16}, &createConverterPtr<Mono2Rgb>},
        {{RGB10, Mono10}, &createConverterPtr<Mono2Rgb>},
        {{RGB12, Mono12}, &createConverterPtr<Mono2Rgb>},
        {{RGB16, Mono10}, &createConverterPtr<Mono2Rgb>},
        {{RGB16, Mono12}, &createConverterPtr<Mono2Rgb>},
        {{RGB16, Mono16}, &createConverterPtr<Mono2Rgb>},
        {{RGB8, RGB10}, &createConverterPtr<RGB2Rgb>},
        {{RGB8, RGB12}, &createConverterPtr<RGB2Rgb>},
        {{RGB8, RGB16}, &createConverterPtr<RGB2Rgb>},
        {{RGB16, RGB10}, &createConverterPtr<RGB2Rgb>},
        {{RGB16, RGB12}, &createConverterPtr<RGB2Rgb>},
        {{RGB8, YUV422_8_UYVY}, &createConverterPtr<Uyvy2Rgb>},
        {{RGB8, YCbCr422_8}, &createConverterPtr<Yuyv2Rgb>},
        {{RGB8, YUV422_8}, &createConverterPtr<Yuyv2Rgb>},
        {{RGB8, YUV8_UYV}, &createConverterPtr<Yuv2Rgb>},
        {{RGB8, YCbCr8}, &createConverterPtr<Yuv2Rgb>},
        {{RGB8, BGR8}, &createConverterPtr<BGR2Rgb>},
        {{RGB8, BGR10}, &createConverterPtr<BGR2Rgb>},
        {{RGB8, BGR12}, &createConverterPtr<BGR2Rgb>},
        {{RGB8, BGR16}, &createConverterPtr<BGR2Rgb>},
        {{RGB10, BGR10}, &createConverterPtr<BGR2Rgb>},
        {{RGB12, BGR12}, &createConverterPtr<BGR2Rgb>},
        {{RGB16, BGR10}, &createConverterPtr<BGR2Rgb>},
        {{RGB16, BGR12}, &createConverterPtr<BGR2Rgb>},
        {{RGB16, BGR16}, &createConverterPtr<BGR2Rgb>},
        {{RGB8, RGBa8}, &createConverterPtr<RGBA2Rgb>},
        {{RGB8, BGRa8}, &createConverterPtr<RGBA2Rgb>},
    };
    // Demosaicing: the same pairs as the Bayer rows of the colour-code table.
    forEachBayerPair(Mono8, Mono10, Mono12, Mono16, [&](PIXEL_TYPE d, PIXEL_TYPE s, const BayerFamily&) {
        registry.emplace(FormatPair{d, s}, &createConverterPtr<Bayer2Mono>);
    });
    forEachBayerPair(RGB8, RGB10, RGB12, RGB16, [&](PIXEL_TYPE d, PIXEL_TYPE s, const BayerFamily&) {
        registry.emplace(FormatPair{d, s}, &createConverterPtr<Bayer2Rgb>);
    });
    return registry;
}

// Construction order is the order of definition in this unit: colour codes, then converters.
// Destruction at exit runs in reverse.
const CodeTable cvtColorCodeTable = buildColourCodeTable();
const Registry converterRegistry = buildConverterRegistry();

// Converter classes that need no colour code for their pairs.
bool convertsWithoutColourCode(ConverterCreator creator) {
    return creator == &createConverterPtr<Mono2Mono> || creator == &createConverterPtr<RGB2Rgb> ||
           creator == &createConverterPtr<Bayer2Rgb> || creator == &createConverterPtr<Bayer2Mono>;
}

}  // namespace

int get_cv_mat_type(PIXEL_TYPE fmt) {
    switch (fmt) {
        case Mono8: case BayerGR8: case BayerRG8: case BayerGB8: case BayerBG8:
            return CV_8UC1;
        case Mono10: case Mono12: case Mono16:
        case BayerGR10: case BayerRG10: case BayerGB10: case BayerBG10:
        case BayerGR12: case BayerRG12: case BayerGB12: case BayerBG12:
        case BayerGR16: case BayerRG16: case BayerGB16: case BayerBG16:
            return CV_16UC1;
        case YUV422_8_UYVY: case YUV422_8: case YCbCr422_8:
            return CV_8UC2;
        case RGB8: case BGR8: case YUV8_UYV: case YCbCr8:
            return CV_8UC3;
        case RGBa8: case BGRa8:
            return CV_8UC4;
        case RGB10: case BGR10: case RGB12: case BGR12: case RGB16: case BGR16:
            return CV_16UC3;
        default:
            return -1;
    }
}

int channelCount(PIXEL_TYPE fmt) {
    const int type = get_cv_mat_type(fmt);
    return type < 0 ? 0 : CV_MAT_CN(type);
}

int get_cv_type(int bitsPerChannel, int channels) {
    if (channels < 1 || channels > 4) return -1;
    if (bitsPerChannel == 8) return CV_MAKETYPE(CV_8U, channels);
    if (bitsPerChannel >= 9 && bitsPerChannel <= 16) return CV_MAKETYPE(CV_16U, channels);
    return -1;
}

bool hasColourCode(PIXEL_TYPE dst, PIXEL_TYPE src) {
    return cvtColorCodeTable.find(FormatPair{dst, src}) != cvtColorCodeTable.end();
}

int get_cv_cvt_type(PIXEL_TYPE dst, PIXEL_TYPE src) {
    const auto it = cvtColorCodeTable.find(FormatPair{dst, src});
    if (it == cvtColorCodeTable.end()) ZT_ASSERT(false, "int get_cv_cvt_type(PIXEL_TYPE, PIXEL_TYPE)");
    return it->second;
}

double depthScale(PIXEL_TYPE dst, PIXEL_TYPE src) {
    const auto fullScale = [](unsigned bits) {
        return static_cast<double>(static_cast<int32_t>((1u << (bits & 31u)) - 1u));
    };
    return fullScale(getBitsPerChannel(dst)) / fullScale(getBitsPerChannel(src));
}

std::unique_ptr<IImageConverter> ImageConverterFactory::createConverter(PIXEL_TYPE dst, PIXEL_TYPE src) {
    if (dst == src) return std::unique_ptr<IImageConverter>(new CopyConverter());
    const auto it = converterRegistry.find(FormatPair{dst, src});
    if (it == converterRegistry.end()) return nullptr;
    return it->second();
}

bool ImageConverterFactory::canConvert(PIXEL_TYPE dst, PIXEL_TYPE src) {
    if (dst == src) return true;
    const auto it = converterRegistry.find(FormatPair{dst, src});
    if (it == converterRegistry.end()) return false;
    const ConverterCreator* creator = it->second.target<ConverterCreator>();
    if (creator != nullptr && convertsWithoutColourCode(*creator)) return true;
    // YUV 4:4:4 to mono goes through RGB8 first.
    if (creator != nullptr && *creator == &createConverterPtr<Yuv2Mono>) return hasColourCode(RGB8, src);
    return hasColourCode(dst, src);
}

std::vector<ConversionInfo> ImageConverterFactory::listConversions() {
    std::vector<ConversionInfo> list;
    list.reserve(converterRegistry.size());
    for (const auto& entry : converterRegistry)
        list.push_back({entry.first.first, entry.first.second, canConvert(entry.first.first, entry.first.second)});
    return list;
}

PIXEL_TYPE getDestType(PfncFormat_ src) {
    switch (src) {
        case Mono10: case Mono12: case Mono16:
            return Mono16;
        case BayerGR8: case BayerRG8: case BayerGB8: case BayerBG8:
            return RGB8;
        case BayerGR10: case BayerRG10: case BayerGB10: case BayerBG10:
        case BayerGR12: case BayerRG12: case BayerGB12: case BayerBG12:
        case BayerGR16: case BayerRG16: case BayerGB16: case BayerBG16:
        case RGB10: case RGB12: case RGB16:
            return RGB16;
        default:
            // BGR10/12/16 deliberately have no deeper destination.
            return 0;
    }
}

}  // namespace ZTI
