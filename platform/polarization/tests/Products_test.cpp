#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "Mosaic.h"
#include "Polarization.h"

using poltest::floatAt;
using poltest::Mosaic;
using poltest::referenceStokes;

namespace {

struct FloatProduct {
    const char* name;
    void (*create)(const pol::ImageInfo&, pol::ImageInfo&);
    int kind;
    std::function<double(const poltest::Stokes&)> reference;
    double tolerance;
};

// Stokes values are sums of interpolated 8-bit samples, multiples of 1/8, exact in float: any
// difference beyond float rounding is a fault. AoLP allows for the arctangent approximation
// (about 1e-6 rad), DoLP for float sqrt and division.
const FloatProduct kFloatProducts[] = {
    {"S0", pol::CreateStokesS0, pol::kStokesS0, [](const poltest::Stokes& s) { return s.s0; }, 1e-4},
    {"S1", pol::CreateStokesS1, pol::kStokesS1, [](const poltest::Stokes& s) { return s.s1; }, 1e-4},
    {"S2", pol::CreateStokesS2, pol::kStokesS2, [](const poltest::Stokes& s) { return s.s2; }, 1e-4},
    {"DoLP", pol::CreateDOLP, pol::kDolp, [](const poltest::Stokes& s) { return s.dolp(); }, 1e-6},
    {"AoLP", pol::CreateAOLP, pol::kAolp, [](const poltest::Stokes& s) { return s.aolp(); }, 3e-6},
};

}  // namespace

TEST(Products, MatchAnIndependentBilinearReferenceAtEveryPixel) {
    // Sizes from the smallest mosaic (one cell, all edges) to several cells; padded rows.
    const int sizes[][2] = {{2, 2}, {4, 2}, {2, 6}, {6, 4}, {10, 8}, {34, 6}};
    unsigned seed = 1;
    for (const auto& size : sizes) {
        Mosaic m = poltest::randomMosaic(size[0], size[1], 3, seed++);
        for (const FloatProduct& product : kFloatProducts) {
            SCOPED_TRACE(testing::Message() << product.name << " " << m.width << " x " << m.height);
            pol::ImageInfo out;
            product.create(m.info(), out);
            ASSERT_EQ(out.width, m.width);
            ASSERT_EQ(out.height, m.height);
            ASSERT_EQ(out.kind, product.kind);
            ASSERT_GE(out.stride, 4 * m.width);
            ASSERT_EQ(out.data, out.matrix.data);
            for (int y = 0; y < m.height; ++y)
                for (int x = 0; x < m.width; ++x)
                    ASSERT_NEAR(floatAt(out, y, x), product.reference(referenceStokes(m, y, x)),
                                product.tolerance)
                        << "at (" << y << ", " << x << ")";
        }
        // Glare: the reference rounded; a reference landing within float error of .5 may round
        // either way, hence 1.
        pol::ImageInfo glare;
        pol::CreateGlareReduced(m.info(), glare);
        ASSERT_EQ(glare.width, m.width);
        ASSERT_EQ(glare.stride, m.width);  // packed
        for (int y = 0; y < m.height; ++y)
            for (int x = 0; x < m.width; ++x) {
                const poltest::Stokes s = referenceStokes(m, y, x);
                const double expected = std::clamp((s.s0 - s.polarized()) / 2, 0.0, 255.0);
                ASSERT_NEAR(poltest::byteAt(glare, y, x), expected, 0.5 + 1e-3)
                    << "at (" << y << ", " << x << ")";
            }
    }
}

TEST(Products, RecoverTheLightOfASyntheticScene) {
    // Four regions of known light, rendered by I(t) = S0/2 (1 + DoLP cos 2(t - AoLP)) and
    // rounded to 8 bits. The rounding moves S1 and S2 by at most 1 and S0 by at most 1, so with
    // S0 >= 300 and DoLP >= 0.4: DoLP within (sqrt 2 + 1) / 300 < 0.01 and AoLP within
    // sqrt 2 / (2 x 120) < 0.01 rad. No intensity exceeds 255.
    struct Light {
        double s0, dolp, aolpDegrees;
    };
    const Light regions[2][2] = {{{300, 0.4, -60}, {300, 0.7, 30}},
                                 {{340, 0.5, 80}, {320, 0.55, -5}}};
    const int w = 24, h = 16;
    Mosaic m(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const Light& l = regions[y / (h / 2)][x / (w / 2)];
            const double v = poltest::intensity(l.s0, l.dolp, l.aolpDegrees * M_PI / 180,
                                                poltest::angleAt(y, x));
            m.at(y, x) = static_cast<unsigned char>(std::lround(std::clamp(v, 0.0, 255.0)));
        }
    pol::ImageInfo s0, s1, s2, dolp, aolp, glare;
    pol::CreateStokesS0(m.info(), s0);
    pol::CreateStokesS1(m.info(), s1);
    pol::CreateStokesS2(m.info(), s2);
    pol::CreateDOLP(m.info(), dolp);
    pol::CreateAOLP(m.info(), aolp);
    pol::CreateGlareReduced(m.info(), glare);

    // Interpolation reaches one pixel into the neighbouring region: stay 2 pixels inside.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int ry = y % (h / 2), rx = x % (w / 2);
            if (ry < 2 || ry >= h / 2 - 2 || rx < 2 || rx >= w / 2 - 2) continue;
            SCOPED_TRACE(testing::Message() << "at (" << y << ", " << x << ")");
            const Light& l = regions[y / (h / 2)][x / (w / 2)];
            // The light is physical: the polarized part never exceeds the total.
            const double polarized = std::hypot(floatAt(s1, y, x), floatAt(s2, y, x));
            EXPECT_GE(floatAt(s0, y, x) + 1.0, polarized);
            EXPECT_NEAR(floatAt(s0, y, x), l.s0, 1.0);
            EXPECT_NEAR(floatAt(dolp, y, x), l.dolp, 0.01);
            // Angles are axial (modulo 180 degrees); none of the regions is near +-90.
            EXPECT_NEAR(floatAt(aolp, y, x), l.aolpDegrees * M_PI / 180, 0.01);
            // The least intensity over all polarizer angles: S0/2 (1 - DoLP), rounded.
            EXPECT_NEAR(poltest::byteAt(glare, y, x), l.s0 / 2 * (1 - l.dolp), 2.0);
        }
}

