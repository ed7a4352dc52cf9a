// Pixel-format names as the user types them and as the tool prints them.
#pragma once

#include <string>
#include <vector>

#include "ImageConverter.h"
#include "PixelFormat.h"

namespace ztool {

/// The code of a PFNC name, compared without regard to case, or of a hexadecimal code such as
/// 0x01080001 that the library knows. An unknown name is a usage error that suggests the
/// closest known names.
PfncFormat_ parseFormat(const std::string& name);

/// The demosaic named by the value of --demosaic: "ha" (Hamilton-Adams, the default) or
/// "quality"; anything else is a usage error that names the choices.
ZTI::DemosaicMethod parseDemosaicMethod(const std::string& name);

/// The PFNC name of a code, or its hexadecimal code when the library has no name for it: the
/// library's own label, so the tool and the library name formats alike.
std::string formatLabel(PfncFormat_ code);

/// Labels of several codes, separated by ", "; "none" for an empty list.
std::string formatList(const std::vector<PfncFormat_>& codes);

/// The format an image of `code` has once a camera frame of that format is attached: the
/// unpacked format for packed 10- and 12-bit frames, 0 for layouts the library cannot hold,
/// `code` itself otherwise, as the library's format table says.
PfncFormat_ attachedFormat(PfncFormat_ code);

/// Formats the library converts `src` into (usable conversions only), in table order.
std::vector<PfncFormat_> conversionTargets(PfncFormat_ src);

/// Formats the library converts into `dst`, in table order.
std::vector<PfncFormat_> conversionSources(PfncFormat_ dst);

}  // namespace ztool
