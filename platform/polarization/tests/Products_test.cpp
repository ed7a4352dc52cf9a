// Products against an independent bilinear reference, 8-bit scaling against hand-computed
// bytes, heat-map colours at known DoLP values and range edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "Polarization.h"

namespace {

/// Reference intensity behind polarizer `angle` at (y, x) of a w x h mosaic, written from the
/// geometry rather than the library's row scheme: the angle's samples sit at (2v + oy, 2u + ox)
/// (90 45 / 135 0 in each cell); the pixel maps to lattice coordinates ((y - oy)/2, (x - ox)/2),
/// clamped to the lattice (edge replication) and interpolated bilinearly.
double intensity(const unsigned char* m, int stride, int w, int h, int angle, int y, int x) {
    const int oy = angle == 135 || angle == 0, ox = angle == 45 || angle == 0;
    const double u = std::clamp((x - ox) / 2.0, 0.0, w / 2 - 1.0), v = std::clamp((y - oy) / 2.0, 0.0, h / 2 - 1.0);
    const int u0 = int(u), v0 = int(v), u1 = std::min(u0 + 1, w / 2 - 1), v1 = std::min(v0 + 1, h / 2 - 1);
    auto at = [&](int vv, int uu) { return double(m[(2 * vv + oy) * stride + 2 * uu + ox]); };
    return (1 - (v - v0)) * ((1 - (u - u0)) * at(v0, u0) + (u - u0) * at(v0, u1)) +
           (v - v0) * ((1 - (u - u0)) * at(v1, u0) + (u - u0) * at(v1, u1));
}

}  // namespace

TEST(Products, MatchAnIndependentBilinearReferenceAtEveryPixel) {
    // Stokes values are sums of interpolated 8-bit samples, multiples of 1/8 and exact in
    // float: anything beyond float rounding is a fault. AoLP allows for the arctangent
    // approximation (below 5e-6 rad), DoLP for float sqrt and division. Glare is rounded: within
    // float error of .5 either neighbour will do.
    void (*const create[])(const pol::ImageInfo&, pol::ImageInfo&) = {
        pol::CreateStokesS0, pol::CreateStokesS1, pol::CreateStokesS2, pol::CreateDOLP, pol::CreateAOLP, pol::CreateGlareReduced};
    const double tolerance[] = {1e-4, 1e-4, 1e-4, 1e-6, 6e-6, 0.501};
    // From the smallest mosaic (one cell, all edges) to several cells; rows padded by 3.
    for (auto [w, h] : {std::pair{2, 2}, {4, 2}, {2, 6}, {6, 4}, {34, 8}}) {
        std::vector<unsigned char> m(static_cast<size_t>(w + 3) * h);
        std::mt19937 rng(static_cast<unsigned>(w * h));
        for (auto& b : m) b = static_cast<unsigned char>(rng());
        const pol::ImageInfo in{w, h, w + 3, m.data(), pol::kMono8, {}};
        for (int p = 0; p < 6; ++p) {
            pol::ImageInfo out;
            create[p](in, out);
            ASSERT_EQ(out.width, w);
            ASSERT_EQ(out.height, h);
            ASSERT_EQ(out.kind, p < 5 ? p + 1 : pol::kMono8);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    double i[4];  // 0, 45, 90, 135 degrees
                    for (int a = 0; a < 4; ++a) i[a] = intensity(m.data(), w + 3, w, h, 45 * a, y, x);
                    const double s0 = (i[0] + i[1] + i[2] + i[3]) / 2, s1 = i[0] - i[2], s2 = i[1] - i[3];
                    const double expected[] = {s0, s1, s2, s0 > 0 ? std::min(std::hypot(s1, s2) / s0, 1.0) : 0,
                                               std::atan2(s2, s1) / 2, std::clamp((s0 - std::hypot(s1, s2)) / 2, 0.0, 255.0)};
                    const unsigned char* row = out.data + y * out.stride;
                    const double actual = p < 5 ? reinterpret_cast<const float*>(row)[x] : row[x];
                    ASSERT_NEAR(actual, expected[p], tolerance[p]) << "product " << p << " of " << w << " x " << h << " at (" << y << ", " << x << ")";
                }
        }
    }
}

