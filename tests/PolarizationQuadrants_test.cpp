// Single-angle planes and the two full tilings: the tilings agree with each other and with
// the planes, keep the source depth where they should, and handle degenerate sources.
#include "PolarizationProducts.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace ZTI;

namespace {

ZTImage counting(PfncFormat_ format, unsigned width, unsigned height, unsigned step) {
    ZTImage image = ZTImage::create(format, width, height);
    for (unsigned i = 0; i < width * height; ++i) {
        if (format == Mono16)
            reinterpret_cast<uint16_t*>(image.getBuffer())[i] = static_cast<uint16_t>(i * step);
        else
            image.getBuffer()[i] = static_cast<unsigned char>(i * step);
    }
    return image;
}

std::vector<unsigned> valuesOf(const ZTImage& image, unsigned width, unsigned height) {
    std::vector<unsigned> values;
    for (unsigned i = 0; i < width * height; ++i)
        values.push_back(image.getPixelType() == Mono16
                             ? reinterpret_cast<const uint16_t*>(image.getBuffer())[i]
                             : image.getBuffer()[i]);
    return values;
}

}  // namespace

TEST(PolarizationQuadrants, BothTilingsAgreeWithEachOtherAndWithThePlanes) {
    // 0..15 in row order tile as 0 2 1 3 / 8 10 9 11 / 4 6 5 7 / 12 14 13 15: the 90-degree
    // samples top left, 45 top right, 135 bottom left, 0 bottom right.
    const ZTImage frame = counting(Mono8, 4, 4, 1);
    ZTImage byLibrary, byCopy;
    ASSERT_EQ(ExtractFullPolarQuadrant(frame, byLibrary), 0);
    ASSERT_EQ(extractFullPolarQuadrant(frame, byCopy), 0);
    const std::vector<unsigned> expected{0, 2, 1, 3, 8, 10, 9, 11, 4, 6, 5, 7, 12, 14, 13, 15};
    EXPECT_EQ(valuesOf(byLibrary, 4, 4), expected);
    EXPECT_EQ(valuesOf(byCopy, 4, 4), expected);
    EXPECT_EQ(byCopy.getPixelType(), Mono8);

    // A larger frame with odd width and height: the tiled blocks agree and each block is the
    // plane ExtractPolarQuadrant gives. Planes are 4 x 3; the last row and column of the
    // destinations are not part of any block.
    const ZTImage odd = counting(Mono8, 9, 7, 7);
    ASSERT_EQ(ExtractFullPolarQuadrant(odd, byLibrary), 0);
    ASSERT_EQ(extractFullPolarQuadrant(odd, byCopy), 0);
    ASSERT_EQ(byLibrary.getWidth(), 9u);
    ASSERT_EQ(byLibrary.getHeight(), 7u);
    const struct {
        PolarizationQuadrant quadrant;
        unsigned row0, col0;
    } blocks[] = {{PolarQuadrantI90, 0, 0}, {PolarQuadrantI45, 0, 4}, {PolarQuadrantI135, 3, 0},
                  {PolarQuadrantI0, 3, 4}};
    for (const auto& block : blocks) {
        ZTImage plane;
        ASSERT_EQ(ExtractPolarQuadrant(odd, plane, block.quadrant), 0);
        ASSERT_EQ(plane.getWidth(), 4u);
        ASSERT_EQ(plane.getHeight(), 3u);
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 4; ++c) {
                const size_t at = (block.row0 + r) * 9 + block.col0 + c;
                EXPECT_EQ(byLibrary.getBuffer()[at], plane.getBuffer()[r * 4 + c]) << "quadrant " << block.quadrant;
                EXPECT_EQ(byCopy.getBuffer()[at], plane.getBuffer()[r * 4 + c]) << "quadrant " << block.quadrant;
            }
    }
}

TEST(PolarizationQuadrants, SixteenBitSamplesStaySixteenBitOnlyWithoutTheLibrary) {
    // Samples i x 4112 = i x 16 x 257 scale to exactly i x 16 at 8 bits.
    const ZTImage frame = counting(Mono16, 4, 4, 4112);
    ZTImage byCopy, byLibrary;
    ASSERT_EQ(extractFullPolarQuadrant(frame, byCopy), 0);
    ASSERT_EQ(ExtractFullPolarQuadrant(frame, byLibrary), 0);
    EXPECT_EQ(byCopy.getPixelType(), Mono16);
    EXPECT_EQ(byLibrary.getPixelType(), Mono8);
    const unsigned order[] = {0, 2, 1, 3, 8, 10, 9, 11, 4, 6, 5, 7, 12, 14, 13, 15};
    std::vector<unsigned> sixteen, eight;
    for (unsigned i : order) {
        sixteen.push_back(i * 4112);
        eight.push_back(i * 16);
    }
    EXPECT_EQ(valuesOf(byCopy, 4, 4), sixteen);
    EXPECT_EQ(valuesOf(byLibrary, 4, 4), eight);
}

TEST(PolarizationQuadrants, DegenerateSourcesAreResetOnlyOrRejected) {
    // Width or height 1, and a 32-bit format: the destination is reset, nothing is tiled.
    for (const ZTImage& source : {counting(Mono8, 1, 4, 1), counting(Mono8, 4, 1, 1),
                                  ZTImage::create(0x01200111, 4, 4)}) {
        ZTImage dst;
        EXPECT_EQ(extractFullPolarQuadrant(source, dst), 0);
        EXPECT_TRUE(dst.isValid());
        EXPECT_EQ(dst.getPixelType(), source.getPixelType());
        EXPECT_EQ(dst.getWidth(), source.getWidth());
    }
    ZTImage reset;
    EXPECT_EQ(ExtractFullPolarQuadrant(counting(Mono8, 1, 4, 1), reset), 0);
    EXPECT_EQ(reset.getPixelType(), Mono8);

    // Invalid sources, and a packed 10-bit frame whose 1.25 bytes per pixel cannot hold the
    // 16-bit words the tiling reads: -1, destination untouched.
    unsigned char bytes[20] = {};
    ZTImage packed;
    packed.attachUserBuffer(bytes, 20, Mono10p, 4, 4, 0);
    for (const ZTImage& source : {ZTImage(), packed}) {
        ZTImage dst(RGB8, 1, 1, 0, bytes);
        const unsigned char* buffer = dst.getBuffer();
        EXPECT_EQ(extractFullPolarQuadrant(source, dst), -1);
        EXPECT_EQ(dst.getBuffer(), buffer);
    }

    // Tiling an image onto itself reads the pixels before the reset frees them.
    ZTImage self = counting(Mono8, 4, 4, 1);
    ASSERT_EQ(extractFullPolarQuadrant(self, self), 0);
    EXPECT_EQ(valuesOf(self, 4, 4),
              (std::vector<unsigned>{0, 2, 1, 3, 8, 10, 9, 11, 4, 6, 5, 7, 12, 14, 13, 15}));
}
