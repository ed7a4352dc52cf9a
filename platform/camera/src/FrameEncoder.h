// Writing the sensor's window of a rendered scene into a frame buffer in one pixel format.
#pragma once

#include <cstdint>
#include <vector>

#include "FrameFormats.h"
#include "Scenes.h"

namespace ZTI {
namespace camera {

/// Where the sensor sits on the canvas: sensor pixel (x, y) sees canvas pixel (x + left, y + top).
struct SensorWindow {
    uint32_t left;
    uint32_t top;
    uint32_t width;
    uint32_t height;
    uint32_t paddingX;
};

/// Which channel of an RGB pixel the Bayer filter at sensor pixel (x, y) passes (0 R, 1 G, 2 B).
unsigned bayerChannel(Sensor sensor, uint32_t x, uint32_t y);

/// Encodes one frame into `out` (frameByteCount bytes). Row padding is filled with 0xA5 so
/// that code reading it as pixels stands out. `scratch` is working memory kept between frames.
void encodeFrame(const FrameFormat& format, const SceneCanvas& canvas, const SensorWindow& window,
                 unsigned char* out, std::vector<uint16_t>& scratch);

}  // namespace camera
}  // namespace ZTI
