// ztimage convert: pixel-format conversion of raw frames and image files, one or a batch.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Commands.h"
#include "FormatNames.h"
#include "ImageConverterFactory.h"
#include "ImageFiles.h"
#include "Progress.h"
#include "ToolError.h"
#include "ZTImageFormatConverter.h"

namespace ztool {

const char* const kConvertHelp =
    "usage: ztimage convert INPUT... --to FORMAT (-o OUTPUT | --out-dir DIR [--ext EXT])\n"
    "                       [--from FORMAT --width W --height H [--padding P]] [--demosaic ha|quality]\n"
    "\n"
    "Converts images to the pixel format FORMAT (a PFNC name such as RGB8 or Mono16, any case)\n"
    "and writes them as image files or raw pixels.\n"
    "\n"
    "INPUT     a raw frame file (extension .raw or .bin, or any file when --width is given),\n"
    "          described by --from, --width, --height and --padding (bytes at the end of each\n"
    "          row); packed 10- and 12-bit frames are unpacked as camera frames are. Otherwise\n"
    "          an image file OpenCV reads: 8 or 16 bits, grey or colour. --from then\n"
    "          reinterprets a grey file, e.g. as BayerRG8 or Mono12.\n"
    "-o        the output file: .raw writes the pixels of FORMAT with packed rows; .png .tif\n"
    "          .tiff .pgm .ppm .pnm keep 16-bit samples; .bmp .jpg .jpeg take 8 bits.\n"
    "--out-dir converts every INPUT into DIR, named after the input with extension EXT\n"
    "          (default .png). Inputs that would share an output name are refused before\n"
    "          anything is written.\n"
    "--demosaic how Bayer frames are demosaiced: ha (Hamilton-Adams, the default) or quality\n"
    "          (residual interpolation: finer detail and cleaner colour edges, slower).\n"
    "\n"
    "ztimage formats lists the formats and the conversions that exist.\n";

namespace {

// How a loaded input is named in messages: the file's format, and what the library made of it
// when that differs (a packed frame is unpacked).
std::string describeSource(const LoadedImage& input) {
    const PfncFormat_ held = input.image.getPixelType();
    if (held == input.fileFormat) return formatLabel(held);
    return formatLabel(input.fileFormat) + " (read as " + formatLabel(held) + ")";
}

void convertOne(const std::string& inputPath, const std::string& outputPath, PfncFormat_ target,
                const InputOptions& options, ZTI::ZTImageFormatConverter& converter) {
    LoadedImage input;
    loadImage(inputPath, options, input);
    const PfncFormat_ source = input.image.getPixelType();
    if (source == target) {
        writeImage(input.image, outputPath);
        return;
    }
    checkPixelPairs(input.image, inputPath);
    if (!ZTI::ImageConverterFactory::canConvert(target, source)) {
        throw ToolError("no conversion from " + describeSource(input) + " to " + formatLabel(target) + "; " +
                        formatLabel(source) + " converts to: " + formatList(conversionTargets(source)));
    }
    // Checked above: the target is one the converter accepts, so setOutputFormat cannot abort.
    converter.setOutputFormat(target);
    ZTI::ZTImage output;
    if (converter.convert(output, input.image) != 0) {
        // The pair is convertible and the input's memory holds its rows: what is left to fail
        // is the allocation of the result.
        throw ToolError("converting '" + inputPath + "' to " + formatLabel(target) + " failed: out of memory");
    }
    writeImage(output, outputPath);
}

std::string outputPathIn(const std::string& directory, const std::string& input, const std::string& extension) {
    const size_t slash = input.find_last_of('/');
    std::string name = slash == std::string::npos ? input : input.substr(slash + 1);
    const size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    return directory + "/" + name + extension;
}

// Inputs of the same name in different folders would overwrite each other's output: found
// before anything is read or written, as a usage error naming every such group.
void checkDistinctOutputs(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs) {
    std::map<std::string, std::vector<std::string>> sources;
    for (size_t i = 0; i < inputs.size(); ++i) sources[outputs[i]].push_back(inputs[i]);
    std::string clashes;
    for (const auto& [output, named] : sources) {
        if (named.size() < 2) continue;
        clashes += clashes.empty() ? "" : "; ";
        for (size_t i = 0; i < named.size(); ++i) clashes += (i == 0 ? "" : i + 1 == named.size() ? " and " : ", ") + named[i];
        clashes += (named.size() == 2 ? " would both be written to " : " would all be written to ") + output;
    }
    if (!clashes.empty()) throw usageError("output names collide, nothing written: " + clashes);
}

}  // namespace

int runConvert(const Args& argv) {
    const Arguments args(argv, {"--to", "-o", "--out-dir", "--ext", "--from", "--width", "--height", "--padding",
                                "--demosaic"},
                         {});
    const std::vector<std::string>& inputs = args.positional();
    if (inputs.empty()) throw usageError("convert needs at least one INPUT");
    const PfncFormat_ target = parseFormat(args.required("--to"));
    const InputOptions options = inputOptionsFrom(args);
    if (args.has("-o") == args.has("--out-dir")) throw usageError("convert needs either -o OUTPUT or --out-dir DIR");
    if (args.has("-o") && inputs.size() > 1) throw usageError("several inputs need --out-dir DIR, not -o");
    if (args.has("--ext") && !args.has("--out-dir")) throw usageError("--ext applies to --out-dir only");

    ZTI::ZTImageFormatConverter converter;
    if (args.has("--demosaic")) converter.setDemosaicMethod(parseDemosaicMethod(args.required("--demosaic")));
    if (args.has("-o")) {
        const std::string output = args.required("-o");
        checkOutputPath(output);
        convertOne(inputs.front(), output, target, options, converter);
        return 0;
    }

    std::string extension = args.value("--ext").value_or(".png");
    if (extension.empty() || extension[0] != '.') extension = "." + extension;
    checkOutputPath("output" + extension);
    const std::string directory = args.required("--out-dir");
    std::vector<std::string> outputs;
    for (const std::string& input : inputs) outputs.push_back(outputPathIn(directory, input, extension));
    checkDistinctOutputs(inputs, outputs);
    makeDirectory(directory);
    // A batch goes on past a bad file: each failure gets its line, and the status tells.
    int status = 0;
    Progress progress("converting", inputs.size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        const std::string& input = inputs[i];
        try {
            convertOne(input, outputs[i], target, options, converter);
        } catch (const ToolError& error) {
            progress.clear();
            reportError(error.what());
            status = kExitFailure;
        }
        progress.step();
    }
    return status;
}

}  // namespace ztool
