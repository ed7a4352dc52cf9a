// Unpacking of packed 10- and 12-bit mono and Bayer frames by the layouts their standards
// publish (PFNC for the "p" codes, GigE Vision for the "Packed" codes).
#pragma once

#include <cstdint>

#include "PixelFormat.h"

namespace ZTI {

/// True for the packed 10- and 12-bit mono and Bayer codes unpackPublished reads.
bool hasPublishedUnpacking(PfncFormat_ format);

/// Bytes that `pixels` packed pixels of `format` fill, the last one rounded up to a byte.
uint64_t publishedRowBytes(PfncFormat_ format, uint32_t pixels);

/// Unpacks width x height pixels into 16-bit right-aligned host-order values at `dst`, rows
/// packed. Without row padding the source is one continuous stream; with it, every row starts
/// publishedRowBytes(width) + paddingX bytes after the previous one. A last partial group or
/// pair reads only the bytes its pixels touch. Does nothing for other codes or null buffers.
void unpackPublished(PfncFormat_ format, uint32_t width, uint32_t height, uint32_t paddingX,
                     const unsigned char* src, unsigned char* dst);

}  // namespace ZTI
