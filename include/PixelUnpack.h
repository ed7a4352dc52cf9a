// Unpacking of packed 10- and 12-bit camera data into 16-bit samples.
#pragma once

#include "PixelFormat.h"
#include "ZTExport.h"

/// Unpacks n = width x height 10-bit pixels (n taken as a 32-bit signed product; nothing is
/// done when it is 0 or negative) from `src` into `dst`. The source is one continuous stream
/// without row padding, read as five-byte groups of four pixels, most significant bits first:
/// p0 = b0 << 2 | b1 >> 6, p1 = (b1 & 0x3F) << 4 | b2 >> 4, p2 = (b2 & 0x0F) << 6 | b3 >> 2,
/// p3 = (b3 & 0x03) << 8 | b4. This one layout is used for every accepted code. A last partial
/// group of 1 to 3 pixels reads only its first 2 to 4 bytes, so `src` needs ceil(10 n / 8)
/// bytes. `dst` receives n 16-bit values in host byte order, right-aligned (2 n bytes, rows
/// packed). Does nothing when `format` is not one of the packed 10- or 12-bit mono and Bayer
/// codes (Mono10Packed, Mono12Packed, Mono10p, Mono12p and their Bayer counterparts), or when
/// `src` or `dst` is null. The buffers' sizes cannot be checked: the caller provides them.
/// Pure; callable from any thread.
ZTI_API void unpack10BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                                     unsigned char* dst);

/// Unpacks n = width x height 12-bit pixels from `src` into 16-bit right-aligned values in
/// host byte order at `dst`, reading pairs of pixels from three bytes b0 b1 b2:
/// - for the "p" codes and the 10p codes (least significant bits first):
///   p0 = b0 | (b1 & 0x0F) << 8, p1 = b1 >> 4 | b2 << 4;
/// - for the "Packed" codes: p0 = b0 << 4 | (b1 & 0x0F), p1 = b2 << 4 | b1 >> 4.
/// Only the n / 2 whole pairs are read (3 bytes each) and written; for an odd n the last pixel
/// is not written and keeps what `dst` held. Accepts the same codes as the 10-bit unpacker and
/// does nothing for others, for n < 2 or for a null `src` or `dst`. Pure; callable from any
/// thread.
ZTI_API void unpack12BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                                     unsigned char* dst);
