// Reading the tool's inputs (raw camera frames and image files) and writing its outputs.
#pragma once

#include <string>
#include <vector>

#include "Arguments.h"
#include "ZTImage.h"

namespace ztool {

/// What a raw frame file holds, from --from, --width, --height and --padding. `format` also
/// reinterprets a one-channel image file (a Bayer mosaic saved as a grey PNG, for example).
struct InputOptions {
    PfncFormat_ format = 0;
    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int padding = 0;
    bool geometryGiven = false;
};

/// Reads --from, --width, --height and --padding (usage errors for bad values).
InputOptions inputOptionsFrom(const Arguments& args);

/// An input as the library sees it. A raw frame is attached as a camera frame would be, so
/// packed formats arrive unpacked; the image may view `bytes`, which therefore lives as long.
struct LoadedImage {
    std::vector<unsigned char> bytes;
    ZTI::ZTImage image;
    /// The format of the file's pixels before attaching (BayerRG12p for a frame that the
    /// image holds as BayerRG12).
    PfncFormat_ fileFormat = 0;
};

/// True when `path` names a raw frame file (extension .raw or .bin, any case).
bool isRawPath(const std::string& path);

/// Reads `path` as a raw frame when it has a raw extension or a geometry was given, otherwise
/// as an image file through OpenCV (8 or 16 bits, 1, 3 or 4 channels). Every failure is a
/// ToolError naming the file: unreadable, undecodable, a size that does not match the
/// geometry, a format the library cannot hold.
void loadImage(const std::string& path, const InputOptions& options, LoadedImage& loaded);

/// Fails with a usage error unless `path` ends in an extension the tool can write (.raw or an
/// image file type), so a long job does not fail only at its end.
void checkOutputPath(const std::string& path);

/// Writes `image` to `path`: the pixels as they are for .raw (rows packed), otherwise an image
/// file whose codec the extension chooses. The file appears complete or not at all: it is
/// written under a temporary name and renamed, and SIGINT and SIGTERM are held until the save
/// has ended, so an interrupted tool leaves no temporary file. Failures are ToolErrors with
/// the reason (the system's for a full disk or a size limit).
void writeImage(const ZTI::ZTImage& image, const std::string& path);

/// Makes SIGINT and SIGTERM end the tool with 128 + the signal, at once, or when the saves
/// under way have ended. Called once by main, before any work.
void installInterruptHandlers();

/// Fails with a ToolError naming `path` when `image` is a 4:2:2 format of odd width, which the
/// library cannot convert (its pixels share colour in pairs).
void checkPixelPairs(const ZTI::ZTImage& image, const std::string& path);

/// `directory` exists afterwards (made with its parents if needed), or a ToolError says why not.
void makeDirectory(const std::string& directory);

}  // namespace ztool
