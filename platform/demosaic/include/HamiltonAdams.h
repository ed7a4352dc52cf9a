// Bayer demosaicing by Hamilton-Adams adaptive colour-plane interpolation.
#pragma once

#include "DemosaicExport.h"

/// Demosaics one Bayer frame into interleaved RGB with the Hamilton-Adams method: green is
/// interpolated at red and blue sites along the direction (horizontal, vertical, or both when
/// they tie) of smaller gradient-plus-Laplacian activity, with a Laplacian correction; red and
/// blue follow from colour differences (to the row or column neighbours at green sites, along
/// the less active diagonal at blue and red sites).
///
/// - `in`: `rows` x `cols` samples, rows packed without padding. Read only, never modified.
///   Samples above 2^bitDepth - 1 are taken as 2^bitDepth - 1.
/// - `out`: caller-allocated, `rows` x `cols` x 3 samples, rows packed, R, G, B per pixel.
///   Every sample is written, borders included; values lie in [0, 2^bitDepth - 1]. At the
///   edges the mosaic is mirrored about the first and last row and column, which keeps the
///   colour-filter phase (a one-sample-wide dimension is replicated instead).
/// - `rows`, `cols`: frame height and width in pixels. If either is below 1 nothing is
///   written and nothing is read. Frames of 1 to 3 rows or columns are handled.
/// - `bitDepth`: significant bits of the samples, 1 to 16.
/// - `pattern`: the colours of the top-left 2 x 2 cell, row by row: "RGGB", "BGGR", "GRBG"
///   or "GBRG". For any other string (the empty string or a null pointer included), or a
///   `bitDepth` outside 1..16, `out` is filled with zeros.
///
/// Null `in` or `out` with a non-empty frame is a programming error and aborts the process.
/// Each call allocates its own working rows, about 35 x `cols` bytes up to 12 bits and 65 x
/// `cols` bytes above (std::bad_alloc if that fails), and keeps no global state: calls may run
/// concurrently from several threads. Samples up to 12 bits are processed in 16-bit lanes,
/// deeper ones in 32-bit lanes at about half the speed; the results do not depend on that.
DEMOSAIC_API void HamiltonAdams(unsigned short* in, unsigned short* out, int rows, int cols, int bitDepth,
                                const char* pattern);

/// Demosaics the band of output rows `firstRow` .. `firstRow + rowCount - 1` of the frame that
/// `in` holds, exactly as `HamiltonAdams` computes those rows of the whole frame (the rows
/// around the band are read as far as the interpolation reaches, and mirrored at the frame's
/// edges as there). Lets a caller process a frame band by band while each band is in cache.
///
/// - `in`, `rows`, `cols`, `bitDepth`, `pattern`: the whole frame, as for `HamiltonAdams`.
/// - `out`: caller-allocated, `rowCount` x `cols` x 3 samples, the band's rows only, packed.
///   Filled with zeros for an invalid pattern or bit depth.
/// - `rowCount` below 1, or an empty frame, writes and reads nothing.
///
/// A band outside the frame (`firstRow` < 0 or `firstRow + rowCount` > `rows`) or a null
/// buffer with a non-empty band is a programming error and aborts the process. Each call
/// allocates its own working rows (as `HamiltonAdams`) and recomputes up to three rows above
/// the band, so bands of 16 rows or more keep that overhead small. Calls may run concurrently.
DEMOSAIC_API void HamiltonAdamsRows(const unsigned short* in, unsigned short* out, int rows,
                                    int cols, int bitDepth, const char* pattern, int firstRow,
                                    int rowCount);
