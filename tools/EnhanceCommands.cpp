// ztimage stretch and ztimage equalize: contrast enhancement of monochrome images.
#include <utility>

#include "Arguments.h"
#include "Commands.h"
#include "FormatNames.h"
#include "HistogramEnhancement.h"
#include "ImageConverterFactory.h"
#include "ImageFiles.h"
#include "ToolError.h"
#include "ZTImageFormatConverter.h"

namespace ztool {

const char* const kStretchHelp =
    "usage: ztimage stretch INPUT --low L --high H -o OUTPUT\n"
    "                       [--from FORMAT --width W --height H [--padding P]]\n"
    "\n"
    "Maps the sample range L..H linearly onto the full range of the image (0..255 for Mono8,\n"
    "0..4095 for Mono12); samples outside it saturate, and L above H inverts the image.\n"
    "INPUT is a Mono8 or Mono12 image: a raw frame (Mono12p and Mono12Packed frames are\n"
    "unpacked to Mono12) or a grey image file (give --from Mono12 for 12-bit samples in a\n"
    "16-bit file). Inputs and outputs are as for ztimage convert.\n";

const char* const kEqualizeHelp =
    "usage: ztimage equalize INPUT -o OUTPUT [--from FORMAT --width W --height H [--padding P]]\n"
    "\n"
    "Equalizes the histogram of an 8-bit grey image (Mono8 or an 8-bit Bayer mosaic). Other\n"
    "formats that convert to Mono8 are converted first. Inputs and outputs are as for\n"
    "ztimage convert.\n";

namespace {

const std::set<std::string> kInputOptions = {"--from", "--width", "--height", "--padding"};

std::set<std::string> withInputOptions(std::set<std::string> options) {
    options.insert(kInputOptions.begin(), kInputOptions.end());
    return options;
}

std::string onlyInput(const Arguments& args, const char* command) {
    if (args.positional().size() != 1) throw usageError(std::string(command) + " takes exactly one INPUT");
    return args.positional().front();
}

}  // namespace

int runStretch(const Args& argv) {
    const Arguments args(argv, withInputOptions({"--low", "--high", "-o"}), {});
    const std::string inputPath = onlyInput(args, "stretch");
    const unsigned int low = parseNumber(args.required("--low"), "--low", 0, 65535);
    const unsigned int high = parseNumber(args.required("--high"), "--high", 0, 65535);
    const std::string outputPath = args.required("-o");
    checkOutputPath(outputPath);

    LoadedImage input;
    loadImage(inputPath, inputOptionsFrom(args), input);
    const PfncFormat_ format = input.image.getPixelType();
    // Packed 12-bit frames arrive unpacked as Mono12, so these two cover every mono sensor
    // the stretch takes.
    if (format != ZTI::Mono8 && format != ZTI::Mono12) {
        throw ToolError("stretch takes Mono8 or Mono12 images; '" + inputPath + "' holds " + formatLabel(format) +
                        (format == ZTI::Mono16 ? " (give --from Mono12 if its samples are 12-bit)" : ""));
    }
    ZTI::ZTImage output(format, input.image.getWidth(), input.image.getHeight());
    if (!output.isValid() || ZTI::histStretch(input.image, output, low, high) != 0) {
        throw ToolError("stretching '" + inputPath + "' failed");
    }
    writeImage(output, outputPath);
    return 0;
}

int runEqualize(const Args& argv) {
    const Arguments args(argv, withInputOptions({"-o"}), {});
    const std::string inputPath = onlyInput(args, "equalize");
    const std::string outputPath = args.required("-o");
    checkOutputPath(outputPath);

    LoadedImage input;
    loadImage(inputPath, inputOptionsFrom(args), input);
    ZTI::ZTImage grey;
    const PfncFormat_ format = input.image.getPixelType();
    // 8-bit one-channel formats (Mono8 and the 8-bit Bayer mosaics) share the 0x0108 prefix.
    if ((format & 0xFFFF0000u) == 0x01080000u) {
        grey = std::move(input.image);
    } else if (ZTI::ImageConverterFactory::canConvert(ZTI::Mono8, format)) {
        ZTI::ZTImageFormatConverter converter;
        converter.setOutputFormat(ZTI::Mono8);
        if (converter.convert(grey, input.image) != 0) throw ToolError("converting '" + inputPath + "' to Mono8 failed");
    } else {
        throw ToolError("equalize takes 8-bit grey images or formats that convert to Mono8; '" + inputPath +
                        "' holds " + formatLabel(format));
    }
    ZTI::ZTImage output(grey.getPixelType(), grey.getWidth(), grey.getHeight());
    if (!output.isValid() || ZTI::histEqual(grey, output) != 0) throw ToolError("equalizing '" + inputPath + "' failed");
    writeImage(output, outputPath);
    return 0;
}

}  // namespace ztool
