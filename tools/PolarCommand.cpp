// ztimage polar: polarization products of a polarized-sensor frame.
#include <cstring>

#include "Arguments.h"
#include "Commands.h"
#include "FormatNames.h"
#include "ImageConverterFactory.h"
#include "ImageFiles.h"
#include "PolarizationProducts.h"
#include "ToolError.h"

namespace ztool {

const char* const kPolarHelp =
    "usage: ztimage polar INPUT --product PRODUCT -o OUTPUT [--range LOW:HIGH] [--colors LOW:HIGH]\n"
    "                     [--from FORMAT --width W --height H [--padding P]]\n"
    "\n"
    "Computes a product of a polarized-sensor frame, whose 2 x 2 cells hold the polarizer angles\n"
    "90 and 45 degrees (top row) and 135 and 0 degrees (bottom row). INPUT is converted to Mono8\n"
    "first when needed. Products:\n"
    "  s0, s1, s2     Stokes parameters, scaled to 8 bits\n"
    "  dolp, aolp     degree and angle of linear polarization, scaled to 8 bits\n"
    "  glare          glare-reduced intensity\n"
    "  heatmap        colour map of the degree of polarization (RGB8): percentages from LOW to\n"
    "                 HIGH (--range, default 0:100) run from the colour LOW to HIGH (--colors,\n"
    "                 default black:red; black blue cyan green yellow red white)\n"
    "  i0 i45 i90 i135  the quarter-size plane of one polarizer angle\n"
    "  quadrants      the four planes tiled (90 45 / 135 0), Mono8\n"
    "  quadrants-raw  the same tiling done without conversion, keeping the input's depth\n"
    "Inputs and outputs are as for ztimage convert.\n";

namespace {

using MosaicProduct = int (*)(const ZTI::ZTImage&, ZTI::ZTImage&);

struct NamedProduct {
    const char* name;
    MosaicProduct function;
};
const NamedProduct kProducts[] = {
    {"s0", &ZTI::CreateStokesS0}, {"s1", &ZTI::CreateStokesS1},      {"s2", &ZTI::CreateStokesS2},
    {"dolp", &ZTI::CreateDolp},   {"aolp", &ZTI::CreateAolp},        {"glare", &ZTI::CreateGlareReduced},
    {"quadrants", &ZTI::ExtractFullPolarQuadrant},
};

// Palette of the heat map, in the polarization library's index order.
const char* const kColours[] = {"black", "blue", "cyan", "green", "yellow", "red", "white"};

unsigned int colourIndex(const std::string& name) {
    for (unsigned int i = 0; i < sizeof kColours / sizeof kColours[0]; ++i) {
        if (name == kColours[i]) return i;
    }
    throw usageError("unknown heat-map colour '" + name + "' (black, blue, cyan, green, yellow, red, white)");
}

std::pair<std::string, std::string> splitPair(const std::string& text, const char* option) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) throw usageError(std::string(option) + " takes LOW:HIGH (got '" + text + "')");
    return {text.substr(0, colon), text.substr(colon + 1)};
}

struct NamedQuadrant {
    const char* name;
    ZTI::PolarizationQuadrant quadrant;
};
const NamedQuadrant kQuadrants[] = {
    {"i0", ZTI::PolarQuadrantI0}, {"i45", ZTI::PolarQuadrantI45},
    {"i90", ZTI::PolarQuadrantI90}, {"i135", ZTI::PolarQuadrantI135},
};

}  // namespace

int runPolar(const Args& argv) {
    const Arguments args(argv, {"--product", "-o", "--range", "--colors", "--from", "--width", "--height", "--padding"},
                         {});
    if (args.positional().size() != 1) throw usageError("polar takes exactly one INPUT");
    const std::string inputPath = args.positional().front();
    const std::string product = args.required("--product");
    const std::string outputPath = args.required("-o");
    const bool heatmap = product == "heatmap";
    const bool tiledRaw = product == "quadrants-raw";
    const NamedQuadrant* quadrant = nullptr;
    for (const NamedQuadrant& q : kQuadrants) {
        if (product == q.name) quadrant = &q;
    }
    MosaicProduct function = nullptr;
    for (const NamedProduct& p : kProducts) {
        if (product == p.name) function = p.function;
    }
    if (!heatmap && !tiledRaw && quadrant == nullptr && function == nullptr) {
        throw usageError("unknown product '" + product +
                         "' (s0, s1, s2, dolp, aolp, glare, heatmap, i0, i45, i90, i135, quadrants, quadrants-raw)");
    }
    if (!heatmap && (args.has("--range") || args.has("--colors"))) {
        throw usageError("--range and --colors apply to --product heatmap only");
    }
    unsigned int range[2] = {0, 100};
    unsigned int colours[2] = {0, 5};  // black to red
    if (const auto text = args.value("--range")) {
        const auto [low, high] = splitPair(*text, "--range");
        range[0] = parseNumber(low, "--range LOW", 0, 100);
        range[1] = parseNumber(high, "--range HIGH", 0, 100);
    }
    if (const auto text = args.value("--colors")) {
        const auto [low, high] = splitPair(*text, "--colors");
        colours[0] = colourIndex(low);
        colours[1] = colourIndex(high);
    }
    checkOutputPath(outputPath);

    LoadedImage input;
    loadImage(inputPath, inputOptionsFrom(args), input);
    const PfncFormat_ format = input.image.getPixelType();
    // Every product but the raw tiling works on Mono8; say so before the library fails.
    if (!tiledRaw && format != ZTI::Mono8 && !ZTI::ImageConverterFactory::canConvert(ZTI::Mono8, format)) {
        throw ToolError("polarization products need a mosaic that converts to Mono8; '" + inputPath + "' holds " +
                        formatLabel(format));
    }
    // The products estimate every polarizer angle at every pixel from whole 2 x 2 cells.
    const bool wholeCells = heatmap || (function != nullptr && product != "quadrants");
    const unsigned int width = input.image.getWidth(), height = input.image.getHeight();
    if (wholeCells && (width % 2 != 0 || height % 2 != 0)) {
        throw ToolError(product + " needs an even width and height; '" + inputPath + "' is " + std::to_string(width) +
                        " x " + std::to_string(height));
    }
    if (tiledRaw && ZTI::getBitsPerChannel(format) > 16) {
        throw ToolError("quadrants-raw takes samples of up to 16 bits; '" + inputPath + "' holds " + formatLabel(format));
    }
    ZTI::ZTImage output;
    int result = -1;
    if (heatmap) {
        result = ZTI::CreateHeatmap(input.image, output, range[0], range[1], colours[0], colours[1]);
    } else if (tiledRaw) {
        result = ZTI::extractFullPolarQuadrant(input.image, output);
    } else if (quadrant != nullptr) {
        result = ZTI::ExtractPolarQuadrant(input.image, output, quadrant->quadrant);
    } else {
        result = function(input.image, output);
    }
    if (result != 0 || !output.isValid()) throw ToolError("computing " + product + " of '" + inputPath + "' failed");
    writeImage(output, outputPath);
    return 0;
}

}  // namespace ztool
