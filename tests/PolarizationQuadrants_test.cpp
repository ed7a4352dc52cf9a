// Single-angle planes and the two full tilings: they agree with each other, keep the source
// depth where they should, and handle degenerate sources.
#include "PolarizationProducts.h"

#include <gtest/gtest.h>

#include <vector>

using namespace ZTI;

namespace {

ZTImage counting(PfncFormat_ format, unsigned width, unsigned height, unsigned step) {
    ZTImage image = ZTImage::create(format, width, height);
    for (unsigned i = 0; i < width * height; ++i) {
        if (format == Mono16) reinterpret_cast<uint16_t*>(image.getBuffer())[i] = static_cast<uint16_t>(i * step);
        else image.getBuffer()[i] = static_cast<unsigned char>(i * step);
    }
    return image;
}

unsigned valueAt(const ZTImage& image, size_t i) {
    return image.getPixelType() == Mono16 ? reinterpret_cast<const uint16_t*>(image.getBuffer())[i] : image.getBuffer()[i];
}

// 0..15 in row order, tiled: 90-degree samples top left, 45 top right, 135 bottom left, 0
// bottom right.
const unsigned kTiled[] = {0, 2, 1, 3, 8, 10, 9, 11, 4, 6, 5, 7, 12, 14, 13, 15};

}  // namespace

TEST(PolarizationQuadrants, TilingsAgreeWithEachOtherAndWithThePlanes) {
    // 16-bit samples i x 4112 = i x 16 x 257: kept by the plain tiling, exactly i x 16 through
    // the library's 8 bits.
    ZTImage byLibrary, byCopy, byCopy16;
    ASSERT_EQ(ExtractFullPolarQuadrant(counting(Mono16, 4, 4, 4112), byLibrary), 0);
    ASSERT_EQ(extractFullPolarQuadrant(counting(Mono8, 4, 4, 1), byCopy), 0);
    ASSERT_EQ(extractFullPolarQuadrant(counting(Mono16, 4, 4, 4112), byCopy16), 0);
    ASSERT_TRUE(byLibrary.getPixelType() == Mono8 && byCopy16.getPixelType() == Mono16);
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(valueAt(byLibrary, i), kTiled[i] * 16);
        EXPECT_EQ(valueAt(byCopy, i), kTiled[i]);
        EXPECT_EQ(valueAt(byCopy16, i), kTiled[i] * 4112);
    }
    // Odd width and height: 4 x 3 planes; each tiled block is the plane ExtractPolarQuadrant
    // gives, the last row and column belong to no block.
    const ZTImage odd = counting(Mono8, 9, 7, 7);
    ASSERT_EQ(ExtractFullPolarQuadrant(odd, byLibrary), 0);
    ASSERT_EQ(extractFullPolarQuadrant(odd, byCopy), 0);
    const unsigned corner[4][2] = {{3, 4}, {0, 4}, {0, 0}, {3, 0}};  // block of 0, 45, 90, 135 degrees
    for (int quadrant = 0; quadrant < 4; ++quadrant) {
        ZTImage plane;
        ASSERT_EQ(ExtractPolarQuadrant(odd, plane, PolarizationQuadrant(quadrant)), 0);
        ASSERT_TRUE(plane.getWidth() == 4u && plane.getHeight() == 3u);
        for (unsigned i = 0; i < 12; ++i) {
            const size_t at = (corner[quadrant][0] + i / 4) * 9 + corner[quadrant][1] + i % 4;
            EXPECT_EQ(byLibrary.getBuffer()[at], plane.getBuffer()[i]) << "quadrant " << quadrant;
            EXPECT_EQ(byCopy.getBuffer()[at], plane.getBuffer()[i]) << "quadrant " << quadrant;
        }
    }
}

TEST(PolarizationQuadrants, DegenerateSourcesAreOnlyResetOrRejected) {
    // Width or height 1, or 32 bits per channel: the destination is reset, nothing is tiled.
    for (const ZTImage& source : {counting(Mono8, 1, 4, 1), counting(Mono8, 4, 1, 1), ZTImage::create(0x01200111, 4, 4)}) {
        ZTImage dst;
        EXPECT_EQ(extractFullPolarQuadrant(source, dst), 0);
        EXPECT_TRUE(dst.isValid() && dst.getPixelType() == source.getPixelType() && dst.getWidth() == source.getWidth());
    }
    // An invalid source, and a packed 10-bit frame whose 1.25 bytes per pixel cannot hold the
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
    // Tiling an image onto itself reads its pixels before the reset frees them.
    ZTImage self = counting(Mono8, 4, 4, 1);
    ASSERT_EQ(extractFullPolarQuadrant(self, self), 0);
    for (size_t i = 0; i < 16; ++i) EXPECT_EQ(valueAt(self, i), kTiled[i]);
}
