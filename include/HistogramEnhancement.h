// Contrast enhancement of monochrome images.
#pragma once

#include "ZTExport.h"
#include "ZTImage.h"

namespace ZTI {

/// Maps the input range [low, high] linearly onto the full output range of Mono8 (0..255) or
/// of the 12-bit formats Mono12, Mono12Packed and Mono12p (0..4095):
/// out = clamp(trunc((v - low) / (high - low) x max), 0, max), computed in double precision.
/// high == low gives a step at low (above: max; at or below: 0); low > high inverts.
/// Rows are addressed as packed (row y starts at y x width pixels); padding is not used.
/// Mono8 and Mono12 read `src` and write `dst` at the same positions, leaving `src` unchanged.
/// The packed formats are stretched in place in `dst` (which must already hold the pixels, for
/// example the same image as `src`); `src` is not read, and in a pair only the stretched
/// pixel's bits change. For odd widths the half of a packed pair is chosen by the column's
/// parity. `dst` must be large enough for `src`'s layout.
/// Returns 0 (also for an empty image), or -1 with "Unsupported format.\n" on standard error
/// for other formats, and -1 when an image lacks the memory the layout needs. Safe to call from
/// several threads on distinct images.
ZTI_API int histStretch(ZTImage& src, ZTImage& dst, unsigned int low, unsigned int high);

/// Equalizes the histogram of an 8-bit one-channel image (Mono8, 8-bit Bayer) into `dst` with
/// OpenCV's equalizeHist. Other source formats are left alone (returns 0). Returns -1 when
/// either image is invalid, or when `dst` is not an 8-bit one-channel image of `src`'s size;
/// `dst` is then unchanged. Safe to call from several threads on distinct images.
ZTI_API int histEqual(ZTImage& src, ZTImage& dst);

}  // namespace ZTI