TEST(Products, EightBitScalingRoundsToEvenAndSaturates) {
    // Bytes by hand from each kind's scaling; .5 goes to the even neighbour; out of range and
    // NaN saturate. Two padded rows in, packed rows out.
    const float q = static_cast<float>(M_PI / 4);
    const struct {
        int kind;
        float values[6];
        unsigned char expected[6];
    } cases[] = {
        {pol::kStokesS0, {0, 1, 3, 510, 600, -4}, {0, 0, 2, 255, 255, 0}},
        {pol::kStokesS1, {-255, 0, 1, 255, 300, NAN}, {0, 128, 128, 255, 255, 0}},
        {pol::kStokesS2, {-254, -253, 2, 254, -1000, 0.5f}, {0, 1, 128, 254, 0, 128}},
        {pol::kDolp, {0, 0.5f, 1, 1.5f, -0.1f, 0.1f}, {0, 128, 255, 255, 0, 26}},
        {pol::kAolp, {-2 * q, 0, 2 * q, q, -q, 2}, {0, 128, 255, 191, 64, 255}},
    };
    for (const auto& c : cases) {
        std::vector<float> rows(16, -1.0f);
        std::copy(c.values, c.values + 6, rows.begin());
        std::copy(c.values, c.values + 6, rows.begin() + 8);
        pol::ImageInfo out;
        pol::ConvertTo8BPP({6, 2, 32, reinterpret_cast<unsigned char*>(rows.data()), c.kind, {}}, out);
        ASSERT_EQ(out.stride, 6) << "kind " << c.kind;
        ASSERT_EQ(out.kind, pol::kMono8);
        for (int i = 0; i < 12; ++i)
            EXPECT_EQ(int(out.data[i]), int(c.expected[i % 6])) << "kind " << c.kind << ", value " << c.values[i % 6];
    }
}

namespace {

using Rgb = std::array<int, 3>;
const Rgb kBlack{0, 0, 0}, kBlue{0, 0, 255}, kCyan{0, 255, 255}, kGreen{0, 255, 0}, kYellow{255, 255, 0},
    kRed{255, 0, 0}, kWhite{255, 255, 255};

/// Colours of the heat map of a one-row 8-bit DoLP image holding `values`.
std::vector<Rgb> colorsOf(std::vector<unsigned char> values, uint32_t first, uint32_t second, uint32_t low, uint32_t high) {
    const int n = static_cast<int>(values.size());
    pol::ImageInfo out;
    pol::ApplyHeatmap({n, 1, n, values.data(), pol::kMono8, {}}, out, {false, first, second, low, high});
    std::vector<Rgb> colors;
    for (int x = 0; x < out.width; ++x) colors.push_back({out.data[3 * x], out.data[3 * x + 1], out.data[3 * x + 2]});
    return colors;
}

}  // namespace

