#include "Scenes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace ZTI {
namespace camera {
namespace {

constexpr double kPi = 3.14159265358979323846;

struct Colour {
    double r, g, b;  // linear, 0..1
};

Colour mix(Colour a, Colour b, double t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

Colour grey(double v) { return {v, v, v}; }

// Share of a pixel covered by a shape whose edge lies `distance` pixels away (positive
// inside): a one-pixel ramp, so edges are sharp but not aliased by the scene itself.
double coverage(double distance) { return std::clamp(0.5 + distance, 0.0, 1.0); }

Colour fromHsv(double hue, double saturation, double value) {
    const double h = std::fmod(hue, 1.0) * 6.0;
    const int sector = static_cast<int>(h);
    const double f = h - sector;
    const double p = value * (1 - saturation), q = value * (1 - saturation * f),
                 t = value * (1 - saturation * (1 - f));
    switch (sector) {
        case 0: return {value, t, p};
        case 1: return {q, value, p};
        case 2: return {p, value, t};
        case 3: return {p, q, value};
        case 4: return {t, p, value};
        default: return {value, p, q};
    }
}

// 6 x 4 patches: saturated primaries and secondaries (where demosaicing bleeds most), natural
// tones, and a grey row.
// clang-format off
constexpr unsigned char kPatches[24][3] = {
    {230, 20, 20}, {20, 200, 30}, {25, 40, 220}, {20, 210, 220}, {215, 30, 200}, {235, 220, 25},
    {115, 82, 68}, {194, 150, 130}, {98, 122, 157}, {87, 108, 67}, {133, 128, 177}, {103, 189, 170},
    {214, 126, 44}, {80, 91, 166}, {193, 90, 99}, {94, 60, 108}, {157, 188, 64}, {224, 163, 46},
    {243, 243, 242}, {200, 200, 200}, {160, 160, 160}, {122, 122, 121}, {85, 85, 85}, {52, 52, 52},
};
// clang-format on

// Where the parts of the colour scene lie on a canvas of a given size.
class ColourLayout {
public:
    ColourLayout(uint32_t width, uint32_t height) : w_(width), h_(height) {
        chartBottom_ = 0.45 * h_;
        rampBottom_ = 0.62 * h_;
        starX_ = 0.75 * w_;
        starY_ = 0.5 * chartBottom_;
        starRadius_ = 0.45 * std::min(0.5 * w_, chartBottom_);
    }

    Colour at(double x, double y) const {
        if (y < chartBottom_) return x < 0.5 * w_ ? chart(x, y) : star(x, y);
        if (y < rampBottom_) return ramp(x, y);
        if (x < w_ / 3.0) return hues(x, y);
        if (x < 2.0 * w_ / 3.0) return gratings(x - w_ / 3.0, y - rampBottom_);
        return edges(x - 2.0 * w_ / 3.0, y - rampBottom_);
    }

private:
    Colour chart(double x, double y) const {
        const double cellW = 0.5 * w_ / 6, cellH = chartBottom_ / 4;
        const int col = std::min(5, static_cast<int>(x / cellW));
        const int row = std::min(3, static_cast<int>(y / cellH));
        const double gap = std::max(1.0, 0.06 * std::min(cellW, cellH));
        const double left = col * cellW + gap, right = (col + 1) * cellW - gap;
        const double top = row * cellH + gap, bottom = (row + 1) * cellH - gap;
        const double inside = std::min({x - left, right - x, y - top, bottom - y});
        const unsigned char* p = kPatches[row * 6 + col];
        return mix(grey(0.08), {p[0] / 255.0, p[1] / 255.0, p[2] / 255.0}, coverage(inside));
    }

    // Black and white wedges meeting at a centre: edges at every angle, ever finer inwards.
    Colour star(double x, double y) const {
        constexpr int kSpokes = 24;
        const double dx = x - starX_, dy = y - starY_;
        const double r = std::hypot(dx, dy);
        // Near an edge sin(N theta) ~ N dtheta, so r sin(N theta) / N is the distance to it.
        const double wedge = coverage(r * std::sin(kSpokes * std::atan2(dy, dx)) / kSpokes);
        return mix(grey(0.5), grey(0.05 + 0.9 * wedge), coverage(starRadius_ - r));
    }

    Colour ramp(double x, double y) const {
        const double t = w_ > 1 ? x / (w_ - 1) : 0;
        const double band = (y - chartBottom_) / (rampBottom_ - chartBottom_);
        const int stripe = std::min(3, static_cast<int>(4 * band));
        switch (stripe) {
            case 0: return {t, 0, 0};
            case 1: return {0, t, 0};
            case 2: return {0, 0, t};
            default: return grey(t);
        }
    }

    Colour hues(double x, double y) const {
        const double s = 1.0 - 0.85 * (y - rampBottom_) / std::max(1.0, h_ - rampBottom_);
        return fromHsv(3.0 * x / w_, s, 0.9);
    }

    // Four blocks of lines (vertical, horizontal, 45 and 120 degrees), each in four bands of
    // periods from 8 down to 2 pixels, the finest at the sensor's sampling limit.
    Colour gratings(double x, double y) const {
        constexpr double kAngles[4] = {0, 90, 45, 120};  // direction across the lines
        constexpr double kPeriods[4] = {8, 5, 3, 2};
        const double blockW = w_ / 6.0, blockH = (h_ - rampBottom_) / 2;
        const int bx = std::min(1, static_cast<int>(x / blockW));
        const int by = std::min(1, static_cast<int>(y / blockH));
        const double ly = y - by * blockH;
        const int band = std::min(3, static_cast<int>(4 * ly / blockH));
        const double a = kAngles[by * 2 + bx] * kPi / 180;
        const double across = x * std::cos(a) + y * std::sin(a);
        const double wave = std::cos(2 * kPi * across / kPeriods[band]);
        return grey(0.5 + 0.45 * std::clamp(1.6 * wave, -1.0, 1.0));
    }

    // A dark square turned by 5 degrees (slanted edges) above a red disc on cyan (colour edges
    // at every angle).
    Colour edges(double x, double y) const {
        const double partW = w_ / 3.0, partH = (h_ - rampBottom_) / 2;
        if (y < partH) {
            const double a = 5 * kPi / 180, cx = x - 0.5 * partW, cy = y - 0.5 * partH;
            const double u = cx * std::cos(a) + cy * std::sin(a);
            const double v = -cx * std::sin(a) + cy * std::cos(a);
            const double half = 0.3 * std::min(partW, partH);
            const double inside = std::min(half - std::fabs(u), half - std::fabs(v));
            return mix(grey(0.85), grey(0.15), coverage(inside));
        }
        const double r = std::hypot(x - 0.5 * partW, y - 1.5 * partH);
        return mix({0.1, 0.6, 0.7}, {0.9, 0.1, 0.1}, coverage(0.35 * std::min(partW, partH) - r));
    }

    double w_, h_;
    double chartBottom_, rampBottom_;
    double starX_, starY_, starRadius_;
};

uint16_t to16(double v) {
    return static_cast<uint16_t>(std::lround(std::clamp(v, 0.0, 1.0) * 65535.0));
}

}  // namespace

uint16_t luma16(uint16_t r, uint16_t g, uint16_t b) {
    // 0.299, 0.587 and 0.114 in 16-bit fixed point; the weights add up to exactly 65536.
    return static_cast<uint16_t>((19595u * r + 38470u * g + 7471u * b + 32768u) >> 16);
}

void ycbcrFromRgb8(unsigned r, unsigned g, unsigned b, uint8_t out[3]) {
    // OpenCV's integer RGB to YCrCb: coefficients scaled by 2^14 and rounded, chroma offset
    // 128, saturated to 0..255.
    constexpr int kShift = 14, kHalf = 1 << (kShift - 1), kOffset = 128 << kShift;
    const int ri = static_cast<int>(r), gi = static_cast<int>(g), bi = static_cast<int>(b);
    const int y = (ri * 4899 + gi * 9617 + bi * 1868 + kHalf) >> kShift;
    const int cr = (ri - y) * 11682 + kOffset + kHalf;
    const int cb = (bi - y) * 9241 + kOffset + kHalf;
    auto sat = [](int v) { return static_cast<uint8_t>(std::clamp(v >> kShift, 0, 255)); };
    out[0] = static_cast<uint8_t>(std::clamp(y, 0, 255));
    out[1] = sat(cb);
    out[2] = sat(cr);
}

SceneCanvas renderColourScene(uint32_t width, uint32_t height, ScenePlanes planes) {
    SceneCanvas canvas;
    canvas.width = width;
    canvas.height = height;
    const size_t pixels = size_t{width} * height;
    canvas.rgb16.resize(3 * pixels);
    const ColourLayout layout(width, height);
    for (uint32_t y = 0; y < height; ++y) {
        uint16_t* row = &canvas.rgb16[3 * size_t{y} * width];
        for (uint32_t x = 0; x < width; ++x) {
            const Colour c = layout.at(x + 0.5, y + 0.5);  // sampled at pixel centres
            row[3 * x] = to16(c.r);
            row[3 * x + 1] = to16(c.g);
            row[3 * x + 2] = to16(c.b);
        }
    }
    if (planes.mono16) {
        canvas.mono16.resize(pixels);
        for (size_t i = 0; i < pixels; ++i)
            canvas.mono16[i] =
                luma16(canvas.rgb16[3 * i], canvas.rgb16[3 * i + 1], canvas.rgb16[3 * i + 2]);
    }
    if (planes.ycc8) {
        canvas.ycc8.resize(3 * pixels);
        for (size_t i = 0; i < pixels; ++i)
            ycbcrFromRgb8(canvas.rgb16[3 * i] >> 8, canvas.rgb16[3 * i + 1] >> 8,
                          canvas.rgb16[3 * i + 2] >> 8, &canvas.ycc8[3 * i]);
    }
    return canvas;
}

PolarizationRegion polarizationRegionAt(uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    // 8 columns of angle 0, 22.5, ... 157.5 degrees; 5 rows of degree 0, 0.25, ... 1; four
    // intensity levels in a diagonal pattern. Region sizes are even so that edges fall between
    // mosaic cells.
    constexpr uint32_t kColumns = 8, kRows = 5;
    const uint32_t regionW = std::max(2u, (width / kColumns) & ~1u);
    const uint32_t regionH = std::max(2u, (height / kRows) & ~1u);
    const uint32_t col = std::min(kColumns - 1, x / regionW);
    const uint32_t row = std::min(kRows - 1, y / regionH);
    return {24000.0 + 8000.0 * ((row + col) % 4), 22.5 * col, 0.25 * row};
}

double polarizerAngleAt(uint32_t x, uint32_t y) {
    static constexpr double kAngles[2][2] = {{90, 45}, {135, 0}};
    return kAngles[y & 1][x & 1];
}

uint16_t intensityBehindPolarizer(const PolarizationRegion& region, double thetaDegrees) {
    const double twice = 2 * (thetaDegrees - region.angleDegrees) * kPi / 180;
    const double v = region.s0 / 2 * (1 + region.degree * std::cos(twice));
    return static_cast<uint16_t>(std::lround(std::clamp(v, 0.0, 65535.0)));
}

SceneCanvas renderPolarizationScene(uint32_t width, uint32_t height) {
    SceneCanvas canvas;
    canvas.width = width;
    canvas.height = height;
    canvas.mono16.resize(size_t{width} * height);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            canvas.mono16[size_t{y} * width + x] = intensityBehindPolarizer(
                polarizationRegionAt(x, y, width, height), polarizerAngleAt(x, y));
    return canvas;
}

}  // namespace camera
}  // namespace ZTI
