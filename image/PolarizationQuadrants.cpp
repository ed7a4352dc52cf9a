// Single polarizer-angle planes of polarized-sensor frames and their 2 x 2 tiling.
#include <cstring>

#include "Polarization.h"
#include "PolarizationBridge.h"
#include "PolarizationProducts.h"
#include "ZTImageImpl.h"

namespace ZTI {

namespace {

using polarization::isFilled;
using polarization::mono8Source;

/// A record of the whole 2 x 2 cells of the Mono8 `image`: the library reads mosaics of even
/// size, and an odd last row or column belongs to no cell.
pol::ImageInfo describeCells(const ZTImage& image) {
    pol::ImageInfo in = polarization::describe(image);
    in.width &= ~1;
    in.height &= ~1;
    return in;
}

/// A 16-bit sample that may sit at any address (caller buffers need not be aligned); unlike a
/// two-byte struct it is a scalar, so the copy loop below vectorizes.
typedef uint16_t UnalignedWord __attribute__((aligned(1)));

/// One row pair of the tiling: the even and odd source rows into the top and bottom halves.
/// The restrict-qualified parameters tell the compiler the rows do not overlap, which it needs
/// to vectorize.
template <typename T>
void tileRowPair(const T* __restrict even, const T* __restrict odd, T* __restrict top,
                 T* __restrict bottom, size_t w) {
    for (size_t c = 0; c < w; ++c) {
        top[c] = even[2 * c];
        top[w + c] = even[2 * c + 1];
        bottom[c] = odd[2 * c];
        bottom[w + c] = odd[2 * c + 1];
    }
}

/// Copies the 2 x 2 cells of a packed source of `width` x `height` elements of type T into
/// the four quadrants of a packed destination of the same size.
template <typename T>
void tileCells(const unsigned char* src, unsigned char* dst, size_t width, size_t height) {
    const size_t w = width / 2;
    const size_t h = height / 2;
    const T* from = reinterpret_cast<const T*>(src);
    T* to = reinterpret_cast<T*>(dst);
    for (size_t r = 0; r < h; ++r)
        tileRowPair(from + 2 * r * width, from + (2 * r + 1) * width, to + r * width,
                    to + (h + r) * width, w);
}

/// Bytes from the start of a packed image of `width` x `height` elements to the end of the
/// last element that the tiling reads or writes: row 2h - 1, column 2w - 1.
uint64_t tiledBytes(uint64_t width, uint64_t height, uint64_t elementSize) {
    return ((height / 2 * 2 - 1) * width + width / 2 * 2) * elementSize;
}

}  // namespace

int ExtractPolarQuadrant(const ZTImage& src, ZTImage& dst, PolarizationQuadrant quadrant) {
    using Extract = void (*)(const pol::ImageInfo&, pol::ImageInfo&);
    static const Extract kExtract[] = {pol::ExtractPolarQuadrantI0, pol::ExtractPolarQuadrantI45,
                                       pol::ExtractPolarQuadrantI90, pol::ExtractPolarQuadrantI135};
    const int index = static_cast<int>(quadrant);
    if (index < 0 || index > 3) return -1;
    ZTImage converted;
    const ZTImage* mosaic = mono8Source(src, converted);
    if (mosaic == nullptr) return -1;
    const pol::ImageInfo in = describeCells(*mosaic);
    pol::ImageInfo plane;
    kExtract[index](in, plane);
    return polarization::publish(plane, Mono8, 1, dst) ? 0 : -1;
}

int ExtractFullPolarQuadrant(const ZTImage& src, ZTImage& dst) {
    ZTImage converted;
    const ZTImage* mosaic = mono8Source(src, converted);
    if (mosaic == nullptr) return -1;
    // Rows are described as packed (stride = width) whatever the image's padding; the tiling
    // below addresses the destination the same way. The library never writes its input, so
    // the four calls share the pixels.
    pol::ImageInfo in = describeCells(*mosaic);
    in.stride = static_cast<int>(mosaic->getWidth());
    pol::ImageInfo i0, i45, i90, i135;
    pol::ExtractPolarQuadrantI0(in, i0);
    pol::ExtractPolarQuadrantI45(in, i45);
    pol::ExtractPolarQuadrantI90(in, i90);
    pol::ExtractPolarQuadrantI135(in, i135);

    const size_t width = mosaic->getWidth();
    const size_t w = width / 2;
    const size_t h = src.getHeight() / 2;
    const bool copies = w > 0 && h > 0;
    // Each plane is read as h packed rows of w bytes: check that the library gave that much
    // before the destination is touched.
    for (const pol::ImageInfo* plane : {&i0, &i45, &i90, &i135})
        if (copies && (!isFilled(*plane) || static_cast<size_t>(plane->width) != w ||
                       plane->stride != plane->width || static_cast<size_t>(plane->height) < h))
            return -1;

    dst.reset(Mono8, src.getWidth(), src.getHeight());
    if (!dst.isValid()) return -1;
    if (!copies) return 0;
    unsigned char* out = dst.getBuffer();
    for (size_t r = 0; r < h; ++r) {
        unsigned char* top = out + r * width;
        unsigned char* bottom = out + (h + r) * width;
        std::memcpy(top, i90.data + r * w, w);
        std::memcpy(top + w, i45.data + r * w, w);
        std::memcpy(bottom, i135.data + r * w, w);
        std::memcpy(bottom + w, i0.data + r * w, w);
    }
    return 0;
}

int extractFullPolarQuadrant(const ZTImage& src, ZTImage& dst) {
    if (!src.isValid()) return -1;
    const unsigned bits = getBitsPerChannel(src.getPixelType());
    const unsigned elementSize = bits <= 8 ? 1 : bits <= 16 ? 2 : 0;
    const uint64_t width = src.getWidth();
    const uint64_t height = src.getHeight();
    const bool copies = elementSize != 0 && width > 1 && height > 1;
    if (copies && readableBytes(src) < tiledBytes(width, height, elementSize)) return -1;

    // Tiling an image onto itself: reset would free the pixels still to be read.
    ZTImage aliasCopy;
    const ZTImage* source = &src;
    if (&src == &dst && copies) {
        aliasCopy = src;
        source = &aliasCopy;
    }
    dst.reset(src.getPixelType(), src.getWidth(), src.getHeight());
    if (!dst.isValid()) return -1;
    if (!copies) return 0;
    if (readableBytes(dst) < tiledBytes(width, height, elementSize)) return -1;
    if (elementSize == 1)
        tileCells<uint8_t>(source->getBuffer(), dst.getBuffer(), width, height);
    else
        tileCells<UnalignedWord>(source->getBuffer(), dst.getBuffer(), width, height);
    return 0;
}

}  // namespace ZTI
