// Packed frames read by the layouts their standards publish: hand-made bytes for every code,
// partial groups, odd pixel counts and padded rows, and round trips from the virtual camera
// encoding either layout.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "VirtualCamera.h"
#include "ZTImage.h"

namespace {

using namespace ZTI;

std::vector<uint16_t> pixelsOf(const ZTImage& image) {
    std::vector<uint16_t> out(size_t{image.getWidth()} * image.getHeight());
    if (image.getBuffer()) std::memcpy(out.data(), image.getBuffer(), 2 * out.size());
    return out;
}

ZTImage attachBytes(std::vector<unsigned char> bytes, PfncFormat_ code, uint32_t width,
                    uint32_t height, uint32_t padding = 0) {
    ZTImage image;
    image.attachGrabResult(
        createGrabResult(code, width, height, padding, bytes.data(), bytes.size()),
        PackedLayout::Published);
    return image;
}

// Every packed 10- and 12-bit mono and Bayer code with the format it becomes and one frame of
// five pixels (a whole group or two pairs, then a partial one), computed by hand from the
// published bit positions.
TEST(PublishedLayout, HandMadeBytesForEveryCode) {
    // Four-in-five, LSB first: pixels 0x3FF, 0x001, 0x2AA, 0x155, then 0x201 alone.
    // bits: p0 = 0x3FF -> b0 = 0xFF, b1 bits 1..0 = 0b11; p1 = 0x001 -> b1 bits 7..2 = 0b000001;
    // p2 = 0x2AA -> b2 bits 7..4 = 0xA, b3 bits 5..0 = 0x2A; p3 = 0x155 -> b3 bits 7..6 = 0b01,
    // b4 = 0x55; p4 = 0x201 -> b5 = 0x01, b6 bits 1..0 = 0b10.
    const std::vector<unsigned char> lsb10 = {0xFF, 0x07, 0xA0, 0x6A, 0x55, 0x01, 0x02};
    const std::vector<uint16_t> lsb10Pixels = {0x3FF, 0x001, 0x2AA, 0x155, 0x201};
    // Pairs of 10 bits: (0x3FD, 0x102), (0x0AB, ...), then 0x2C6 alone.
    const std::vector<unsigned char> pairs10 = {0xFF, 0x21, 0x40, 0x2A, 0x33, 0x5A, 0xB1, 0x02};
    const std::vector<uint16_t> pairs10Pixels = {0x3FD, 0x102, 0x0AB, 0x16B, 0x2C6};
    // 12-bit pairs as the legacy reading has them.
    const std::vector<unsigned char> lsb12 = {0x21, 0x43, 0x65, 0xBA, 0xDC, 0xFE, 0x87, 0x09};
    const std::vector<uint16_t> lsb12Pixels = {0x321, 0x654, 0xCBA, 0xFED, 0x987};
    const std::vector<unsigned char> pairs12 = {0x12, 0x34, 0x56, 0xAB, 0xDC, 0xEF, 0x98, 0x07};
    const std::vector<uint16_t> pairs12Pixels = {0x124, 0x563, 0xABC, 0xEFD, 0x987};

    struct Case {
        PfncFormat_ code, target;
        const std::vector<unsigned char>& bytes;
        const std::vector<uint16_t>& pixels;
    };
    const Case cases[] = {
        {Mono10p, Mono10, lsb10, lsb10Pixels},
        {BayerGR10p, BayerGR10, lsb10, lsb10Pixels},
        {BayerRG10p, BayerRG10, lsb10, lsb10Pixels},
        {BayerGB10p, BayerGB10, lsb10, lsb10Pixels},
        {BayerBG10p, BayerBG10, lsb10, lsb10Pixels},
        {Mono10Packed, Mono10, pairs10, pairs10Pixels},
        {BayerGR10Packed, BayerGR10, pairs10, pairs10Pixels},
        {BayerRG10Packed, BayerRG10, pairs10, pairs10Pixels},
        {BayerGB10Packed, BayerGB10, pairs10, pairs10Pixels},
        {BayerBG10Packed, BayerBG10, pairs10, pairs10Pixels},
        {Mono12p, Mono12, lsb12, lsb12Pixels},
        {BayerGR12p, BayerGR12, lsb12, lsb12Pixels},
        {BayerRG12p, BayerRG12, lsb12, lsb12Pixels},
        {BayerGB12p, BayerGB12, lsb12, lsb12Pixels},
        {BayerBG12p, BayerBG12, lsb12, lsb12Pixels},
        {Mono12Packed, Mono12, pairs12, pairs12Pixels},
        {BayerGR12Packed, BayerGR12, pairs12, pairs12Pixels},
        {BayerRG12Packed, BayerRG12, pairs12, pairs12Pixels},
        {BayerGB12Packed, BayerGB12, pairs12, pairs12Pixels},
        {BayerBG12Packed, BayerBG12, pairs12, pairs12Pixels},
    };
    for (const Case& c : cases) {
        const std::string name = getPixelFormatName(c.code);
        // Only the bytes the five pixels touch: reading one more would be out of the frame.
        const size_t touched = (5 * getBitsPerPixel(c.code) + 7) / 8;
        const std::vector<unsigned char> bytes(c.bytes.begin(), c.bytes.begin() + touched);
        const ZTImage image = attachBytes(bytes, c.code, 5, 1);
        EXPECT_EQ(image.getPixelType(), c.target) << name;
        EXPECT_EQ(pixelsOf(image), c.pixels) << name;
        // One pixel fewer in the frame (an odd count, a partial group) reads the same values.
        const ZTImage shorter = attachBytes(bytes, c.code, 4, 1);
        EXPECT_EQ(pixelsOf(shorter), std::vector<uint16_t>(c.pixels.begin(), c.pixels.begin() + 4)) << name;
    }
    // The legacy reading of the same 10-bit bytes is kept for the one-argument form.
    std::vector<unsigned char> legacy = {0xFF, 0xC0, 0x00, 0x00, 0x00};
    ZTImage image;
    image.attachGrabResult(createGrabResult(Mono10p, 4, 1, 0, legacy.data(), legacy.size()));
    EXPECT_EQ(pixelsOf(image), (std::vector<uint16_t>{0x3FF, 0, 0, 0}));
    image.attachGrabResult(createGrabResult(BayerRG10p, 4, 1, 0, legacy.data(), legacy.size()),
                           PackedLayout::Legacy);
    EXPECT_EQ(image.getPixelType(), BayerRG10p) << "Legacy attaches Bayer 10p as it is";
}

TEST(PublishedLayout, PaddedRowsAreReadFromTheirOwnStartAndShortFramesAreRefused) {
    // 3 pixels of Mono10p per row take 4 bytes; 2 bytes of padding follow each row.
    const std::vector<unsigned char> bytes = {
        0x01, 0x08, 0x30, 0x00, 0xEE, 0xEE,  // 1, 2, 3
        0x04, 0x14, 0x60, 0x00, 0xEE, 0xEE,  // 4, 5, 6
        0x07, 0x20, 0x90, 0x00,              // 7, 8, 9 (the last row needs no padding)
    };
    ZTImage image = attachBytes(bytes, Mono10p, 3, 3, 2);
    EXPECT_EQ(pixelsOf(image), (std::vector<uint16_t>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(image.getStride(), 6u) << "the unpacked image has packed rows";

    // A frame one byte short of its last row is not read at all.
    const std::vector<unsigned char> cut(bytes.begin(), bytes.end() - 1);
    image = attachBytes(cut, Mono10p, 3, 3, 2);
    EXPECT_FALSE(image.isValid());
    EXPECT_EQ(image.getPixelType(), Mono10);
}

// The virtual camera's frames in both layouts, read back with the matching reading: every
// pixel equals the ground truth at 10 or 12 bits.
TEST(PublishedLayout, VirtualCameraRoundTripsBothLayouts) {
    const PfncFormat_ codes[] = {Mono10p, Mono10Packed, BayerRG10p, BayerGB10Packed,
                                 Mono12p, BayerBG12Packed};
    for (const bool published : {false, true}) {
        for (const PfncFormat_ code : codes) {
            VirtualCameraConfig config;
            config.pixelType = code;
            config.width = 37;  // odd: partial groups and an odd last pixel
            config.height = 5;
            config.publishedLayout = published;
            auto camera = VirtualCamera::open(config);
            ASSERT_TRUE(camera);
            ZTImage image;
            image.attachGrabResult(camera->grab(),
                                   published ? PackedLayout::Published : PackedLayout::Legacy);
            const std::string what = std::string(getPixelFormatName(code)) +
                                     (published ? " published" : " legacy");
            if (!published && getPixelFormatInfo(code)->unpackedFormat == code) {
                EXPECT_EQ(image.getPixelType(), code) << what;  // Bayer 10p: attached as it is
                continue;
            }
            ASSERT_TRUE(image.isValid()) << what;
            const std::vector<uint16_t> pixels = pixelsOf(image);
            unsigned wrong = 0;
            // The 12-bit legacy reading leaves an odd last pixel unwritten.
            const size_t checked = published || getBitsPerChannel(code) == 10 ? pixels.size()
                                                                              : pixels.size() - 1;
            for (size_t i = 0; i < checked; ++i)
                wrong += pixels[i] != camera->expectedSample(0, i % 37, i / 37, 0);
            EXPECT_EQ(wrong, 0u) << what;
        }
    }
}

}  // namespace
