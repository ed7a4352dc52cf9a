// Unpacking of packed 10- and 12-bit camera data into 16-bit samples.
#pragma once

#include "PixelFormat.h"

/// Unpacks width x height 10-bit pixels from `src` (one continuous stream, no row padding,
/// read as five-byte groups of four pixels, most significant bits first) into 16-bit
/// right-aligned values in host byte order at `dst` (2 x width x height bytes). Does nothing
/// when `format` is not a packed 10- or 12-bit mono or Bayer code, or when `dst` is null.
/// Pure; callable from any thread.
void unpack10BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                             unsigned char* dst);

/// Unpacks width x height 12-bit pixels from `src` (pairs of pixels in three bytes: the
/// LSB-first layout for the "p" codes, the packed-pair layout for the "Packed" codes) into
/// 16-bit right-aligned values at `dst`. For an odd pixel count the last pixel is not written.
/// Does nothing for other codes or a null `dst`. Pure; callable from any thread.
void unpack12BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                             unsigned char* dst);
