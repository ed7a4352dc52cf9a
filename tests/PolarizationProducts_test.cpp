// Polarization products of frames: known light through every source depth, heat-map rows, and
// failures that leave the destination alone.
#include "PolarizationProducts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "ImageConverterFactory.h"
#include "PolarizationBridge.h"

using namespace ZTI;

TEST(PolarizationProducts, RecoverKnownLightFromMono8Mono12AndMono16Frames) {
    // Four regions of light {S0, DoLP, AoLP in degrees}, each pixel rendered as
    // I(t) = S0/2 (1 + DoLP cos 2(t - AoLP)) for its polarizer angle t (90 45 / 135 0 per cell)
    // at the format's full scale. With S0 >= 300 and DoLP >= 0.4 the 8-bit samples fix DoLP
    // within 0.01 and AoLP within 0.01 rad; no sample exceeds full scale.
    const double regions[2][2][3] = {{{300, 0.4, -60}, {300, 0.7, 30}}, {{340, 0.5, 80}, {320, 0.55, -5}}};
    const int angles[2][2] = {{90, 45}, {135, 0}};
    const unsigned w = 24, h = 16;
    for (PfncFormat_ format : {Mono8, Mono12, Mono16}) {
        SCOPED_TRACE(testing::Message() << "format " << std::hex << format);
        const double fullScale = format == Mono8 ? 255 : format == Mono12 ? 4095 : 65535;
        // The Mono8 frame has padded rows, which must reach the library with their stride.
        ZTImage frame = ZTImage::create(format, w, h, format == Mono8 ? 3 : 0);
        for (unsigned y = 0; y < h; ++y)
            for (unsigned x = 0; x < w; ++x) {
                const double* l = regions[y / 8][x / 12];
                const long v = std::lround(l[0] / 2 * (1 + l[1] * std::cos((angles[y % 2][x % 2] - l[2]) * M_PI / 90)) / 255 * fullScale);
                if (format == Mono8) frame.getBuffer()[y * frame.getStride() + x] = static_cast<unsigned char>(v);
                else reinterpret_cast<uint16_t*>(frame.getBuffer())[y * w + x] = static_cast<uint16_t>(v);
            }
        ZTImage s0, s1, s2, dolp, aolp, glare;
        ASSERT_EQ(CreateStokesS0(frame, s0) | CreateStokesS1(frame, s1) | CreateStokesS2(frame, s2) |
                      CreateDolp(frame, dolp) | CreateAolp(frame, aolp) | CreateGlareReduced(frame, glare), 0);
        for (const ZTImage* p : {&s0, &s1, &s2, &dolp, &aolp, &glare})
            ASSERT_TRUE(p->getPixelType() == Mono8 && p->getWidth() == w && p->getStride() == w && p->getHeight() == h);
        // Region interiors only: interpolation reaches one pixel across a border. Expected bytes
        // from the scalings S0 / 2, (S1 + 255) / 2, 255 DoLP, 255 (AoLP + pi/2) / pi and
        // S0/2 (1 - DoLP); tolerances are the estimate's errors scaled plus 0.5 for rounding
        // (12-bit samples are rounded twice, hence the margin on S1 and S2).
        for (unsigned y = 0; y < h; ++y)
            for (unsigned x = 0; x < w; ++x) {
                if (y % 8 < 2 || y % 8 >= 6 || x % 12 < 2 || x % 12 >= 10) continue;
                const double* l = regions[y / 8][x / 12];
                const double a = l[2] * M_PI / 180;
                const size_t i = y * w + x;
                EXPECT_NEAR(s0.getBuffer()[i], l[0] / 2, 1.0) << "at " << i;
                EXPECT_NEAR(s1.getBuffer()[i], (l[0] * l[1] * std::cos(2 * a) + 255) / 2, 1.2) << "at " << i;
                EXPECT_NEAR(s2.getBuffer()[i], (l[0] * l[1] * std::sin(2 * a) + 255) / 2, 1.2) << "at " << i;
                EXPECT_NEAR(dolp.getBuffer()[i], 255 * l[1], 255 * 0.01 + 0.5) << "at " << i;
                EXPECT_NEAR(aolp.getBuffer()[i], 255 * (a + M_PI / 2) / M_PI, 255 * 0.01 / M_PI + 0.5) << "at " << i;
                EXPECT_NEAR(glare.getBuffer()[i], l[0] / 2 * (1 - l[1]), 2.0) << "at " << i;
            }
    }
}

