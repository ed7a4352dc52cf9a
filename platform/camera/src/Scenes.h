// The virtual camera's scenes, rendered once onto a canvas a little larger than the sensor so
// that the sensor's window can move over it from frame to frame.
#pragma once

#include <cstdint>
#include <vector>

namespace ZTI {
namespace camera {

/// Pixels of canvas around the sensor's window on every side: the furthest the window moves.
constexpr uint32_t kCanvasMargin = 4;

/// One rendered scene. Planes are row-major over width x height canvas pixels; only the planes
/// a frame format needs are filled.
struct SceneCanvas {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint16_t> rgb16;   ///< R G B per pixel (colour scene)
    std::vector<uint16_t> mono16;  ///< luma (colour scene) or intensity behind the polarizer
                                   ///< of the pixel's mosaic position (polarization scene)
    std::vector<uint8_t> ycc8;     ///< Y Cb Cr per pixel (colour scene, YUV formats)
};

/// Which planes to fill.
struct ScenePlanes {
    bool rgb16 = false;
    bool mono16 = false;
    bool ycc8 = false;
};

/// Renders the colour test scene over a canvas of width x height pixels. rgb16 is always filled
/// (it is the scene's ground truth); the others on request.
SceneCanvas renderColourScene(uint32_t width, uint32_t height, ScenePlanes planes);

/// One region of the polarization scene.
struct PolarizationRegion {
    double s0;            ///< total intensity, 16-bit scale
    double angleDegrees;  ///< angle of linear polarization, [0, 180)
    double degree;        ///< degree of linear polarization, 0..1
};

/// The region at canvas pixel (x, y) of a width x height canvas. Region edges fall on even
/// coordinates, so every 2 x 2 mosaic cell at even coordinates lies in one region.
PolarizationRegion polarizationRegionAt(uint32_t x, uint32_t y, uint32_t width, uint32_t height);

/// Polarizer angle in degrees at a mosaic position: 90 at (row 0, column 0), 45 at (0, 1),
/// 135 at (1, 0) and 0 at (1, 1); the pattern repeats every 2 pixels.
double polarizerAngleAt(uint32_t x, uint32_t y);

/// Intensity behind a polarizer at `thetaDegrees`: S0 / 2 x (1 + degree x cos(2 (theta -
/// angle))), rounded to the 16-bit scale.
uint16_t intensityBehindPolarizer(const PolarizationRegion& region, double thetaDegrees);

/// Renders the polarization scene: mono16 holds, at every canvas pixel, the intensity behind the
/// polarizer of that pixel's mosaic position.
SceneCanvas renderPolarizationScene(uint32_t width, uint32_t height);

/// Luma of a 16-bit colour, 0.299 R + 0.587 G + 0.114 B, rounded.
uint16_t luma16(uint16_t r, uint16_t g, uint16_t b);

/// Full-range BT.601 Y, Cb, Cr of an 8-bit colour, computed in the same 14-bit fixed point as
/// OpenCV's RGB to YCrCb conversion so that both give the same bytes.
void ycbcrFromRgb8(unsigned r, unsigned g, unsigned b, uint8_t out[3]);

}  // namespace camera
}  // namespace ZTI
