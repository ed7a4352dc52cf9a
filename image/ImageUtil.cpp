#include <algorithm>
#include <cstring>

#include "ImageUtil.h"
#include "ZTImageImpl.h"

namespace imageutil {
namespace {

using ZTI::ZTImage;

// Copies the rows of `source` into `result` (same format and geometry). Reads never go past
// what the source may be read for (its stated size when it views a caller's buffer or a
// frame), writes never past the result's own allocation.
void copyRows(const ZTImage& source, ZTImage& result) {
    const unsigned char* src = source.getBuffer();
    unsigned char* dst = result.getBuffer();
    const size_t srcStride = source.getStride();
    const size_t dstStride = result.getStride();
    const size_t rows = source.getHeight();
    const uint64_t srcLimit = ZTI::readableBytes(source);
    const uint64_t dstLimit = ZTI::readableBytes(result);
    if (srcStride == 0 || dstStride == 0 || rows == 0) return;
    if (srcStride == dstStride) {
        uint64_t bytes = 0;
        if (__builtin_mul_overflow(static_cast<uint64_t>(srcStride), rows, &bytes)) bytes = UINT64_MAX;
        bytes = std::min({bytes, srcLimit, dstLimit});
        std::memcpy(dst, src, bytes);
        return;
    }
    const size_t rowBytes = std::min(srcStride, dstStride);
    for (size_t r = 0; r < rows; ++r) {
        const uint64_t srcEnd = r * srcStride + rowBytes, dstEnd = r * dstStride + rowBytes;
        if (srcEnd > srcLimit || dstEnd > dstLimit) break;
        std::memcpy(dst + r * dstStride, src + r * srcStride, rowBytes);
    }
}

}  // namespace

// Both clones copy an image made by create and then drop it, rather than taking it over: the
// pool sees two acquires and a release, and the source's pixels land in memory of the copy's
// own. A failed create gives an invalid temporary, whose copy is a default image.
std::shared_ptr<ZTImage> cloneShared(const ZTImage& source) {
    if (!source.isValid()) return nullptr;
    std::shared_ptr<ZTImage> result;
    {
        const ZTImage temporary = ZTImage::create(source.getPixelType(), source.getWidth(),
                                                  source.getHeight(), source.getpaddingX());
        result = std::make_shared<ZTImage>(temporary);
    }
    if (source.getBuffer() == nullptr || result->getBuffer() == nullptr) return nullptr;
    copyRows(source, *result);
    return result;
}

ZTImage cloneValue(const ZTImage& source) {
    ZTImage result;
    if (!source.isValid()) return result;
    {
        const ZTImage temporary = ZTImage::create(source.getPixelType(), source.getWidth(),
                                                  source.getHeight(), source.getpaddingX());
        result = temporary;
    }
    if (source.getBuffer() == nullptr || result.getBuffer() == nullptr) return result;
    copyRows(source, result);
    return result;
}

}  // namespace imageutil