TEST(PolarizationProducts, HeatmapRowsArePackedWhateverTheLibraryStride) {
    // Uniform light of DoLP exactly 0.5 (I0 150, I45 and I135 100, I90 50). The library pads
    // 10-pixel rows (30 bytes to 32), not 16-pixel ones (48 bytes); both arrive packed, and the
    // parameters arrive in order: range, then low and high colour.
    const struct {
        unsigned low, high, lowColor, highColor;
        unsigned char rgb[3];
    } cases[] = {{0, 100, 0, 6, {0, 255, 0}},    // black..white: 50 % is green, the middle entry
                 {50, 100, 1, 5, {0, 0, 255}},   // at the low edge: blue
                 {0, 50, 1, 5, {255, 0, 0}}};    // at the high edge: red
    for (unsigned width : {10u, 16u}) {
        ZTImage frame = ZTImage::create(Mono8, width, 4);
        for (unsigned i = 0; i < 4 * width; ++i) frame.getBuffer()[i] = (i / width) % 2 ? (i % 2 ? 150 : 100) : (i % 2 ? 100 : 50);
        const std::vector<unsigned char> before(frame.getBuffer(), frame.getBuffer() + 4 * width);
        for (const auto& c : cases) {
            ZTImage map;
            ASSERT_EQ(CreateHeatmap(frame, map, c.low, c.high, c.lowColor, c.highColor), 0);
            ASSERT_TRUE(map.getPixelType() == RGB8 && map.getWidth() == width && map.getStride() == 3 * width);
            for (size_t p = 0; p < 4 * width; ++p)
                ASSERT_EQ(std::memcmp(map.getBuffer() + 3 * p, c.rgb, 3), 0) << width << " wide, range from " << c.low << ", pixel " << p;
        }
        EXPECT_TRUE(std::equal(before.begin(), before.end(), frame.getBuffer()));  // read in place, never written
    }
}

TEST(PolarizationBridge, OnlyTheHeatmapConsultsTheOutputStride) {
    // Records as another polarization library might fill them, over 4 rows of 2 pixels:
    // bytes 0, 1, 2 ... . The 8-bit products are packed by the library's contract, so their
    // stride is never read: the first width x height bytes are the image. The heat map's rows
    // are copied by the stride only when it exceeds a packed row (6 bytes); a stride of 0,
    // negative or at most a row means packed rows.
    std::vector<unsigned char> data(64);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i);
    const auto record = [&](int stride) {
        pol::ImageInfo out;
        out.width = 2;
        out.height = 4;
        out.stride = stride;
        out.data = data.data();
        return out;
    };
    for (int stride : {0, -3, 1, 2, 5, 16}) {
        ZTImage product;
        ASSERT_TRUE(polarization::publish(record(stride), Mono8, 1, product)) << "stride " << stride;
        ASSERT_EQ(product.getStride(), 2u);
        EXPECT_EQ(0, std::memcmp(product.getBuffer(), data.data(), 8)) << "stride " << stride;
    }
    for (int stride : {0, -3, 1, 5, 6, 9}) {
        ZTImage map;
        ASSERT_TRUE(polarization::publishRows(record(stride), RGB8, 3, map)) << "stride " << stride;
        ASSERT_EQ(map.getStride(), 6u);
        const int from = stride > 6 ? stride : 6;
        for (int y = 0; y < 4; ++y)
            EXPECT_EQ(0, std::memcmp(map.getBuffer() + 6 * y, data.data() + from * y, 6)) << "stride " << stride << ", row " << y;
    }
}

TEST(PolarizationProducts, FailuresLeaveTheDestinationAlone) {
    const PfncFormat_ noMono8 = RGB10V1Packed;
    ASSERT_FALSE(ImageConverterFactory::canConvert(Mono8, noMono8));
    unsigned char bytes[25] = {};
    ZTImage cutShort;  // a 4 x 4 Mono8 buffer stating 15 bytes
    cutShort.attachUserBuffer(bytes, 15, Mono8, 4, 4, 0);
    const std::pair<std::string, std::function<int(const ZTImage&, ZTImage&)>> functions[] = {
        {"S0", CreateStokesS0}, {"S1", CreateStokesS1}, {"S2", CreateStokesS2}, {"DoLP", CreateDolp},
        {"AoLP", CreateAolp}, {"glare", CreateGlareReduced},
        {"heatmap", [](const ZTImage& s, ZTImage& d) { return CreateHeatmap(s, d, 0, 100, 1, 5); }},
        {"plane", [](const ZTImage& s, ZTImage& d) { return ExtractPolarQuadrant(s, d, PolarQuadrantI45); }},
        {"bad plane", [](const ZTImage& s, ZTImage& d) { return ExtractPolarQuadrant(s, d, PolarizationQuadrant(4)); }},
        {"tiles", ExtractFullPolarQuadrant}};
    // Sources, and the functions that do not fail on them.
    const std::pair<ZTImage, std::vector<std::string>> sources[] = {
        {ZTImage(), {}},
        {cutShort, {}},
        {ZTImage::create(noMono8, 4, 4), {"heatmap"}},            // mapped anyway (below)
        {ZTImage(Mono8, 1, 4, 0, bytes), {"tiles"}},              // reset, nothing to tile
        {ZTImage(Mono8, 5, 5, 0, bytes), {"plane", "tiles"}}};    // planes skip the odd row and column
    for (const auto& [name, run] : functions)
        for (const auto& [source, exempt] : sources) {
            if (std::find(exempt.begin(), exempt.end(), name) != exempt.end()) continue;
            ZTImage dst(RGB8, 2, 2, 0, bytes);
            const unsigned char* buffer = dst.getBuffer();
            EXPECT_EQ(run(source, dst), -1) << name << " of " << source.getWidth() << " x " << source.getHeight();
            EXPECT_EQ(dst.getBuffer(), buffer);
        }
    // The heat map of a source without conversion is made of the converter's untouched
    // destination: an RGB8 map of the source's size.
    ZTImage map;
    EXPECT_EQ(CreateHeatmap(ZTImage::create(noMono8, 4, 4), map, 0, 100, 0, 5), 0);
    EXPECT_TRUE(map.getPixelType() == RGB8 && map.getWidth() == 4u);
}