TEST(Products, HeatmapColoursAtKnownDolpAndRangeEdges) {
    // 8-bit DoLP v is 100 v / 255 percent: 51, 102, 153, 204, 255 are exactly 20, 40, 60, 80,
    // 100 %; 76 is 29.80 %.
    const std::vector<unsigned char> v{0, 51, 76, 102, 153, 204, 255};
    // Blue to red over 20..100 %: four steps of 20 % through cyan, green and yellow; 29.80 %
    // is 0.49 of the way from blue to cyan: G = (7600 / 255 - 20) / 20 x 255 = 125.
    EXPECT_EQ(colorsOf(v, 20, 100, pol::kBlue, pol::kRed),
              (std::vector<Rgb>{kBlue, kBlue, {0, 125, 255}, kCyan, kGreen, kYellow, kRed}));
    // Reversed indices run the same ramp backwards; equal ones give one colour.
    EXPECT_EQ(colorsOf(v, 20, 100, pol::kRed, pol::kBlue),
              (std::vector<Rgb>{kRed, kRed, {255, 125, 0}, kYellow, kGreen, kCyan, kBlue}));
    EXPECT_EQ(colorsOf(v, 20, 100, pol::kGreen, pol::kGreen), std::vector<Rgb>(v.size(), kGreen));
    // Indices above 6 count as white: black to white in six steps of 10 % over 0..60 %, so
    // 29.80 % is 0.98 of the way from cyan to green (B = 5).
    EXPECT_EQ(colorsOf(v, 0, 60, pol::kBlack, 1000),
              (std::vector<Rgb>{kBlack, kCyan, {0, 255, 5}, kYellow, kWhite, kWhite, kWhite}));
    // An empty or inverted range is a step: the low colour at or below `first` (127 is
    // 49.8 %, 153 exactly 60 %), the high colour above.
    EXPECT_EQ(colorsOf({0, 127, 128, 255}, 50, 50, pol::kBlue, pol::kRed), (std::vector<Rgb>{kBlue, kBlue, kRed, kRed}));
    EXPECT_EQ(colorsOf({102, 153, 154}, 60, 10, pol::kBlack, pol::kWhite), (std::vector<Rgb>{kBlack, kBlack, kWhite}));
}

// The heat map of a mosaic colours the DoLP that CreateDOLP computes, pixel by pixel: checked
// against the ramp written out plainly (position on the ramp, then the low colour plus every
// palette step passed, in float as the library does it, so the colours must be identical) for
// rising, falling, single-colour and stepped ramps.
TEST(Products, MosaicHeatmapColoursEveryPixelByItsDolp) {
    const Rgb palette[] = {kBlack, kBlue, kCyan, kGreen, kYellow, kRed, kWhite};
    const int w = 38, h = 10;
    std::vector<unsigned char> m(static_cast<size_t>(w) * h);
    std::mt19937 rng(4);
    for (auto& b : m) b = static_cast<unsigned char>(rng() % 4 == 0 ? 255 : rng());
    const pol::ImageInfo in{w, h, w, m.data(), pol::kMono8, {}};
    pol::ImageInfo dolp;
    pol::CreateDOLP(in, dolp);
    const uint32_t options[][4] = {{0, 100, 1, 5}, {20, 70, 6, 0}, {10, 90, 3, 3}, {50, 50, 1, 5}, {0, 60, 0, 1000}};
    for (const auto& o : options) {
        pol::ImageInfo out;
        pol::ApplyHeatmap(in, out, {true, o[0], o[1], o[2], o[3]});
        ASSERT_EQ(out.width, w);
        const int low = static_cast<int>(std::min(o[2], 6u)), high = static_cast<int>(std::min(o[3], 6u));
        const int n = std::abs(high - low), dir = high >= low ? 1 : -1;
        const double span = static_cast<double>(o[1]) - o[0];
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const float d = reinterpret_cast<const float*>(dolp.data + y * dolp.stride)[x];
                const float s = o[0] >= o[1] ? (d * 100.0f > static_cast<float>(o[0]) ? float(n) : 0.0f)
                                             : std::min(std::max(d * static_cast<float>(100.0 * n / span) +
                                                                     static_cast<float>(-double(o[0]) * n / span),
                                                                 0.0f),
                                                        float(n));
                for (int ch = 0; ch < 3; ++ch) {
                    float v = static_cast<float>(palette[low][ch]);
                    for (int k = 0; k < n; ++k)
                        v += static_cast<float>(palette[low + (k + 1) * dir][ch] - palette[low + k * dir][ch]) *
                             std::min(std::max(s - static_cast<float>(k), 0.0f), 1.0f);
                    const int expected = static_cast<int>(std::nearbyint(std::clamp(v, 0.0f, 255.0f)));
                    ASSERT_EQ(out.data[y * out.stride + 3 * x + ch], expected)
                        << "DoLP " << d << " channel " << ch << " options " << o[0] << ' ' << o[1] << ' ' << o[2] << ' ' << o[3];
                }
            }
    }
}
