// The subcommands of ztimage. Each takes the arguments after its name and returns the exit
// status; failures are thrown as ToolError.
#pragma once

#include <string>
#include <vector>

namespace ztool {

using Args = std::vector<std::string>;

int runDemo(const Args& args);
int runConvert(const Args& args);
int runPolar(const Args& args);
int runStretch(const Args& args);
int runEqualize(const Args& args);
int runFormats(const Args& args);
int runCameras(const Args& args);  // built with the GenICam library only
int runGrab(const Args& args);

/// Help texts, printed for `ztimage COMMAND --help`.
extern const char* const kDemoHelp;
extern const char* const kConvertHelp;
extern const char* const kPolarHelp;
extern const char* const kStretchHelp;
extern const char* const kEqualizeHelp;
extern const char* const kFormatsHelp;
extern const char* const kCamerasHelp;
extern const char* const kGrabHelp;

/// Prints "ztimage: MESSAGE" on standard error: the one line every failure gets.
void reportError(const std::string& message);

}  // namespace ztool
