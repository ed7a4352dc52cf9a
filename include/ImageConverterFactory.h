// Which conversions exist, and the converter objects that perform them.
#pragma once

#include <memory>
#include <vector>

#include "ImageConverter.h"
#include "ZTExport.h"

namespace ZTI {

/// One (destination, source) pair of the library's conversion table.
struct ConversionInfo {
    PIXEL_TYPE dst;
    PIXEL_TYPE src;
    /// False for the few listed pairs whose converter has no colour code for them and would
    /// abort (deep BGR to RGB, and deep RGB/BGR to mono); callers should not request those.
    bool usable;
};

/// Makes converters from the library's conversion table. Stateless; callable from any thread.
class ZTI_API ImageConverterFactory {
public:
    /// A new converter for (dst, src), owned by the caller: a CopyConverter when the formats
    /// are equal (any format, even unknown ones), the registered class for a listed pair, and
    /// an empty pointer otherwise. Never modifies the table.
    std::unique_ptr<IImageConverter> createConverter(PIXEL_TYPE dst, PIXEL_TYPE src);

    /// Every listed pair in table order (destination, then source).
    static std::vector<ConversionInfo> listConversions();

    /// True when convert(dst, src) exists and runs: equal formats, or a usable listed pair.
    static bool canConvert(PIXEL_TYPE dst, PIXEL_TYPE src);
};

/// The preferred deeper destination of a source format, used when saving to files that take
/// 16-bit samples: Mono16 for Mono10/12/16, RGB8 for 8-bit Bayer, RGB16 for deeper Bayer and
/// RGB10/12/16; 0 for every other format.
ZTI_API PIXEL_TYPE getDestType(PfncFormat_ src);

/// OpenCV element type for a depth and channel count: CV_8UC(n) for 8 bits, CV_16UC(n) for
/// 9 to 16 bits, with 1 to 4 channels; -1 for anything else.
ZTI_API int get_cv_type(int bitsPerChannel, int channels);

}  // namespace ZTI
