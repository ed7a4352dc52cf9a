// Polarization products of frames: known light recovered through every source depth, the
// bridge against the polarization library called directly, heat-map rows, and failures.
#include "PolarizationProducts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "ImageConverterFactory.h"
#include "Polarization.h"

using namespace ZTI;

namespace {

struct Light {
    double s0, dolp, aolp;  // aolp in radians
};

// Four regions of known light. With S0 >= 300 and DoLP >= 0.4 the 8-bit samples determine
// DoLP within 0.01 and AoLP within 0.01 rad (see the library's own tests); no sample exceeds
// full scale.
const Light kRegions[2][2] = {{{300, 0.4, -60 * M_PI / 180}, {300, 0.7, 30 * M_PI / 180}},
                              {{340, 0.5, 80 * M_PI / 180}, {320, 0.55, -5 * M_PI / 180}}};
const unsigned kWidth = 24, kHeight = 16;

const Light& lightAt(unsigned y, unsigned x) {
    return kRegions[y / (kHeight / 2)][x / (kWidth / 2)];
}

/// The scene as a Mono8, Mono12 or Mono16 frame: I(t) = S0/2 (1 + DoLP cos 2(t - AoLP)) with
/// t the polarizer angle of the pixel (90 45 / 135 0 per cell), scaled to the format's range.
ZTImage renderScene(PfncFormat_ format) {
    const double fullScale = format == Mono8 ? 255 : format == Mono12 ? 4095 : 65535;
    const int angles[2][2] = {{90, 45}, {135, 0}};
    ZTImage frame = ZTImage::create(format, kWidth, kHeight);
    for (unsigned y = 0; y < kHeight; ++y)
        for (unsigned x = 0; x < kWidth; ++x) {
            const Light& l = lightAt(y, x);
            const double t = angles[y % 2][x % 2] * M_PI / 180;
            const double v = l.s0 / 2 * (1 + l.dolp * std::cos(2 * (t - l.aolp))) / 255 * fullScale;
            const auto sample = static_cast<uint16_t>(std::lround(v));
            if (format == Mono8)
                frame.getBuffer()[y * kWidth + x] = static_cast<unsigned char>(sample);
            else
                reinterpret_cast<uint16_t*>(frame.getBuffer())[y * kWidth + x] = sample;
        }
    return frame;
}

ZTImage randomMono8(unsigned width, unsigned height, int padding, unsigned seed) {
    ZTImage image = ZTImage::create(Mono8, width, height, padding);
    std::mt19937 rng(seed);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < image.getStride(); ++x)
            image.getBuffer()[y * image.getStride() + x] = static_cast<unsigned char>(rng());
    return image;
}

using Function = std::function<int(const ZTImage&, ZTImage&)>;

struct Named {
    const char* name;
    Function run;
};

const std::vector<Named>& productFunctions() {
    static const std::vector<Named> functions{
        {"CreateStokesS0", CreateStokesS0},
        {"CreateStokesS1", CreateStokesS1},
        {"CreateStokesS2", CreateStokesS2},
        {"CreateDolp", CreateDolp},
        {"CreateAolp", CreateAolp},
        {"CreateGlareReduced", CreateGlareReduced},
        {"CreateHeatmap", [](const ZTImage& s, ZTImage& d) { return CreateHeatmap(s, d, 0, 100, 1, 5); }},
        {"ExtractPolarQuadrant", [](const ZTImage& s, ZTImage& d) { return ExtractPolarQuadrant(s, d, PolarQuadrantI45); }},
        {"ExtractFullPolarQuadrant", ExtractFullPolarQuadrant},
    };
    return functions;
}

std::vector<unsigned char> bytesOf(const ZTImage& image) {
    return std::vector<unsigned char>(image.getBuffer(), image.getBuffer() + image.getByteCount());
}

}  // namespace

