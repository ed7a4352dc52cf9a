// ztimage: the image library from the command line.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "Commands.h"
#include "ImageFiles.h"
#include "ToolError.h"

#ifndef ZTIMAGE_VERSION
#error "ZTIMAGE_VERSION must be defined by the build"
#endif

namespace ztool {
namespace {

const char* const kToolHelp =
    "usage: ztimage COMMAND [ARGS...]\n"
    "       ztimage COMMAND --help\n"
    "       ztimage --version\n"
    "\n"
    "Machine-vision images from the command line: camera frames through every pipeline of the\n"
    "image library, format conversion, polarization products and contrast enhancement.\n"
    "\n"
    "commands:\n"
    "  demo      stream frames from virtual cameras through every pipeline, save the results\n"
    "            and show the time each stage takes\n"
    "  convert   convert raw frames or image files to another pixel format\n"
    "  polar     polarization products of a polarized-sensor frame\n"
    "  stretch   map a sample range onto the full range (Mono8, Mono12)\n"
    "  equalize  equalize the histogram of a grey image\n"
    "  formats   the pixel formats the library knows and the conversions between them\n"
#ifdef ZT_HAVE_GENICAM
    "  cameras   list GenICam cameras (GigE Vision, USB3 Vision, simulated)\n"
    "  grab      grab frames from a GenICam camera, convert and save them\n"
#endif
    "\n"
    "Pixel formats are PFNC names (Mono8, BayerRG12p, RGB8 ...), in any case.\n"
    "Exit status: 0 success, 1 a file or an operation failed, 2 a wrong command line,\n"
    "128 + N when ended by signal N (SIGINT, SIGTERM; a file being saved is finished first).\n";

struct Command {
    const char* name;
    int (*run)(const Args&);
    const char* help;
};

const Command kCommands[] = {
    {"demo", &runDemo, kDemoHelp},           {"convert", &runConvert, kConvertHelp},
    {"polar", &runPolar, kPolarHelp},        {"stretch", &runStretch, kStretchHelp},
    {"equalize", &runEqualize, kEqualizeHelp}, {"formats", &runFormats, kFormatsHelp},
#ifdef ZT_HAVE_GENICAM
    {"cameras", &runCameras, kCamerasHelp},  {"grab", &runGrab, kGrabHelp},
#endif
};

bool asksForHelp(const Args& args) {
    for (const std::string& arg : args) {
        if (arg == "--") return false;
        if (arg == "--help" || arg == "-h") return true;
    }
    return false;
}

int run(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(kToolHelp, stderr);
        return kExitUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        std::fputs(kToolHelp, stdout);
        return 0;
    }
    if (name == "--version") {
        std::printf("ztimage %s\n", ZTIMAGE_VERSION);
        return 0;
    }
    const Args args(argv + 2, argv + argc);
    for (const Command& command : kCommands) {
        if (name != command.name) continue;
        if (asksForHelp(args)) {
            std::fputs(command.help, stdout);
            return 0;
        }
        return command.run(args);
    }
    throw usageError("unknown command '" + name + "' (ztimage --help lists them)");
}

}  // namespace

void reportError(const std::string& message) { std::fprintf(stderr, "ztimage: %s\n", message.c_str()); }

}  // namespace ztool

int main(int argc, char** argv) {
    ztool::installInterruptHandlers();
    try {
        return ztool::run(argc, argv);
    } catch (const ztool::ToolError& error) {
        ztool::reportError(error.what());
        return error.status();
    } catch (const std::bad_alloc&) {
        ztool::reportError("out of memory");
        return ztool::kExitFailure;
    } catch (const std::exception& error) {
        // OpenCV and the standard library say what went wrong in their own words.
        ztool::reportError(error.what());
        return ztool::kExitFailure;
    }
}
