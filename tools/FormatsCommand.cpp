// ztimage formats: the pixel formats the library knows and the conversions between them,
// read from the library's own tables.
#include <cstdio>

#include "Arguments.h"
#include "Commands.h"
#include "FormatNames.h"
#include "ToolError.h"

namespace ztool {

const char* const kFormatsHelp =
    "usage: ztimage formats [--convertible] [FORMAT...]\n"
    "\n"
    "Lists every pixel format the library knows: its PFNC code, bits per channel, the format a\n"
    "camera frame of it is read as (packed frames are unpacked), and the formats it converts\n"
    "to and from. --convertible leaves out formats without any conversion. With FORMAT names,\n"
    "describes those formats only, one block each.\n";

namespace {

// What a camera frame of the format becomes in the library.
std::string readAs(PfncFormat_ code) {
    const PfncFormat_ held = attachedFormat(code);
    if (held == code) return "";
    return held == 0 ? "unreadable" : formatLabel(held);
}

// Conversions that apply to frames of `code`: those of the format it is read as.
std::vector<PfncFormat_> targetsOfFrames(PfncFormat_ code) {
    const PfncFormat_ held = attachedFormat(code);
    return held == 0 ? std::vector<PfncFormat_>{} : conversionTargets(held);
}

void describe(PfncFormat_ code, unsigned int bits) {
    std::printf("%s (0x%08X), %u bits per channel\n", formatLabel(code).c_str(), static_cast<unsigned int>(code), bits);
    const std::string held = readAs(code);
    if (!held.empty()) {
        std::printf("  read as:        %s\n",
                    held == "unreadable" ? "nothing: the library cannot hold frames of this layout"
                                         : (held + " (camera frames are unpacked)").c_str());
    }
    std::printf("  converts to:    %s\n", formatList(targetsOfFrames(code)).c_str());
    std::printf("  converted from: %s\n", formatList(conversionSources(code)).c_str());
}

}  // namespace

int runFormats(const Args& argv) {
    const Arguments args(argv, {}, {"--convertible"});
    if (!args.positional().empty()) {
        for (const std::string& name : args.positional()) {
            const PfncFormat_ code = parseFormat(name);
            describe(code, ZTI::getBitsPerChannel(code));
        }
        return 0;
    }
    const bool convertibleOnly = args.has("--convertible");
    std::printf("%-26s %-10s %4s  %-11s  %-42s  %s\n", "FORMAT", "CODE", "BITS", "READ AS", "CONVERTS TO",
                "CONVERTED FROM");
    for (const ZTI::PixelFormatInfo& info : ZTI::getPixelFormats()) {
        const std::vector<PfncFormat_> targets = targetsOfFrames(info.code), sources = conversionSources(info.code);
        if (convertibleOnly && targets.empty() && sources.empty()) continue;
        const std::string to = formatList(targets), from = formatList(sources);
        const std::string held = readAs(info.code);
        std::printf("%-26s 0x%08X %4u  %-11s  %-42s  %s\n", info.name ? info.name : "(unnamed)",
                    static_cast<unsigned int>(info.code), info.bitsPerChannel, held.empty() ? "-" : held.c_str(),
                    to.c_str(), from.c_str());
    }
    return 0;
}

}  // namespace ztool
