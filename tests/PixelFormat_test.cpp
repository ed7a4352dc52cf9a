// Format table and geometry rules: the depths the rest of the library scales by, and the
// 32-bit arithmetic of the byte count and stride.
#include "PixelFormat.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "ZTImage.h"

using namespace ZTI;

TEST(PixelFormat, BitsPerChannelFollowsTheTable) {
    // Significant depth, not the container: 16-bit containers report the data's depth.
    EXPECT_EQ(getBitsPerChannel(0), 0u);
    EXPECT_EQ(getBitsPerChannel(Mono8), 8u);
    EXPECT_EQ(getBitsPerChannel(Mono10), 10u);
    EXPECT_EQ(getBitsPerChannel(Mono12), 12u);
    EXPECT_EQ(getBitsPerChannel(Mono14), 14u);
    EXPECT_EQ(getBitsPerChannel(Mono16), 16u);
    EXPECT_EQ(getBitsPerChannel(RGB12), 12u);      // per channel
    EXPECT_EQ(getBitsPerChannel(RGBa8), 8u);
    EXPECT_EQ(getBitsPerChannel(RGB565p), 16u);    // the whole pixel, deliberately
    EXPECT_EQ(getBitsPerChannel(Mono10Packed), 10u);
    EXPECT_EQ(getBitsPerChannel(0x021000FAu), 8u); // a code known only by number
    EXPECT_EQ(getBitsPerChannel(0x01200111u), 32u);
    // Family members the table does not list stay unknown.
    EXPECT_EQ(getBitsPerChannel(0x0230001Cu), 0u);
    EXPECT_EQ(getBitsPerChannel(0x02300025u), 0u);
}

TEST(PixelFormat, TableHasUniqueCodesAndNamesThatRoundTrip) {
    std::set<PfncFormat_> codes;
    std::set<std::string> names;
    for (const PixelFormatInfo& f : getPixelFormats()) {
        EXPECT_TRUE(codes.insert(f.code).second) << std::hex << f.code;
        EXPECT_EQ(getBitsPerChannel(f.code), f.bitsPerChannel);
        if (f.name == nullptr) continue;
        EXPECT_TRUE(names.insert(f.name).second) << f.name;
        EXPECT_EQ(findPixelFormat(f.name), f.code) << f.name;
        EXPECT_STREQ(getPixelFormatName(f.code), f.name);
    }
    EXPECT_EQ(codes.size(), 182u);  // every row of the format table, none lost
    EXPECT_EQ(findPixelFormat("bayerrg12P"), BayerRG12p);  // case-insensitive
    EXPECT_EQ(findPixelFormat("BayerRG13"), 0u);
    EXPECT_EQ(findPixelFormat(""), 0u);
    EXPECT_EQ(findPixelFormat(nullptr), 0u);
    EXPECT_EQ(getPixelFormatName(0x0104010Du), nullptr);
}

TEST(PixelFormat, StrideUsesWholeBytesPerPixelPlusPadding) {
    EXPECT_EQ(getRowStride(Mono12Packed, 100, 0), 100u);  // 12 bits round down to 1 byte
    EXPECT_EQ(getRowStride(RGB8, 100, 4), 304u);
    EXPECT_EQ(getRowStride(0, 100, 16), 0u);
    EXPECT_EQ(getRowStride(Mono16, 10, 0), 20u);
    // The product is 32-bit: 4 bytes x 2^30 wraps to 0 before the padding is added.
    EXPECT_EQ(getRowStride(RGBa8, 1u << 30, 8), 8u);
}

TEST(PixelFormat, ByteCountIsPackedAndWrapsAt32Bits) {
    EXPECT_EQ(getPackedByteCount(Mono12Packed, 100, 10), 1500u);
    EXPECT_EQ(getPackedByteCount(Mono10p, 4, 1), 5u);
    EXPECT_EQ(getPackedByteCount(Mono1p, 9, 1), 1u);  // 9 bits round down to 1 byte
    EXPECT_EQ(getPackedByteCount(Mono8, 640, 480), 307200u);
    EXPECT_EQ(getPackedByteCount(RGB8, 65536, 65536), 0u);  // width x height wraps to 0
    // 24 bits x 2^28 pixels = 2^32 + 2^31 bits: the bit count wraps, then is divided by 8.
    EXPECT_EQ(getPackedByteCount(RGB8, 1u << 14, 1u << 14), (uint64_t(1) << 31) >> 3);
    // 16 x (2^32 - 1) bits = 0xFFFFFFFF0: the low 32 bits 0xFFFFFFF0 give 0x1FFFFFFE bytes.
    EXPECT_EQ(getPackedByteCount(Mono16, 0xFFFFFFFFu, 1), 0x1FFFFFFEu);
}

TEST(PixelFormat, ImagesReportTheGeometryRules) {
    ZTImage none;
    EXPECT_FALSE(none.isValid());
    EXPECT_EQ(none.getWidth() + none.getHeight() + none.getPixelType(), 0u);
    EXPECT_EQ(none.getStride(), 0u);
    EXPECT_EQ(none.getByteCount(), 0u);
    EXPECT_EQ(none.getBuffer(), nullptr);

    ZTImage mono = ZTImage::create(0x01080001, 640, 480, 0);
    EXPECT_TRUE(mono.isValid());
    EXPECT_EQ(mono.getByteCount(), 307200u);
    EXPECT_EQ(mono.getStride(), 640u);

    ZTImage padded = ZTImage::create(RGB8, 10, 2, 4);
    EXPECT_EQ(padded.getStride(), 34u);
    EXPECT_EQ(padded.getByteCount(), 60u);  // padding is not counted
}
