// Bayer demosaicing by residual interpolation: higher fidelity than Hamilton-Adams, at several
// times its cost.
#pragma once

#include "DemosaicExport.h"

/// Demosaics one Bayer frame into interleaved RGB. Green comes from gradient-based
/// threshold-free interpolation (colour differences estimated along rows and columns by
/// residual interpolation, fused with weights from the local colour-difference gradients in
/// four directions); red and blue come from minimized-Laplacian residual interpolation (a
/// guided filter led by green, with windows centred on the colour's sites whose coefficients
/// fit the Laplacians, plus the bilinearly spread residuals).
///
/// The contract is the one of `HamiltonAdams`:
/// - `in`: `rows` x `cols` samples, rows packed without padding. Read only, never modified.
///   Samples above 2^bitDepth - 1 are taken as 2^bitDepth - 1.
/// - `out`: caller-allocated, `rows` x `cols` x 3 samples, rows packed, R, G, B per pixel.
///   Every sample is written, borders included; values lie in [0, 2^bitDepth - 1]. At the
///   edges the mosaic is mirrored about the first and last row and column, which keeps the
///   colour-filter phase (a one-sample-wide dimension is replicated instead).
/// - `rows`, `cols`: frame height and width in pixels. If either is below 1 nothing is
///   written and nothing is read.
/// - `bitDepth`: significant bits of the samples, 1 to 16. The method's constants are set for
///   8-bit samples and scale with the depth, so a frame gives the same picture at any depth.
/// - `pattern`: the colours of the top-left 2 x 2 cell, row by row: "RGGB", "BGGR", "GRBG"
///   or "GBRG". For any other string (the empty string or a null pointer included), or a
///   `bitDepth` outside 1..16, `out` is filled with zeros.
///
/// Null `in` or `out` with a non-empty frame is a programming error and aborts the process.
/// Each call allocates its own working memory, about 2 KB per column and at most about 8.5 MB
/// (the last rows of each step for a strip of up to 4096 columns; std::bad_alloc if that
/// fails), and keeps no global state: calls may run concurrently from several threads. The arithmetic is IEEE
/// single precision without contraction, so the output is the same on every platform.
DEMOSAIC_API void QualityDemosaic(unsigned short* in, unsigned short* out, int rows, int cols,
                                  int bitDepth, const char* pattern);
