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
    "  quadrants-raw  the same tiling done without conversion, keeping the input's depth (one\n"
    "                 sample of 8 or 16 bits per pixel)\n"
    "The tilings are made of whole 2 x 2 cells: of an odd width or height, the last column or\n"
    "row is written as 0. Every product needs at least 2 x 2 pixels.\n"
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

// One sample per pixel in a whole byte or a 16-bit word: what the raw tiling moves as a unit.
// Several channels, 4:2:2 pairs and bit-packed frames would be cut apart.
bool isOneWholeSample(PfncFormat_ format) {
    const unsigned int bits = ZTI::getBitsPerChannel(format), pixelBits = ZTI::getBitsPerPixel(format);
    return (bits >= 1 && bits <= 8 && pixelBits == 8) || (bits > 8 && bits <= 16 && pixelBits == 16);
}

// The tilings fill whole 2 x 2 cells only. The library leaves an odd last column or row
// unwritten; it is set to 0 here so that no pixel of the file is undefined.
void clearUncoveredEdges(ZTI::ZTImage& image) {
    const unsigned int width = image.getWidth(), height = image.getHeight();
    const size_t pixelBytes = ZTI::getBitsPerPixel(image.getPixelType()) / 8;
    const size_t stride = image.getStride();
    if (width % 2 == 0 && height % 2 == 0) return;
    unsigned char* data = image.getBuffer();
    if (width % 2 != 0) {
        for (unsigned int y = 0; y < height; ++y) std::memset(data + y * stride + (width - 1) * pixelBytes, 0, pixelBytes);
    }
    if (height % 2 != 0) std::memset(data + (height - 1) * stride, 0, width * pixelBytes);
}

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
    if (!tiledRaw) checkPixelPairs(input.image, inputPath);
    // The products estimate every polarizer angle at every pixel from whole 2 x 2 cells; the
    // planes and tilings need at least one.
    const bool tiled = tiledRaw || product == "quadrants";
    const bool wholeCells = heatmap || (function != nullptr && !tiled);
    const unsigned int width = input.image.getWidth(), height = input.image.getHeight();
    const std::string size = "'" + inputPath + "' is " + std::to_string(width) + " x " + std::to_string(height);
    if (wholeCells && (width % 2 != 0 || height % 2 != 0)) {
        throw ToolError(product + " needs an even width and height; " + size);
    }
    if (width < 2 || height < 2) throw ToolError(product + " needs at least one whole 2 x 2 cell; " + size);
    if (tiledRaw && !isOneWholeSample(format)) {
        throw ToolError("quadrants-raw takes one sample of 8 or 16 bits per pixel; '" + inputPath + "' holds " +
                        formatLabel(format) + " (" + std::to_string(ZTI::getBitsPerPixel(format)) +
                        " bits per pixel)");
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
    // The input is checked above: what is left to fail is the memory for the result.
    if (result != 0 || !output.isValid()) {
        throw ToolError("computing " + product + " of '" + inputPath + "' failed: out of memory");
    }
    if (tiled) clearUncoveredEdges(output);
    writeImage(output, outputPath);
    return 0;
}

}  // namespace ztool
