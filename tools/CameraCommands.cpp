// ztimage cameras and ztimage grab: GenICam cameras through the GenICam library.
#include <chrono>
#include <cstdio>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "FormatNames.h"
#include "GenICamCamera.h"
#include "ImageConverterFactory.h"
#include "ImageFiles.h"
#include "Progress.h"
#include "ToolError.h"
#include "ZTImageFormatConverter.h"

namespace ztool {

const char* const kCamerasHelp =
    "usage: ztimage cameras [--interface all|gige|usb3|fake]\n"
    "\n"
    "Lists the GenICam cameras found on the interface (default all). Looking for GigE Vision\n"
    "cameras (all, gige) sends a discovery broadcast on every network of the machine; fake is\n"
    "Aravis's simulated camera inside this process and sends nothing.\n";

const char* const kGrabHelp =
    "usage: ztimage grab [--camera ID] [--interface all|gige|usb3|fake] [--format FORMAT]\n"
    "                    [--width W --height H] [--frames N] [--to FORMAT] [--demosaic ha|quality]\n"
    "                    (-o FILE | --out-dir DIR [--ext EXT])\n"
    "\n"
    "Grabs N frames (default 1) from a GenICam camera, reads packed frames by their published\n"
    "layouts, converts them to --to (default: kept as they are) and saves them, then prints\n"
    "frames per second, incomplete frames and underruns.\n"
    "\n"
    "--camera  a device id from ztimage cameras or a GigE Vision camera's IP address (opened\n"
    "          directly); default: the first camera found on the interface\n"
    "--format  the camera's pixel format, --width and --height its region; default: the\n"
    "          camera's own settings\n"
    "--demosaic how Bayer frames are demosaiced for --to: ha (Hamilton-Adams, the default) or\n"
    "          quality\n"
    "-o        one frame into FILE (N must be 1); --out-dir writes frame-000000.EXT ... into\n"
    "          DIR (EXT default .png)\n";

namespace {

ZTI::GenICamInterfaces interfaceFrom(const Arguments& args) {
    const std::string name = args.value("--interface").value_or("all");
    if (name == "all") return ZTI::GenICamInterfaces::All;
    if (name == "gige") return ZTI::GenICamInterfaces::GigEVision;
    if (name == "usb3") return ZTI::GenICamInterfaces::USB3Vision;
    if (name == "fake") return ZTI::GenICamInterfaces::Fake;
    throw usageError("unknown interface '" + name + "' (all, gige, usb3 or fake)");
}

std::string framePath(const std::string& directory, unsigned index, const std::string& extension) {
    char name[32];
    std::snprintf(name, sizeof name, "frame-%06u", index);
    return directory + "/" + name + extension;
}

}  // namespace

int runCameras(const Args& argv) {
    const Arguments args(argv, {"--interface"}, {});
    if (!args.positional().empty()) throw usageError("cameras takes no arguments");
    std::string error;
    const auto devices = ZTI::GenICamCamera::list(interfaceFrom(args), &error);
    if (!error.empty()) throw ToolError(error);
    if (devices.empty()) {
        std::printf("no cameras found\n");
        return 0;
    }
    const char* const format = "%-24s %-16s %-24s %-16s %-16s %s\n";
    std::printf(format, "ID", "VENDOR", "MODEL", "SERIAL", "ADDRESS", "PROTOCOL");
    for (const ZTI::GenICamDeviceInfo& d : devices) {
        std::printf(format, d.id.c_str(), d.vendor.c_str(), d.model.c_str(), d.serial.c_str(),
                    d.address.c_str(), d.protocol.c_str());
    }
    return 0;
}

int runGrab(const Args& argv) {
    const Arguments args(argv, {"--camera", "--interface", "--format", "--width", "--height", "--frames",
                                "--to", "-o", "--out-dir", "--ext", "--demosaic"},
                         {});
    if (!args.positional().empty()) throw usageError("grab takes no positional arguments");
    if (args.has("-o") == args.has("--out-dir")) throw usageError("grab needs either -o FILE or --out-dir DIR");
    const unsigned frames = args.number("--frames", 1, 1, 1000000);
    if (args.has("-o") && frames != 1) throw usageError("-o writes one frame; use --out-dir for --frames " + std::to_string(frames));
    const std::string extension = args.value("--ext").value_or(".png");
    const std::string output = args.has("-o") ? *args.value("-o") : framePath(*args.value("--out-dir"), 0, extension);
    checkOutputPath(output);
    const PfncFormat_ target = args.has("--to") ? parseFormat(*args.value("--to")) : 0;

    ZTI::GenICamCameraConfig config;
    config.interfaces = interfaceFrom(args);
    config.deviceId = args.value("--camera").value_or("");
    if (args.has("--format")) config.pixelType = parseFormat(*args.value("--format"));
    config.width = args.number("--width", 0, 1, 1u << 16);
    config.height = args.number("--height", 0, 1, 1u << 16);
    std::string error;
    std::unique_ptr<ZTI::GenICamCamera> camera = ZTI::GenICamCamera::open(config, &error);
    if (!camera) throw ToolError(error);
    if (args.has("--out-dir")) makeDirectory(*args.value("--out-dir"));
    if (!camera->start(&error)) throw ToolError(error);

    ZTI::ZTImageFormatConverter converter;
    if (target != 0) converter.setOutputFormat(target);
    if (args.has("--demosaic")) converter.setDemosaicMethod(parseDemosaicMethod(args.required("--demosaic")));
    Progress progress("grab", frames);
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned i = 0; i < frames; ++i) {
        ZTI::ZTGrabResultPtr frame = camera->grab(std::chrono::seconds(5));
        if (!frame) throw ToolError("no frame from the camera within 5 s (frame " + std::to_string(i) + ")");
        ZTI::ZTImage image;
        image.attachGrabResult(frame, ZTI::PackedLayout::Published);
        frame.Release();  // unpacked frames are copies; viewed ones stay alive in the image
        ZTI::ZTImage converted;
        const bool convert = target != 0 && image.getPixelType() != target;
        // Checked on the first frame, before anything is written: the format the frame is held
        // in (packed frames arrive unpacked) is the one that must convert.
        if (convert && i == 0 && !ZTI::ImageConverterFactory::canConvert(target, image.getPixelType()))
            throw ToolError("no conversion from " + formatLabel(image.getPixelType()) + " to " + formatLabel(target) +
                            "; it converts to: " + formatList(conversionTargets(image.getPixelType())));
        if (convert && converter.convert(converted, image) != 0)
            throw ToolError("converting frame " + std::to_string(i) + " to " + formatLabel(target) + " failed");
        const std::string path = args.has("-o") ? output : framePath(*args.value("--out-dir"), i, extension);
        writeImage(convert ? converted : image, path);
        progress.step();
    }
    progress.finish();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    const ZTI::GenICamStreamStats stats = camera->stats();
    std::printf("grabbed %u frames of %s %u x %u in %.2f s: %.1f frames/s, %llu incomplete, %llu underruns\n",
                frames, formatLabel(camera->pixelType()).c_str(), camera->width(), camera->height(), seconds,
                seconds > 0 ? frames / seconds : 0.0, static_cast<unsigned long long>(stats.incomplete),
                static_cast<unsigned long long>(stats.underruns));
    return 0;
}

}  // namespace ztool