TEST(PolarizationProducts, RecoverKnownLightFromMono8Mono12AndMono16Frames) {
    for (PfncFormat_ format : {Mono8, Mono12, Mono16}) {
        SCOPED_TRACE(testing::Message() << "format " << std::hex << format);
        const ZTImage frame = renderScene(format);
        ZTImage s0, s1, s2, dolp, aolp, glare;
        ASSERT_EQ(CreateStokesS0(frame, s0), 0);
        ASSERT_EQ(CreateStokesS1(frame, s1), 0);
        ASSERT_EQ(CreateStokesS2(frame, s2), 0);
        ASSERT_EQ(CreateDolp(frame, dolp), 0);
        ASSERT_EQ(CreateAolp(frame, aolp), 0);
        ASSERT_EQ(CreateGlareReduced(frame, glare), 0);
        for (const ZTImage* product : {&s0, &s1, &s2, &dolp, &aolp, &glare}) {
            ASSERT_EQ(product->getPixelType(), Mono8);
            ASSERT_EQ(product->getWidth(), kWidth);
            ASSERT_EQ(product->getHeight(), kHeight);
            ASSERT_EQ(product->getStride(), kWidth);
        }
        // Region interiors (interpolation reaches one pixel across a border). Expected bytes
        // from the scalings: S0 / 2, (S1 + 255) / 2, 255 DoLP, 255 (AoLP + pi/2) / pi and
        // S0/2 (1 - DoLP). Tolerances: the errors of the light's estimate scaled, plus 0.5 for
        // rounding; 12-bit samples are rounded twice (to 12 and then to 8 bits).
        for (unsigned y = 0; y < kHeight; ++y)
            for (unsigned x = 0; x < kWidth; ++x) {
                const unsigned ry = y % (kHeight / 2), rx = x % (kWidth / 2);
                if (ry < 2 || ry >= kHeight / 2 - 2 || rx < 2 || rx >= kWidth / 2 - 2) continue;
                SCOPED_TRACE(testing::Message() << "at (" << y << ", " << x << ")");
                const Light& l = lightAt(y, x);
                const size_t i = y * kWidth + x;
                EXPECT_NEAR(s0.getBuffer()[i], l.s0 / 2, 1.0);
                EXPECT_NEAR(s1.getBuffer()[i], (l.s0 * l.dolp * std::cos(2 * l.aolp) + 255) / 2, 1.2);
                EXPECT_NEAR(s2.getBuffer()[i], (l.s0 * l.dolp * std::sin(2 * l.aolp) + 255) / 2, 1.2);
                EXPECT_NEAR(dolp.getBuffer()[i], 255 * l.dolp, 255 * 0.01 + 0.5);
                EXPECT_NEAR(aolp.getBuffer()[i], 255 * (l.aolp + M_PI / 2) / M_PI, 255 * 0.01 / M_PI + 0.5);
                EXPECT_NEAR(glare.getBuffer()[i], l.s0 / 2 * (1 - l.dolp), 2.0);
            }
    }
}

TEST(PolarizationProducts, EqualTheLibraryOnTheSameMosaic) {
    // A padded Mono8 frame: each function must hand the library its rows with their stride,
    // pick the matching library function and copy its result whole.
    const ZTImage frame = randomMono8(10, 6, 3, 5);
    pol::ImageInfo in;
    in.width = 10;
    in.height = 6;
    in.stride = 13;
    in.data = frame.getBuffer();
    using Product = void (*)(const pol::ImageInfo&, pol::ImageInfo&);
    const std::pair<Function, Product> scaled[] = {
        {CreateStokesS0, pol::CreateStokesS0}, {CreateStokesS1, pol::CreateStokesS1},
        {CreateStokesS2, pol::CreateStokesS2}, {CreateDolp, pol::CreateDOLP},
        {CreateAolp, pol::CreateAOLP},
    };
    int index = 0;
    for (const auto& [function, product] : scaled) {
        SCOPED_TRACE(index++);
        pol::ImageInfo value, expected;
        product(in, value);
        pol::ConvertTo8BPP(value, expected);
        ZTImage out;
        ASSERT_EQ(function(frame, out), 0);
        EXPECT_EQ(std::memcmp(out.getBuffer(), expected.data, 60), 0);
    }
    pol::ImageInfo glare;
    pol::CreateGlareReduced(in, glare);
    ZTImage out;
    ASSERT_EQ(CreateGlareReduced(frame, out), 0);
    EXPECT_EQ(std::memcmp(out.getBuffer(), glare.data, 60), 0);
}

