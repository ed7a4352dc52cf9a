// Between images and the polarization library: the Mono8 image it reads, the record that
// describes it, and the copy of a result into an image.
#pragma once

#include "Polarization.h"
#include "ZTImage.h"

namespace ZTI {
namespace polarization {

/// Bytes that rows of an 8-bit image span when read through its stride: (height - 1) x stride
/// + width.
uint64_t spannedBytes(const ZTImage& image);

/// True when `image` is a valid Mono8 image whose memory holds every row its stride spans and
/// whose sizes fit the library's record fields.
bool isReadableMono8(const ZTImage& image);

/// The Mono8 image the library reads: `src` itself when it is Mono8 (the library never writes
/// its input, so a copy would buy nothing), else `src` converted into `converted` by a
/// ZTImageFormatConverter. Null when `src` is invalid, has no conversion to Mono8, or the
/// image is not readable (isReadableMono8).
const ZTImage* mono8Source(const ZTImage& src, ZTImage& converted);

/// A record describing the Mono8 `image` for the library: width, height, stride and pixels.
pol::ImageInfo describe(const ZTImage& image);

/// True when the library filled `out` with at least one pixel.
bool isFilled(const pol::ImageInfo& out);

/// Replaces `dst` by an image in `format` of `bytesPerPixel` bytes per pixel made of the first
/// width x height x bytesPerPixel bytes of the library output `out`. The output's stride is not
/// read: the library's 8-bit products are packed by its contract. False, `dst` unchanged, when
/// `out` is empty or the image cannot be allocated.
bool publish(const pol::ImageInfo& out, PfncFormat_ format, unsigned bytesPerPixel, ZTImage& dst);

/// The same for an output whose rows may be padded (the heat map): a stride larger than
/// width x bytesPerPixel is followed row by row; a stride of 0, negative or at most a row means
/// packed rows, copied in one piece.
bool publishRows(const pol::ImageInfo& out, PfncFormat_ format, unsigned bytesPerPixel, ZTImage& dst);

}  // namespace polarization
}  // namespace ZTI