TEST(ConvertTo8BPP, ScalesEachKindRoundsToEvenAndSaturates) {
    // Expected bytes by hand from the scalings; .5 cases round to the even neighbour, values
    // outside the range and NaN saturate.
    struct Case {
        int kind;
        float values[6];
        unsigned char expected[6];
    };
    const float halfPi = static_cast<float>(M_PI / 2);
    const Case cases[] = {
        {pol::kStokesS0, {0, 1, 3, 510, 600, -4}, {0, 0, 2, 255, 255, 0}},
        {pol::kStokesS1, {-255, 0, 1, 255, 300, NAN}, {0, 128, 128, 255, 255, 0}},
        {pol::kStokesS2, {-254, -253, 2, 254, -1000, 0.5f}, {0, 1, 128, 254, 0, 128}},
        {pol::kDolp, {0, 0.5f, 1, 1.5f, -0.1f, 0.1f}, {0, 128, 255, 255, 0, 26}},
        {pol::kAolp, {-halfPi, 0, halfPi, 0.7853982f, -0.7853982f, 2}, {0, 128, 255, 191, 64, 255}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "kind " << c.kind);
        // Two rows, the second a copy of the first, with padding between them.
        std::vector<float> pixels(2 * 8, -1.0f);
        std::copy(c.values, c.values + 6, pixels.begin());
        std::copy(c.values, c.values + 6, pixels.begin() + 8);
        pol::ImageInfo in;
        in.width = 6;
        in.height = 2;
        in.stride = 8 * sizeof(float);
        in.data = reinterpret_cast<unsigned char*>(pixels.data());
        in.kind = c.kind;
        pol::ImageInfo out;
        pol::ConvertTo8BPP(in, out);
        ASSERT_EQ(out.width, 6);
        ASSERT_EQ(out.height, 2);
        ASSERT_EQ(out.stride, 6);
        EXPECT_EQ(out.kind, pol::kMono8);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 6; ++x)
                EXPECT_EQ(int(poltest::byteAt(out, y, x)), int(c.expected[x])) << "value " << c.values[x];
    }

    // An 8-bit image is copied into packed rows.
    Mosaic m = poltest::randomMosaic(3, 2, 5, 7);
    pol::ImageInfo eight = m.info();
    pol::ImageInfo packed;
    pol::ConvertTo8BPP(eight, packed);
    ASSERT_EQ(packed.stride, 3);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) EXPECT_EQ(poltest::byteAt(packed, y, x), m.at(y, x));
}

TEST(Quadrants, SplitTheMosaicByAngle) {
    // Values 0..15 in row order; padding bytes are 0xEE and must not show up.
    Mosaic m(4, 4, 2);
    for (int i = 0; i < 16; ++i) m.at(i / 4, i % 4) = static_cast<unsigned char>(i);
    struct Case {
        void (*extract)(const pol::ImageInfo&, pol::ImageInfo&);
        unsigned char expected[4];
    };
    const Case cases[] = {
        {pol::ExtractPolarQuadrantI90, {0, 2, 8, 10}},
        {pol::ExtractPolarQuadrantI45, {1, 3, 9, 11}},
        {pol::ExtractPolarQuadrantI135, {4, 6, 12, 14}},
        {pol::ExtractPolarQuadrantI0, {5, 7, 13, 15}},
    };
    for (const Case& c : cases) {
        pol::ImageInfo out;
        c.extract(m.info(), out);
        ASSERT_EQ(out.width, 2);
        ASSERT_EQ(out.height, 2);
        ASSERT_EQ(out.stride, 2);
        EXPECT_EQ(out.kind, pol::kMono8);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(out.data[i], c.expected[i]) << "byte " << i;
    }
}
