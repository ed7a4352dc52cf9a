// Polarization products of a polarized-sensor mosaic: Stokes parameters, degree and angle of
// linear polarization, glare reduction, heat maps and single-angle planes.
#pragma once

#include <cstdint>

#include "PolarizationExport.h"

#include <opencv2/core/mat.hpp>

namespace pol {

/// What an ImageInfo holds (its `kind` field).
enum ImageKind : int {
    /// 8 bits, one channel: as an input, a polarizer mosaic whose 2 x 2 cells hold 90 degrees
    /// at (0,0), 45 at (0,1), 135 at (1,0) and 0 at (1,1); as an output, any 8-bit result.
    kMono8 = 0,
    kStokesS0 = 1,  ///< 32-bit float S0, 0 to 510 for an 8-bit mosaic
    kStokesS1 = 2,  ///< 32-bit float S1, -255 to 255
    kStokesS2 = 3,  ///< 32-bit float S2, -255 to 255
    kDolp = 4,      ///< 32-bit float degree of linear polarization, 0 to 1
    kAolp = 5,      ///< 32-bit float angle of linear polarization, radians in (-pi/2, pi/2]
    kRgb8 = 6,      ///< three bytes per pixel in R, G, B order
};

/// Description of an image exchanged with this library. Inputs are read through width,
/// height, stride (bytes from one row to the next) and data only, and are never modified.
/// Outputs own their memory in `matrix`; data points into it and stays valid while the
/// record (or a copy of its matrix) lives.
struct ImageInfo {
    int width = 0;
    int height = 0;
    int stride = 0;
    unsigned char* data = nullptr;
    int kind = kMono8;  ///< an ImageKind
    cv::Mat matrix;
};

/// Palette indices of ApplyHeatmap's colour ramp.
enum HeatmapColor : uint32_t {
    kBlack = 0,   ///< (0, 0, 0)
    kBlue = 1,    ///< (0, 0, 255)
    kCyan = 2,    ///< (0, 255, 255)
    kGreen = 3,   ///< (0, 255, 0)
    kYellow = 4,  ///< (255, 255, 0)
    kRed = 5,     ///< (255, 0, 0)
    kWhite = 6,   ///< (255, 255, 255)
};

/// Options of ApplyHeatmap.
struct HeatmapOption {
    /// True: the input is a polarizer mosaic and its DoLP is computed as CreateDOLP does.
    /// False: the input already is an 8-bit DoLP image (255 = 100 %).
    bool flag = false;
    /// DoLP in percent at or below which a pixel gets the low colour.
    uint32_t first = 0;
    /// DoLP in percent at or above which a pixel gets the high colour; between `first` and
    /// `second` the colour follows the ramp linearly. When `first` >= `second` the ramp is a
    /// step: the low colour up to and including `first`, the high colour above it.
    uint32_t second = 100;
    /// Low colour, a HeatmapColor; values above 6 count as 6.
    uint32_t third = kBlack;
    /// High colour, a HeatmapColor; values above 6 count as 6. The ramp passes through every
    /// palette entry between the two indices in palette order, evenly spaced, and runs
    /// backwards when `third` is larger; equal indices colour every pixel alike.
    uint32_t fourth = kRed;
};

// Every function below fills `out` with a new image whose memory it allocates in
// `out.matrix`, replacing whatever `out` held; `in` and `out` may be the same record. An input
// it cannot use gives an empty `out` (width, height and stride 0, data null, matrix empty)
// rather than a failure: null data, a kind other than the one the function reads, a width or
// height below 1 (below 2 or odd for mosaics), or a stride smaller than one row. Nothing is
// read outside the rows described by `in`. Functions keep no state: they may run on several
// threads at once for different outputs. Memory exhaustion throws cv::Exception.
//
// Products of a mosaic are computed at the mosaic's full resolution: the intensity behind
// each polarizer angle is estimated at every pixel by bilinear interpolation of that angle's
// samples, edges replicated.

/// S0 = (I0 + I45 + I90 + I135) / 2, total intensity: kStokesS0 float image of the mosaic's size.
POLARIZATION_API void CreateStokesS0(const ImageInfo& in, ImageInfo& out);
/// S1 = I0 - I90: kStokesS1 float image of the mosaic's size.
POLARIZATION_API void CreateStokesS1(const ImageInfo& in, ImageInfo& out);
/// S2 = I45 - I135: kStokesS2 float image of the mosaic's size.
POLARIZATION_API void CreateStokesS2(const ImageInfo& in, ImageInfo& out);
/// DoLP = sqrt(S1^2 + S2^2) / S0, clipped to [0, 1] and 0 where S0 is 0: kDolp float image.
POLARIZATION_API void CreateDOLP(const ImageInfo& in, ImageInfo& out);
/// AoLP = atan2(S2, S1) / 2 in radians, (-pi/2, pi/2]: kAolp float image. Accurate to about
/// 5e-6 rad (an 8-bit angle resolves pi / 255 rad); 0 where S1 and S2 are both 0.
POLARIZATION_API void CreateAOLP(const ImageInfo& in, ImageInfo& out);

/// Scales a product to 8 bits by its kind: S0 -> S0 / 2; S1, S2 -> (v + 255) / 2;
/// DoLP -> 255 v; AoLP -> 255 (v + pi/2) / pi; a kMono8 image is copied. Rounded to nearest
/// (ties to even) and saturated to 0..255; rows packed; kind kMono8. Any size from 1 x 1.
POLARIZATION_API void ConvertTo8BPP(const ImageInfo& in, ImageInfo& out);

/// The least intensity over all polarizer angles, (S0 - sqrt(S1^2 + S2^2)) / 2, rounded and
/// saturated: kMono8 image of the mosaic's size, rows packed.
POLARIZATION_API void CreateGlareReduced(const ImageInfo& in, ImageInfo& out);

/// Colours every pixel by its DoLP in percent (see HeatmapOption): kRgb8 image of the input's
/// size whose stride is 3 x width rounded up to a multiple of 16 bytes, so rows may be padded.
/// With `flag` false the input is a kMono8 DoLP image of any size from 1 x 1.
POLARIZATION_API void ApplyHeatmap(const ImageInfo& in, ImageInfo& out, const HeatmapOption& option);

/// The 0-degree samples, (2r + 1, 2c + 1) of the mosaic: kMono8, width/2 x height/2, packed.
POLARIZATION_API void ExtractPolarQuadrantI0(const ImageInfo& in, ImageInfo& out);
/// The 45-degree samples, (2r, 2c + 1) of the mosaic: kMono8, width/2 x height/2, packed.
POLARIZATION_API void ExtractPolarQuadrantI45(const ImageInfo& in, ImageInfo& out);
/// The 90-degree samples, (2r, 2c) of the mosaic: kMono8, width/2 x height/2, packed.
POLARIZATION_API void ExtractPolarQuadrantI90(const ImageInfo& in, ImageInfo& out);
/// The 135-degree samples, (2r + 1, 2c) of the mosaic: kMono8, width/2 x height/2, packed.
POLARIZATION_API void ExtractPolarQuadrantI135(const ImageInfo& in, ImageInfo& out);

}  // namespace pol
