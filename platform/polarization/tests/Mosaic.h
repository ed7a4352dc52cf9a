// Test mosaics and an independent reference for the products.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "Polarization.h"

namespace poltest {

/// An 8-bit mosaic in its own memory, rows `stride` bytes apart.
struct Mosaic {
    int width = 0;
    int height = 0;
    int stride = 0;
    std::vector<unsigned char> bytes;

    Mosaic(int w, int h, int padding = 0)
        : width(w), height(h), stride(w + padding), bytes(static_cast<size_t>(stride) * h, 0xEE) {}
    unsigned char& at(int y, int x) { return bytes[static_cast<size_t>(y) * stride + x]; }
    unsigned char at(int y, int x) const { return bytes[static_cast<size_t>(y) * stride + x]; }
    pol::ImageInfo info() {
        pol::ImageInfo in;
        in.width = width;
        in.height = height;
        in.stride = stride;
        in.data = bytes.data();
        return in;
    }
};

/// Polarizer angle in degrees of mosaic pixel (y, x): 90 45 / 135 0 in every 2 x 2 cell.
inline int angleAt(int y, int x) {
    static const int kAngles[2][2] = {{90, 45}, {135, 0}};
    return kAngles[y % 2][x % 2];
}

/// Intensity of partially linearly polarized light behind a polarizer at `angle` degrees:
/// s0/2 (1 + dolp cos(2 (angle - aolp))), aolp in radians.
inline double intensity(double s0, double dolp, double aolp, int angle) {
    const double theta = angle * M_PI / 180.0;
    return s0 / 2.0 * (1.0 + dolp * std::cos(2.0 * (theta - aolp)));
}

inline Mosaic randomMosaic(int w, int h, int padding, unsigned seed) {
    Mosaic m(w, h, padding);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> value(0, 255);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) m.at(y, x) = static_cast<unsigned char>(value(rng));
    return m;
}

/// Reference estimate of the intensity behind polarizer `angle` at pixel (y, x), written
/// from the geometry rather than the library's row scheme: the angle's samples sit at
/// (2v + oy, 2u + ox); the pixel maps to lattice coordinates ((y - oy)/2, (x - ox)/2), which
/// are clamped to the lattice (edge replication) and interpolated bilinearly.
inline double referenceIntensity(const Mosaic& m, int angle, int y, int x) {
    const int oy = (angle == 135 || angle == 0) ? 1 : 0;
    const int ox = (angle == 45 || angle == 0) ? 1 : 0;
    const int cellsX = m.width / 2;
    const int cellsY = m.height / 2;
    const double u = std::clamp((x - ox) / 2.0, 0.0, cellsX - 1.0);
    const double v = std::clamp((y - oy) / 2.0, 0.0, cellsY - 1.0);
    const int u0 = static_cast<int>(u);
    const int v0 = static_cast<int>(v);
    const int u1 = std::min(u0 + 1, cellsX - 1);
    const int v1 = std::min(v0 + 1, cellsY - 1);
    const double fu = u - u0;
    const double fv = v - v0;
    auto sample = [&](int vv, int uu) { return double(m.at(2 * vv + oy, 2 * uu + ox)); };
    return (1 - fv) * ((1 - fu) * sample(v0, u0) + fu * sample(v0, u1)) +
           fv * ((1 - fu) * sample(v1, u0) + fu * sample(v1, u1));
}

/// Reference Stokes parameters at one pixel.
struct Stokes {
    double s0, s1, s2;
    double polarized() const { return std::hypot(s1, s2); }
    double dolp() const { return s0 > 0 ? std::min(polarized() / s0, 1.0) : 0.0; }
    double aolp() const { return 0.5 * std::atan2(s2, s1); }
};

inline Stokes referenceStokes(const Mosaic& m, int y, int x) {
    const double i0 = referenceIntensity(m, 0, y, x);
    const double i45 = referenceIntensity(m, 45, y, x);
    const double i90 = referenceIntensity(m, 90, y, x);
    const double i135 = referenceIntensity(m, 135, y, x);
    return {(i0 + i45 + i90 + i135) / 2, i0 - i90, i45 - i135};
}

/// Value at (y, x) of a float output record.
inline float floatAt(const pol::ImageInfo& out, int y, int x) {
    return reinterpret_cast<const float*>(out.data + static_cast<size_t>(y) * out.stride)[x];
}

/// Byte `i` of pixel (y, x) of an 8-bit output record with `channels` bytes per pixel.
inline unsigned char byteAt(const pol::ImageInfo& out, int y, int x, int channels = 1, int i = 0) {
    return out.data[static_cast<size_t>(y) * out.stride + static_cast<size_t>(x) * channels + i];
}

inline bool isEmpty(const pol::ImageInfo& out) {
    return out.width == 0 && out.height == 0 && out.stride == 0 && out.data == nullptr &&
           out.matrix.empty();
}

}  // namespace poltest
