// Frame sources for the demo: synthetic sensors that deliver camera frames as a camera does.
#pragma once

#include <cstdint>
#include <vector>

#include "PixelFormat.h"
#include "ZTGrabResult.h"

namespace ztool {

/// What a demo sensor looks at.
enum class DemoScene {
    Colour,       ///< colour wheel, gradients and fine lines, seen through the format's filter
    Polarization, ///< tiles of known angle and degree of linear polarization on a polarizer mosaic
};

/// A sensor of one pixel format (Mono8, Mono12p, BayerRG8, BayerRG12p) that delivers frames of
/// a precomputed scene, moving two pixels to the side from frame to frame. Each frame owns its
/// bytes until the last handle of it is dropped.
class DemoCamera {
public:
    DemoCamera(PfncFormat_ format, unsigned int width, unsigned int height, DemoScene scene);

    /// The next frame; never empty.
    ZTI::ZTGrabResultPtr grab();

private:
    PfncFormat_ format_;
    unsigned int width_;
    unsigned int height_;
    unsigned int sceneWidth_;
    std::vector<uint16_t> samples_;  // 12-bit samples of the scene, already through the filter
    unsigned int frame_ = 0;
};

}  // namespace ztool
