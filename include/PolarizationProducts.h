// Polarization products of polarized-sensor frames, and their single-angle planes.
//
// A polarized-sensor frame holds, in every 2 x 2 cell, samples behind polarizers at 90 (top
// left), 45 (top right), 135 (bottom left) and 0 degrees (bottom right). Except for
// extractFullPolarQuadrant, the functions below compute at 8 bits per sample: a Mono8 source
// is read in place and never written; other formats are first converted to Mono8 by a
// ZTImageFormatConverter (10- to 16-bit mono frames are scaled to 8 bits).
//
// Every function takes the source first and the destination second, returns 0 on success and
// -1 on failure, and replaces the destination only on success unless stated otherwise. A
// source fails when it is not valid, when it has no conversion to Mono8, or when a Mono8
// source states fewer bytes than its rows span. None keeps state; calls on distinct
// destination images may run on several threads at once.
#pragma once

#include "ZTExport.h"
#include "ZTImage.h"

namespace ZTI {

/// Polarizer angle of one plane of a polarized-sensor frame. Any int converts to it; only
/// 0..3 name a plane.
enum PolarizationQuadrant : int {
    PolarQuadrantI0 = 0,    ///< 0 degrees, bottom right of each cell
    PolarQuadrantI45 = 1,   ///< 45 degrees, top right
    PolarQuadrantI90 = 2,   ///< 90 degrees, top left
    PolarQuadrantI135 = 3,  ///< 135 degrees, bottom left
};

// The products below are computed at the source's full resolution: the intensity behind each
// polarizer is estimated at every pixel by bilinear interpolation of that polarizer's
// samples. The source's width and height must be even and at least 2.

/// Stokes S0 = (I0 + I45 + I90 + I135) / 2, the total intensity, as Mono8 of the source's
/// size scaled by 1/2 (0..510 onto 0..255).
ZTI_API int CreateStokesS0(const ZTImage& src, ZTImage& dst);

/// Stokes S1 = I0 - I90 as Mono8 of the source's size: (S1 + 255) / 2, so 128 means 0.
ZTI_API int CreateStokesS1(const ZTImage& src, ZTImage& dst);

/// Stokes S2 = I45 - I135 as Mono8 of the source's size: (S2 + 255) / 2, so 128 means 0.
ZTI_API int CreateStokesS2(const ZTImage& src, ZTImage& dst);

/// Degree of linear polarization sqrt(S1^2 + S2^2) / S0 as Mono8 of the source's size:
/// 255 x DoLP, so 255 means fully polarized and 0 unpolarized (or black).
ZTI_API int CreateDolp(const ZTImage& src, ZTImage& dst);

/// Angle of linear polarization atan2(S2, S1) / 2 as Mono8 of the source's size:
/// 255 (AoLP + pi/2) / pi, so -90 degrees gives 0, 0 degrees 128 and +90 degrees 255.
ZTI_API int CreateAolp(const ZTImage& src, ZTImage& dst);

/// The least intensity behind any polarizer angle, (S0 - sqrt(S1^2 + S2^2)) / 2, as Mono8 of
/// the source's size: the frame with its polarized glare filtered out as far as possible.
ZTI_API int CreateGlareReduced(const ZTImage& src, ZTImage& dst);

/// A colour map of the degree of linear polarization as RGB8 of the source's size, rows
/// packed. `low` and `high` are the DoLP range in percent: at or below `low` a pixel has
/// colour `lowColor`, at or above `high` colour `highColor`, linear in between; `low` >=
/// `high` makes a step at `low`. Colours are palette indices: 0 black, 1 blue, 2 cyan, 3 green,
/// 4 yellow, 5 red, 6 white (larger values count as 6); the ramp passes through every palette
/// entry between the two, in order, so blue to red runs through cyan, green and yellow.
/// For a source format whose conversion to Mono8 fails, the map is made of the converter's
/// untouched destination (undefined pixels) and 0 is returned. Returns -1, `dst` unchanged,
/// when the source is invalid, its memory does not hold its rows (a caller's buffer or frame
/// stated shorter), it is too large for the polarization library, or the RGB8 image cannot
/// be allocated.
ZTI_API int CreateHeatmap(const ZTImage& src, ZTImage& dst, unsigned int low, unsigned int high,
                          unsigned int lowColor, unsigned int highColor);

/// The samples of one polarizer angle as Mono8 of half the source's width and height (rounded
/// down; an odd last row or column is ignored). Returns -1 with `dst` unchanged for a
/// `quadrant` outside 0..3 or a source narrower or lower than 2.
ZTI_API int ExtractPolarQuadrant(const ZTImage& src, ZTImage& dst, PolarizationQuadrant quadrant);

/// The four planes tiled into one Mono8 image of the source's size: with w and h half the
/// width and height (rounded down), the 90-degree plane top left, 45 top right (from column
/// w), 135 bottom left (from row h) and 0 bottom right. Rows are addressed as packed (row y
/// starts at byte y x width); for an odd width or height the last column or row is not
/// written, and a source narrower or lower than 2 writes nothing. A Mono8 source's rows are
/// read as if packed too, so give it no row padding. `dst` is reset before the planes are
/// copied: if that reset fails it returns -1 with `dst` already replaced.
ZTI_API int ExtractFullPolarQuadrant(const ZTImage& src, ZTImage& dst);

/// The same tiling as ExtractFullPolarQuadrant by plain copying, in the source's own format
/// and depth, without conversion to Mono8:
/// destination (r, c) = source (2r, 2c), (r, w + c) = (2r, 2c + 1), (h + r, c) = (2r + 1, 2c),
/// (h + r, w + c) = (2r + 1, 2c + 1), on packed rows. Elements are 1 byte for formats of up
/// to 8 bits per channel and 16-bit words for 9 to 16 (packed 10- and 12-bit layouts are
/// treated as words too); for deeper formats and sources narrower or lower than 2 `dst` is only
/// reset. Returns -1 with `dst` unchanged for an invalid source or one that holds fewer bytes
/// than its elements span, and -1 after the reset when the destination lacks that memory.
ZTI_API int extractFullPolarQuadrant(const ZTImage& src, ZTImage& dst);

}  // namespace ZTI