TEST(PolarizationProducts, HeatmapRowsArePackedWhateverTheLibraryStride) {
    // Uniform light of DoLP exactly 0.5 (I0 150, I45 and I135 100, I90 50). The library pads
    // 10-pixel rows (30 bytes to 32) and not 16-pixel ones (48 bytes): both arrive packed.
    for (unsigned width : {10u, 16u}) {
        ZTImage frame = ZTImage::create(Mono8, width, 4);
        for (unsigned y = 0; y < 4; ++y)
            for (unsigned x = 0; x < width; ++x)
                frame.getBuffer()[y * width + x] = (y % 2) ? (x % 2 ? 150 : 100) : (x % 2 ? 100 : 50);
        const std::vector<unsigned char> before = bytesOf(frame);
        struct Case {
            unsigned low, high, lowColor, highColor;
            unsigned char rgb[3];
        };
        // The parameters reach the library in order: range, then low and high colour.
        const Case cases[] = {
            {0, 100, 0, 6, {0, 255, 0}},   // black..white: 50 % is green, the middle
            {50, 100, 1, 5, {0, 0, 255}},  // at the low edge: blue
            {0, 50, 1, 5, {255, 0, 0}},    // at the high edge: red
            {0, 100, 5, 1, {0, 255, 0}},   // red..blue reversed: green in the middle
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message() << width << " wide, " << c.low << ".." << c.high);
            ZTImage map;
            ASSERT_EQ(CreateHeatmap(frame, map, c.low, c.high, c.lowColor, c.highColor), 0);
            ASSERT_EQ(map.getPixelType(), RGB8);
            ASSERT_EQ(map.getWidth(), width);
            ASSERT_EQ(map.getHeight(), 4u);
            ASSERT_EQ(map.getStride(), 3 * width);
            for (size_t p = 0; p < width * 4u; ++p)
                ASSERT_EQ(std::memcmp(map.getBuffer() + 3 * p, c.rgb, 3), 0) << "pixel " << p;
        }
        EXPECT_EQ(bytesOf(frame), before);
    }
}

TEST(PolarizationProducts, FailuresLeaveTheDestinationAndSourceAlone) {
    const PfncFormat_ noMono8 = RGB10V1Packed;
    ASSERT_FALSE(ImageConverterFactory::canConvert(Mono8, noMono8));
    unsigned char small[16] = {};
    ZTImage shortBuffer;  // 4 x 4 Mono8 that states 15 bytes: its last row is cut short
    shortBuffer.attachUserBuffer(small, 15, Mono8, 4, 4, 0);
    struct Source {
        const char* what;
        ZTImage image;
    };
    const Source sources[] = {
        {"invalid", ZTImage()},
        {"no conversion to Mono8", ZTImage::create(noMono8, 4, 4)},
        {"width 1", randomMono8(1, 4, 0, 1)},
        {"height 1", randomMono8(4, 1, 0, 1)},
        {"buffer shorter than its rows", shortBuffer},
    };
    for (const Named& f : productFunctions())
        for (const Source& s : sources) {
            // The heat map deliberately maps an unconvertible source (tested below); the full
            // tiling of a source without whole cells succeeds with nothing to tile.
            if (std::string(f.name) == "CreateHeatmap" && s.image.getPixelType() == noMono8) continue;
            if (std::string(f.name) == "ExtractFullPolarQuadrant" && s.image.isValid() &&
                (s.image.getWidth() == 1 || s.image.getHeight() == 1))
                continue;
            SCOPED_TRACE(std::string(f.name) + ", " + s.what);
            ZTImage dst(RGB8, 2, 2, 0, small);
            const unsigned char* buffer = dst.getBuffer();
            EXPECT_EQ(f.run(s.image, dst), -1);
            EXPECT_EQ(dst.getBuffer(), buffer);
            EXPECT_EQ(dst.getPixelType(), RGB8);
        }
    // Odd sizes: the products need whole cells; the planes ignore the odd last row and column.
    const ZTImage odd = randomMono8(5, 5, 0, 2);
    for (const Named& f : productFunctions()) {
        SCOPED_TRACE(f.name);
        ZTImage dst;
        const bool planes = std::string(f.name).find("Quadrant") != std::string::npos;
        EXPECT_EQ(f.run(odd, dst), planes ? 0 : -1);
    }
    // A quadrant outside 0..3 is rejected before anything else.
    for (int quadrant : {-1, 4}) {
        ZTImage dst(RGB8, 2, 2, 0, small);
        EXPECT_EQ(ExtractPolarQuadrant(randomMono8(4, 4, 0, 3), dst,
                                       static_cast<PolarizationQuadrant>(quadrant)), -1);
        EXPECT_EQ(dst.getPixelType(), RGB8);
    }
    // The heat map of a source without conversion is made from the converter's untouched
    // destination: an RGB8 map of the source's size.
    ZTImage map;
    EXPECT_EQ(CreateHeatmap(ZTImage::create(noMono8, 4, 4), map, 0, 100, 0, 5), 0);
    EXPECT_EQ(map.getPixelType(), RGB8);
    EXPECT_EQ(map.getWidth(), 4u);
}
