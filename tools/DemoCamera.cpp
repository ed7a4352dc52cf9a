#include "DemoCamera.h"

#include <cmath>
#include <memory>

namespace ztool {
namespace {

constexpr unsigned int kMotion = 64;  // pixels the scene moves over before it starts again
constexpr double kPi = 3.14159265358979323846;

struct Rgb {
    double r, g, b;  // 0..1
};

// A colour wheel over a brightness ramp, with rings of fine lines at every angle: demosaicing
// and scaling errors show as colour fringes and moire on the rings.
Rgb colourAt(double x, double y, double width, double height) {
    const double dx = x / width - 0.5, dy = y / height - 0.5;
    const double hue = std::atan2(dy, dx) / (2 * kPi) + 0.5;
    const double radius = std::sqrt(dx * dx + dy * dy);
    const auto channel = [&](double offset) {
        return 0.5 + 0.5 * std::cos(2 * kPi * (hue - offset));
    };
    Rgb c{channel(0.0), channel(1.0 / 3), channel(2.0 / 3)};
    const double brightness = 0.15 + 0.85 * (x / width);
    const double rings = radius < 0.25 ? 0.5 + 0.5 * std::cos(radius * radius * 1200) : 1.0;
    c.r *= brightness * rings;
    c.g *= brightness * rings;
    c.b *= brightness * rings;
    return c;
}

// Polarizer angle in degrees of each cell position: 90 45 / 135 0.
double polarizerAngle(unsigned int x, unsigned int y) {
    static const double kAngles[2][2] = {{90, 45}, {135, 0}};
    return kAngles[y & 1][x & 1];
}

// Tiles of angle 0..165 degrees in 15-degree steps and degree 0.2..0.9, on a weakly polarized
// background; the intensity behind a polarizer at theta is S0 / 2 (1 + DoLP cos 2 (theta - AoLP)).
double polarizedAt(unsigned int x, unsigned int y, double width, double height) {
    const double s0 = 0.3 + 0.6 * (y / height);
    const int column = static_cast<int>(x / width * 6), row = static_cast<int>(y / height * 4);
    const bool inTile = std::fmod(x / width * 6, 1.0) > 0.15 && std::fmod(y / height * 4, 1.0) > 0.15;
    const double dolp = inTile ? 0.2 + 0.7 * row / 3.0 : 0.05;
    const double aolp = inTile ? (column * 2 + (row & 1)) * 15.0 : 0.0;
    const double theta = polarizerAngle(x, y);
    return s0 / 2 * (1 + dolp * std::cos(2 * (theta - aolp) * kPi / 180));
}

bool isBayer(PfncFormat_ format) { return format == ZTI::BayerRG8 || format == ZTI::BayerRG12p; }

uint16_t toSample(double v) {
    return static_cast<uint16_t>(std::lround(std::fmin(std::fmax(v, 0.0), 1.0) * 4095));
}

}  // namespace

DemoCamera::DemoCamera(PfncFormat_ format, unsigned int width, unsigned int height, DemoScene scene)
    : format_(format), width_(width), height_(height), sceneWidth_(width + kMotion) {
    samples_.resize(size_t{sceneWidth_} * height_);
    for (unsigned int y = 0; y < height_; ++y) {
        for (unsigned int x = 0; x < sceneWidth_; ++x) {
            double v;
            if (scene == DemoScene::Polarization) {
                v = 2 * polarizedAt(x, y, sceneWidth_, height_);
            } else {
                const Rgb c = colourAt(x, y, sceneWidth_, height_);
                // RGGB: red on even rows and columns, blue on odd ones, green between.
                if (isBayer(format)) {
                    v = (y & 1) == 0 ? ((x & 1) == 0 ? c.r : c.g) : ((x & 1) == 0 ? c.g : c.b);
                } else {
                    v = 0.299 * c.r + 0.587 * c.g + 0.114 * c.b;
                }
            }
            samples_[size_t{y} * sceneWidth_ + x] = toSample(v);
        }
    }
}

ZTI::ZTGrabResultPtr DemoCamera::grab() {
    // Even steps keep the filter pattern of the moved scene in phase with the sensor's.
    const unsigned int offset = (2 * frame_++) % kMotion;
    const uint64_t size = ZTI::getPackedByteCount(format_, width_, height_);
    auto bytes = std::make_shared<std::vector<unsigned char>>(size);
    unsigned char* out = bytes->data();
    const bool twelveBit = ZTI::getBitsPerChannel(format_) == 12;
    for (unsigned int y = 0; y < height_; ++y) {
        const uint16_t* row = samples_.data() + size_t{y} * sceneWidth_ + offset;
        if (twelveBit) {
            // Pairs of 12-bit pixels in three bytes, low bits first (the PFNC "p" layout); the
            // stream runs on across rows, and widths are even, so rows start on a pair.
            unsigned char* p = out + size_t{y} * width_ * 3 / 2;
            for (unsigned int x = 0; x < width_; x += 2, p += 3) {
                p[0] = static_cast<unsigned char>(row[x] & 0xFF);
                p[1] = static_cast<unsigned char>((row[x] >> 8) | ((row[x + 1] & 0x0F) << 4));
                p[2] = static_cast<unsigned char>(row[x + 1] >> 4);
            }
        } else {
            unsigned char* p = out + size_t{y} * width_;
            for (unsigned int x = 0; x < width_; ++x) p[x] = static_cast<unsigned char>(row[x] >> 4);
        }
    }
    // The frame's release callback owns the bytes: they live exactly as long as the frame.
    unsigned char* buffer = bytes->data();
    return ZTI::createGrabResult(format_, width_, height_, 0, buffer, size, [bytes]() {});
}

}  // namespace ztool
