// The table of conversion routes and the lookups over it. The two indexes over the table are
// built when the library is loaded, colour codes first, and are read-only afterwards: lookups
// never insert, so any thread may search them without a lock.
#include <opencv2/imgproc.hpp>

#include <map>

#include "Assert.h"
#include "ImageConverterFactory.h"
#include "MatrixBridge.h"

namespace ZTI {
namespace {

using ConverterCreator = std::unique_ptr<IImageConverter> (*)();

template <typename T>
constexpr ConverterCreator make = &createConverterPtr<T>;

// How a route's converter handles colour, when it is not an OpenCV colour code (>= 0).
constexpr int kDepthOnly = -1;    // scales the depth; no colour code
constexpr int kThroughRgb8 = -2;  // YUV 4:4:4 to mono: the code of (RGB8, source), then grey
constexpr int kAborts = -3;       // no colour code: the converter asks for one and aborts, as
                                  // the interface always has; canConvert says false

struct Route {
    PIXEL_TYPE dst;
    PIXEL_TYPE src;
    ConverterCreator create;  // null: a colour code that no converter serves
    int colour;               // an OpenCV colour code, or one of the k values above
};

// Every conversion the library knows, one row per (destination, source) pair. Some codes look
// crossed and are kept so on purpose: RGB8 goes to grey with the BGR weights and BGR8 with
// the RGB weights (likewise with alpha), YUV 4:4:4 goes to RGB8 with YCrCb2BGR, and the
// mosaics go to RGB with the Bayer-to-BGR code of their own pattern: the library's colour
// order depends on them. The mosaic rows' codes are the colour-code table's, though the
// converters demosaic with the demosaic library. 8-bit mosaics reach only the 8-bit
// destinations, 10- and 12-bit ones the same depth and 16 bits.
// clang-format off
constexpr Route kRoutes[] = {
    // dst   src               converter           colour
{Mono8,  Mono10,           make<Mono2Mono>,    kDepthOnly},
    {Mono8,  Mono12,           make<Mono2Mono>,    kDepthOnly},
    {Mono8,  Mono16,           make<Mono2Mono>,    kDepthOnly},
    {Mono16, Mono10,           make<Mono2Mono>,    kDepthOnly},
    {Mono16, Mono12,           make<Mono2Mono>,    kDepthOnly},
    {RGB8,   RGB10,            make<RGB2Rgb>,      kDepthOnly},
    {RGB8,   RGB12,            make<RGB2Rgb>,      kDepthOnly},
    {RGB8,   RGB16,            make<RGB2Rgb>,      kDepthOnly},
    {RGB16,  RGB10,            make<RGB2Rgb>,      kDepthOnly},
    {RGB16,  RGB12,            make<RGB2Rgb>,      kDepthOnly},
    {Mono8,  YUV422_8_UYVY,    make<Uyvy2Mono>,    cv::COLOR_YUV2GRAY_UYVY},
    {Mono8,  YUV422_8,         make<Yuyv2Mono>,    cv::COLOR_YUV2GRAY_YUY2},
    {Mono8,  YCbCr422_8,       make<Yuyv2Mono>,    cv::COLOR_YUV2GRAY_YUY2},
    {Mono8,  YUV8_UYV,         make<Yuv2Mono>,     kThroughRgb8},
    {Mono8,  YCbCr8,           make<Yuv2Mono>,     kThroughRgb8},
    {Mono8,  RGB8,             make<RGB2Mono>,     cv::COLOR_BGR2GRAY},
    {Mono8,  BGR8,             make<RGB2Mono>,     cv::COLOR_RGB2GRAY},
    {Mono8,  RGB10,            make<RGB2Mono>,     kAborts},
    {Mono8,  BGR10,            make<RGB2Mono>,     kAborts},
    {Mono8,  RGB12,            make<RGB2Mono>,     kAborts},
    {Mono8,  BGR12,            make<RGB2Mono>,     kAborts},
    {Mono8,  RGB16,            make<RGB2Mono>,     kAborts},
    {Mono8,  BGR16,            make<RGB2Mono>,     kAborts},
    {Mono10, RGB10,            make<RGB2Mono>,     kAborts},
    {Mono10, BGR10,            make<RGB2Mono>,     kAborts},
    {Mono12, RGB12,            make<RGB2Mono>,     kAborts},
    {Mono12, BGR12,            make<RGB2Mono>,     kAborts},
    {Mono16, RGB10,            make<RGB2Mono>,     kAborts},
    {Mono16, BGR10,            make<RGB2Mono>,     kAborts},
    {Mono16, RGB12,            make<RGB2Mono>,     kAborts},
    {Mono16, BGR12,            make<RGB2Mono>,     kAborts},
    {Mono16, RGB16,            make<RGB2Mono>,     kAborts},
    {Mono16, BGR16,            make<RGB2Mono>,     kAborts},
    {RGB8,   Mono8,            make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB8,   Mono10,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB8,   Mono12,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB8,   Mono16,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB10,  Mono10,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB12,  Mono12,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB16,  Mono10,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB16,  Mono12,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB16,  Mono16,           make<Mono2Rgb>,     cv::COLOR_GRAY2RGB},
    {RGB8,   YUV422_8_UYVY,    make<Uyvy2Rgb>,     cv::COLOR_YUV2RGB_UYVY},
    {RGB8,   YUV422_8,         make<Yuyv2Rgb>,     cv::COLOR_YUV2RGB_YUY2},
    {RGB8,   YCbCr422_8,       make<Yuyv2Rgb>,     cv::COLOR_YUV2RGB_YUY2},
    {RGB8,   YUV8_UYV,         make<Yuv2Rgb>,      cv::COLOR_YCrCb2BGR},
    {RGB8,   YCbCr8,           make<Yuv2Rgb>,      cv::COLOR_YCrCb2BGR},
    {RGB8,   BGR8,             make<BGR2Rgb>,      cv::COLOR_BGR2RGB},
    {RGB8,   BGR10,            make<BGR2Rgb>,      kAborts},
    {RGB8,   BGR12,            make<BGR2Rgb>,      kAborts},
    {RGB8,   BGR16,            make<BGR2Rgb>,      kAborts},
    {RGB10,  BGR10,            make<BGR2Rgb>,      kAborts},
    {RGB12,  BGR12,            make<BGR2Rgb>,      kAborts},
    {RGB16,  BGR10,            make<BGR2Rgb>,      kAborts},
    {RGB16,  BGR12,            make<BGR2Rgb>,      kAborts},
    {RGB16,  BGR16,            make<BGR2Rgb>,      kAborts},
    {RGB8,   RGBa8,            make<RGBA2Rgb>,     cv::COLOR_RGBA2RGB},
    {RGB8,   BGRa8,            make<RGBA2Rgb>,     cv::COLOR_BGRA2RGB},
    {Mono8,  BayerGR8,         make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono8,  BayerRG8,         make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono8,  BayerGB8,         make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono8,  BayerBG8,         make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono8,  BayerGR10,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono8,  BayerRG10,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono8,  BayerGB10,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono8,  BayerBG10,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono8,  BayerGR12,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono8,  BayerRG12,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono8,  BayerGB12,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono8,  BayerBG12,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono8,  BayerGR16,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono8,  BayerRG16,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono8,  BayerGB16,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono8,  BayerBG16,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono10, BayerGR10,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono10, BayerRG10,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono10, BayerGB10,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono10, BayerBG10,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono12, BayerGR12,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono12, BayerRG12,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono12, BayerGB12,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono12, BayerBG12,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono16, BayerGR10,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono16, BayerRG10,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono16, BayerGB10,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono16, BayerBG10,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono16, BayerGR12,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono16, BayerRG12,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono16, BayerGB12,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono16, BayerBG12,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {Mono16, BayerGR16,        make<Bayer2Mono>,   cv::COLOR_BayerGR2GRAY},
    {Mono16, BayerRG16,        make<Bayer2Mono>,   cv::COLOR_BayerRG2GRAY},
    {Mono16, BayerGB16,        make<Bayer2Mono>,   cv::COLOR_BayerGB2GRAY},
    {Mono16, BayerBG16,        make<Bayer2Mono>,   cv::COLOR_BayerBG2GRAY},
    {RGB8,   BayerGR8,         make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB8,   BayerRG8,         make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB8,   BayerGB8,         make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB8,   BayerBG8,         make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB8,   BayerGR10,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB8,   BayerRG10,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB8,   BayerGB10,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB8,   BayerBG10,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB8,   BayerGR12,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB8,   BayerRG12,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB8,   BayerGB12,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB8,   BayerBG12,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB8,   BayerGR16,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB8,   BayerRG16,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB8,   BayerGB16,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB8,   BayerBG16,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB10,  BayerGR10,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB10,  BayerRG10,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB10,  BayerGB10,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB10,  BayerBG10,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB12,  BayerGR12,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB12,  BayerRG12,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB12,  BayerGB12,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB12,  BayerBG12,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB16,  BayerGR10,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB16,  BayerRG10,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB16,  BayerGB10,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB16,  BayerBG10,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB16,  BayerGR12,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB16,  BayerRG12,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB16,  BayerGB12,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB16,  BayerBG12,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    {RGB16,  BayerGR16,        make<Bayer2Rgb>,    cv::COLOR_BayerGR2BGR},
    {RGB16,  BayerRG16,        make<Bayer2Rgb>,    cv::COLOR_BayerRG2BGR},
    {RGB16,  BayerGB16,        make<Bayer2Rgb>,    cv::COLOR_BayerGB2BGR},
    {RGB16,  BayerBG16,        make<Bayer2Rgb>,    cv::COLOR_BayerBG2BGR},
    // Colour codes that no converter asks for: grey from the alpha formats.
    {Mono8,  RGBa8,            nullptr,            cv::COLOR_BGRA2GRAY},
    {Mono8,  BGRa8,            nullptr,            cv::COLOR_RGBA2GRAY},
};
// clang-format on

bool hasOwnColourCode(const Route& route) { return route.colour >= 0; }
bool hasConverter(const Route& route) { return route.create != nullptr; }

using RouteIndex = std::map<FormatPair, const Route*, FormatPairLess>;

RouteIndex indexRoutes(bool (*keep)(const Route&)) {
    RouteIndex index;
    for (const Route& route : kRoutes)
        if (keep(route)) index.emplace(FormatPair{route.dst, route.src}, &route);
    return index;
}

// Construction order is the order of definition in this unit: colour codes, then converters.
// Destruction at exit runs in reverse.
const RouteIndex cvtColorCodeTable = indexRoutes(&hasOwnColourCode);
const RouteIndex converterRegistry = indexRoutes(&hasConverter);

const Route* findRoute(const RouteIndex& index, PIXEL_TYPE dst, PIXEL_TYPE src) {
    const auto it = index.find(FormatPair{dst, src});
    return it == index.end() ? nullptr : it->second;
}

// True when the route's converter runs without asking for a code the table lacks.
bool isUsable(const Route& route) {
    if (route.colour == kThroughRgb8) return findRoute(cvtColorCodeTable, RGB8, route.src) != nullptr;
    return route.colour != kAborts;
}

// Preferred deeper destination of a source. BGR10/12/16 deliberately have none.
struct DeeperDestination {
    PIXEL_TYPE src;
    PIXEL_TYPE dst;
};
constexpr DeeperDestination kDeeperDestinations[] = {
    {Mono10, Mono16}, {Mono12, Mono16}, {Mono16, Mono16},
    {BayerGR8, RGB8}, {BayerRG8, RGB8}, {BayerGB8, RGB8}, {BayerBG8, RGB8},
    {BayerGR10, RGB16}, {BayerRG10, RGB16}, {BayerGB10, RGB16}, {BayerBG10, RGB16},
    {BayerGR12, RGB16}, {BayerRG12, RGB16}, {BayerGB12, RGB16}, {BayerBG12, RGB16},
    {BayerGR16, RGB16}, {BayerRG16, RGB16}, {BayerGB16, RGB16}, {BayerBG16, RGB16},
    {RGB10, RGB16}, {RGB12, RGB16}, {RGB16, RGB16},
};

}  // namespace

bool isConvertedFormat(PIXEL_TYPE fmt) {
    for (const Route& route : kRoutes)
        if (route.dst == fmt || route.src == fmt) return true;
    return false;
}

bool hasColourCode(PIXEL_TYPE dst, PIXEL_TYPE src) { return findRoute(cvtColorCodeTable, dst, src) != nullptr; }

int get_cv_cvt_type(PIXEL_TYPE dst, PIXEL_TYPE src) {
    const Route* route = findRoute(cvtColorCodeTable, dst, src);
    // The colour-code table and this lookup lived in ImageFormatHandler.cpp, and the abort
    // message keeps naming that unit.
    if (route == nullptr) ZT_ASSERT_IN(false, "int get_cv_cvt_type(PIXEL_TYPE, PIXEL_TYPE)", "ImageFormatHandler.cpp");
    return route->colour;
}

std::unique_ptr<IImageConverter> ImageConverterFactory::createConverter(PIXEL_TYPE dst, PIXEL_TYPE src) {
    if (dst == src) return std::unique_ptr<IImageConverter>(new CopyConverter());
    const Route* route = findRoute(converterRegistry, dst, src);
    return route != nullptr ? route->create() : nullptr;
}

bool ImageConverterFactory::canConvert(PIXEL_TYPE dst, PIXEL_TYPE src) {
    if (dst == src) return true;
    const Route* route = findRoute(converterRegistry, dst, src);
    return route != nullptr && isUsable(*route);
}

std::vector<ConversionInfo> ImageConverterFactory::listConversions() {
    std::vector<ConversionInfo> list;
    list.reserve(converterRegistry.size());
    for (const auto& entry : converterRegistry)
        list.push_back({entry.second->dst, entry.second->src, isUsable(*entry.second)});
    return list;
}

PIXEL_TYPE getDestType(PfncFormat_ src) {
    for (const DeeperDestination& d : kDeeperDestinations)
        if (d.src == src) return d.dst;
    return 0;
}

}  // namespace ZTI
