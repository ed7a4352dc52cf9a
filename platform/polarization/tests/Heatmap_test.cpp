#include <gtest/gtest.h>

#include <array>

#include "Mosaic.h"
#include "Polarization.h"

namespace {

using Rgb = std::array<int, 3>;

/// Heat map of a one-row 8-bit DoLP image holding `values`; the colour of each pixel.
std::vector<Rgb> colorsOf(const std::vector<unsigned char>& values, pol::HeatmapOption option) {
    std::vector<unsigned char> bytes = values;
    pol::ImageInfo in;
    in.width = static_cast<int>(bytes.size());
    in.height = 1;
    in.stride = in.width;
    in.data = bytes.data();
    pol::ImageInfo out;
    option.flag = false;
    pol::ApplyHeatmap(in, out, option);
    std::vector<Rgb> colors;
    if (out.width != in.width || out.height != 1 || out.kind != pol::kRgb8) return colors;
    for (int x = 0; x < in.width; ++x)
        colors.push_back({out.data[3 * x], out.data[3 * x + 1], out.data[3 * x + 2]});
    return colors;
}

pol::HeatmapOption rampOption(uint32_t first, uint32_t second, uint32_t low, uint32_t high) {
    pol::HeatmapOption option;
    option.first = first;
    option.second = second;
    option.third = low;
    option.fourth = high;
    return option;
}

const Rgb kBlack{0, 0, 0}, kBlue{0, 0, 255}, kCyan{0, 255, 255}, kGreen{0, 255, 0},
    kYellow{255, 255, 0}, kRed{255, 0, 0}, kWhite{255, 255, 255};

}  // namespace

TEST(Heatmap, RampThroughThePaletteBetweenTheRangeEdges) {
    // 8-bit DoLP v is 100 v / 255 percent: 51, 102, 153, 204 and 255 are exactly 20, 40, 60,
    // 80 and 100 %.
    const std::vector<unsigned char> values{0, 51, 76, 102, 153, 204, 255};

    // Blue to red over 20..100 %: four steps of 20 %, through cyan, green and yellow. 76 is
    // 29.80 %, 0.49 of the way from blue to cyan: G = (7600 / 255 - 20) / 20 x 255 = 125.
    EXPECT_EQ(colorsOf(values, rampOption(20, 100, pol::kBlue, pol::kRed)),
              (std::vector<Rgb>{kBlue, kBlue, {0, 125, 255}, kCyan, kGreen, kYellow, kRed}));
    // Reversed indices run the same ramp backwards.
    EXPECT_EQ(colorsOf(values, rampOption(20, 100, pol::kRed, pol::kBlue)),
              (std::vector<Rgb>{kRed, kRed, {255, 125, 0}, kYellow, kGreen, kCyan, kBlue}));
    // Equal indices: one colour whatever the DoLP.
    EXPECT_EQ(colorsOf(values, rampOption(20, 100, pol::kGreen, pol::kGreen)),
              std::vector<Rgb>(values.size(), kGreen));
    // Indices above 6 count as white; black to white takes six steps over 0..60 %, 10 % each,
    // so 29.80 % is 0.98 of the way from cyan to green (B = 5); 80 and 100 % lie above.
    EXPECT_EQ(colorsOf(values, rampOption(0, 60, pol::kBlack, 1000)),
              (std::vector<Rgb>{kBlack, kCyan, {0, 255, 5}, kYellow, kWhite, kWhite, kWhite}));
    // The default options: black to red over 0..100 %.
    EXPECT_EQ(colorsOf({0, 51, 255}, pol::HeatmapOption{}),
              (std::vector<Rgb>{kBlack, kBlue, kRed}));
}

TEST(Heatmap, EmptyRangeIsAStepAtTheFirstEdge) {
    // At or below `first` the low colour, above it the high colour; 127 is 49.8 %, 128 50.2 %.
    EXPECT_EQ(colorsOf({0, 127, 128, 255}, rampOption(50, 50, pol::kBlue, pol::kRed)),
              (std::vector<Rgb>{kBlue, kBlue, kRed, kRed}));
    // first > second: still a step at first; 153 is exactly 60 % and stays low.
    EXPECT_EQ(colorsOf({102, 153, 154, 255}, rampOption(60, 10, pol::kBlack, pol::kWhite)),
              (std::vector<Rgb>{kBlack, kBlack, kWhite, kWhite}));
}

TEST(Heatmap, ColoursAMosaicByItsDegreeOfPolarization) {
    // Light of S0 = 200, DoLP 0.5, AoLP 0: I0 = 150, I45 = I135 = 100, I90 = 50, so the DoLP
    // is exactly 0.5 everywhere; black to white over 0..100 % puts 50 % on green.
    for (int width : {10, 16}) {
        poltest::Mosaic m(width, 4);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < width; ++x) {
                const int angle = poltest::angleAt(y, x);
                m.at(y, x) = angle == 0 ? 150 : angle == 90 ? 50 : 100;
            }
        pol::HeatmapOption option = rampOption(0, 100, pol::kBlack, pol::kWhite);
        option.flag = true;
        pol::ImageInfo out;
        pol::ApplyHeatmap(m.info(), out, option);
        ASSERT_EQ(out.width, width);
        ASSERT_EQ(out.height, 4);
        EXPECT_EQ(out.kind, pol::kRgb8);
        // Rows are 16-byte aligned: 30 bytes are padded to 32, 48 need no padding.
        EXPECT_EQ(out.stride, width == 10 ? 32 : 48);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < width; ++x) {
                const Rgb color{poltest::byteAt(out, y, x, 3, 0), poltest::byteAt(out, y, x, 3, 1),
                                poltest::byteAt(out, y, x, 3, 2)};
                EXPECT_EQ(color, kGreen) << "at (" << y << ", " << x << ")";
            }
    }
}
