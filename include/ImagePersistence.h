// Saving images to files.
#pragma once

#include <string>

#include "ZTExport.h"
#include "ZTImage.h"

namespace ZTI {

/// File formats by the depth they can hold. Only the split matters to saving: Bmp and Jpeg take
/// 8-bit samples only; Png, Tiff and Pnm (PGM or PPM, by the path) also take 16-bit samples.
/// The codec itself is always chosen from the path's extension.
enum ImageFileFormat : int {
    Bmp = 0,
    Jpeg = 1,
    Png = 2,
    Tiff = 3,
    Pnm = 4,
};

/// Writes images to files through OpenCV's codecs.
class ZTI_API ImagePersistence {
public:
    ImagePersistence() {}

    /// Writes `image` to `path`. Colour formats (RGB, BGR, YUV, Bayer ...) are saved as RGB8,
    /// or for Png/Tiff/Pnm as RGB16 when the source is deeper than 8 bits (deep Bayer, RGB10/12/16);
    /// mono formats as Mono8, or for Png/Tiff/Pnm as Mono16 from Mono10/12/16. The image is
    /// converted first when needed; the caller's image is never modified. Rows are written
    /// packed (row padding is not skipped). The file appears complete or not at all: it is
    /// written under a temporary name beside `path` and renamed. A codec failure (also an
    /// extension no codec knows) is not reported, nor is an image that is empty or holds less
    /// memory than its rows span (nothing is written then). A format that cannot be converted
    /// to its file format is a programming error and aborts (use trySave or canSave to check
    /// first). Memory exhaustion raises std::bad_alloc. Thread-safe for distinct images.
    static void save(ImageFileFormat format, const ZTImage& image, const char* path);

    /// Like save, but reports every failure instead and never throws: returns false and sets
    /// `error` to a one-line reason when the image is invalid or cannot be converted, the path
    /// is null, the codec refuses the image, or the file could not be written (with the
    /// system's reason: "No space left on device", "File too large", "Permission denied" ...).
    /// The file is encoded in memory, written in full under a temporary name beside `path`,
    /// flushed to the device and renamed; on failure the temporary file is removed and `path`
    /// keeps what it held before. Thread-safe for distinct images.
    static bool trySave(ImageFileFormat format, const ZTImage& image, const char* path, std::string& error);

    /// True when an image of `pixelType` can be saved with `format`.
    static bool canSave(ImageFileFormat format, PfncFormat_ pixelType);

    /// The pixel format `save` writes for an image of `pixelType` with `format`.
    static PfncFormat_ fileFormatOf(ImageFileFormat format, PfncFormat_ pixelType);
};

}  // namespace ZTI
