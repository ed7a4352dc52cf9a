#include "PolarizationBridge.h"

#include <climits>
#include <cstring>
#include <utility>

#include "ImageConverterFactory.h"
#include "ZTImageFormatConverter.h"
#include "ZTImageImpl.h"

namespace ZTI {
namespace polarization {

uint64_t spannedBytes(const ZTImage& image) {
    return getSpannedByteCount(image.getWidth(), image.getStride(), image.getHeight());
}

bool isReadableMono8(const ZTImage& image) {
    // The record's fields are ints: larger images cannot be described.
    return image.isValid() && image.getPixelType() == Mono8 && image.getWidth() <= INT_MAX &&
           image.getHeight() <= INT_MAX && image.getStride() <= INT_MAX &&
           readableBytes(image) >= spannedBytes(image);
}

const ZTImage* mono8Source(const ZTImage& src, ZTImage& converted) {
    if (!src.isValid()) return nullptr;
    if (src.getPixelType() == Mono8) return isReadableMono8(src) ? &src : nullptr;
    // Listed pairs whose converter has no colour code (deep RGB and BGR to mono) would stop
    // the process inside convert; a frame's format is data, so they count as no conversion.
    if (!ImageConverterFactory::canConvert(Mono8, src.getPixelType())) return nullptr;
    ZTImageFormatConverter converter;
    converter.setOutputFormat(Mono8);
    if (converter.convert(converted, src) != 0) return nullptr;
    return isReadableMono8(converted) ? &converted : nullptr;
}

pol::ImageInfo describe(const ZTImage& image) {
    pol::ImageInfo in;
    in.width = static_cast<int>(image.getWidth());
    in.height = static_cast<int>(image.getHeight());
    in.stride = static_cast<int>(image.getStride());
    in.data = image.getBuffer();  // read only: the library never writes its input
    in.kind = pol::kMono8;
    return in;
}

bool isFilled(const pol::ImageInfo& out) {
    return out.data != nullptr && out.width > 0 && out.height > 0;
}

bool publish(const pol::ImageInfo& out, PfncFormat_ format, unsigned bytesPerPixel, ZTImage& dst) {
    pol::ImageInfo packed;
    packed.width = out.width;
    packed.height = out.height;
    packed.data = out.data;
    return publishRows(packed, format, bytesPerPixel, dst);
}

bool publishRows(const pol::ImageInfo& out, PfncFormat_ format, unsigned bytesPerPixel, ZTImage& dst) {
    if (!isFilled(out)) return false;
    const auto width = static_cast<unsigned>(out.width);
    const auto height = static_cast<unsigned>(out.height);
    const size_t rowBytes = static_cast<size_t>(bytesPerPixel) * width;
    ZTImage result;
    if (out.stride <= 0 || static_cast<size_t>(out.stride) <= rowBytes) {
        result = ZTImage(format, width, height, 0, out.data);
    } else {
        const auto stride = static_cast<size_t>(out.stride);
        result = ZTImage::create(format, width, height);
        if (result.isValid()) {
            unsigned char* to = result.getBuffer();
            const size_t toStride = result.getStride();
            for (unsigned y = 0; y < height; ++y)
                std::memcpy(to + y * toStride, out.data + y * stride, rowBytes);
        }
    }
    if (!result.isValid()) return false;
    dst = std::move(result);
    return true;
}

}  // namespace polarization
}  // namespace ZTI
