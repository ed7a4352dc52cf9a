// Format table and geometry rules: the depths the rest of the library scales by, and the
// 32-bit arithmetic of the byte count and stride.
#include "PixelFormat.h"

#include <gtest/gtest.h>

#include <string>

#include "MatrixBridge.h"
#include "ZTImage.h"

using namespace ZTI;

TEST(PixelFormat, TableFollowsTheFormatListRowForRow) {
    // The public list of names and codes, expanded here on its own: the table must hold the
    // same rows in the same order, and every lookup must find its own row.
    struct ListRow {
        const char* name;
        PfncFormat_ code;
        unsigned bits;
    };
#define ZT_LIST_ROW(name, code, bits) {#name, code##u, bits},
#define ZT_LIST_UNNAMED(code, bits) {nullptr, code##u, bits},
    const ListRow list[] = {ZT_PFNC_FORMAT_LIST(ZT_LIST_ROW, ZT_LIST_UNNAMED)};
#undef ZT_LIST_ROW
#undef ZT_LIST_UNNAMED
    const PixelFormatRange table = getPixelFormats();
    ASSERT_EQ(table.size(), sizeof(list) / sizeof(list[0]));
    for (size_t i = 0; i < table.size(); ++i) {
        const PixelFormatInfo& f = table.begin()[i];
        SCOPED_TRACE(testing::Message() << "row " << i << ", 0x" << std::hex << list[i].code);
        EXPECT_EQ(f.code, list[i].code);
        EXPECT_STREQ(f.name, list[i].name);
        EXPECT_EQ(f.bitsPerChannel, list[i].bits);
        EXPECT_EQ(f.bitsPerPixel, getBitsPerPixel(f.code));
        EXPECT_EQ(getPixelFormatInfo(f.code), &f);  // also: no code listed twice
        EXPECT_EQ(getBitsPerChannel(f.code), f.bitsPerChannel);
        if (f.name != nullptr) {
            EXPECT_EQ(findPixelFormat(f.name), f.code);
        }
    }
    // Family members the list does not name stay unknown.
    EXPECT_EQ(getPixelFormatInfo(0), nullptr);
    EXPECT_EQ(getPixelFormatInfo(0x0230001Cu), nullptr);
    EXPECT_EQ(getBitsPerChannel(0x02300025u), 0u);
    EXPECT_EQ(findPixelFormat("bayerrg12P"), BayerRG12p);  // case-insensitive
    EXPECT_EQ(findPixelFormat("BayerRG13"), 0u);
    EXPECT_EQ(findPixelFormat(""), 0u);
    EXPECT_EQ(findPixelFormat(nullptr), 0u);
    EXPECT_EQ(getPixelFormatName(0x0104010Du), nullptr);
}

TEST(PixelFormat, LayoutFactsAgreeWithEachOther) {
    for (const PixelFormatInfo& f : getPixelFormats()) {
        SCOPED_TRACE(testing::Message() << (f.name ? f.name : "unnamed") << " 0x" << std::hex << f.code);
        // The sample containers must add up to the pixel the code states.
        switch (f.packing) {
            case PixelPacking::None:
                EXPECT_TRUE(f.containerBits == 8 || f.containerBits == 16) << f.containerBits;
                EXPECT_LE(f.bitsPerChannel, f.containerBits);
                EXPECT_EQ(f.bitsPerPixel, f.channels * f.containerBits);
                break;
            case PixelPacking::LsbFirst:
                EXPECT_EQ(f.containerBits, f.bitsPerChannel);
                EXPECT_EQ(f.bitsPerPixel, f.channels * f.containerBits);
                break;
            case PixelPacking::PackedPairs:  // two samples in three bytes
                EXPECT_EQ(f.containerBits, f.bitsPerChannel);
                EXPECT_EQ(f.channels, 1u);
                EXPECT_EQ(f.bitsPerPixel, 12u);
                break;
            case PixelPacking::Other:
                EXPECT_EQ(f.containerBits, 0u);
                break;
        }
        EXPECT_GE(f.channels, 1u);
        EXPECT_LE(f.channels, 4u);
        // The matrix form, where there is one, has the same channels and container depth.
        const int type = get_cv_mat_type(f.code);
        if (type >= 0) {
            EXPECT_EQ(CV_MAT_CN(type), static_cast<int>(f.channels));
            EXPECT_EQ(CV_ELEM_SIZE1(type) * 8, static_cast<int>(f.containerBits));
        }
        // Colour: every code outside the mono family, and the mosaics inside it.
        if ((f.code >> 24) != 0x01) {
            EXPECT_TRUE(f.isColour);
        }
        if (f.bayerPattern != nullptr) {
            EXPECT_TRUE(f.isColour);
            EXPECT_EQ(f.channels, 1u);
            EXPECT_EQ(std::string(f.bayerPattern).size(), 4u);
        }
        // An unpacked frame keeps depth, colour and pattern in 16-bit samples.
        if (f.unpackedFormat != 0 && f.unpackedFormat != f.code) {
            const PixelFormatInfo* to = getPixelFormatInfo(f.unpackedFormat);
            ASSERT_NE(to, nullptr);
            EXPECT_NE(f.packing, PixelPacking::None);
            EXPECT_EQ(to->packing, PixelPacking::None);
            EXPECT_EQ(to->containerBits, 16u);
            EXPECT_EQ(to->bitsPerChannel, f.bitsPerChannel);
            EXPECT_EQ(to->isColour, f.isColour);
            EXPECT_STREQ(to->bayerPattern, f.bayerPattern);
            EXPECT_EQ(to->unpackedFormat, to->code);
        }
    }
    // A mosaic known only by number holds colour without a pattern the library could name.
    EXPECT_TRUE(getPixelFormatInfo(0x0110010Cu)->isColour);
    EXPECT_EQ(getPixelFormatInfo(0x0110010Cu)->bayerPattern, nullptr);
    EXPECT_FALSE(getPixelFormatInfo(0x010E0104u)->isColour);
}

TEST(PixelFormat, StrideUsesWholeBytesPerPixelPlusPadding) {
    EXPECT_EQ(getRowStride(Mono12Packed, 100, 0), 100u);  // 12 bits round down to 1 byte
    EXPECT_EQ(getRowStride(RGB8, 100, 4), 304u);
    EXPECT_EQ(getRowStride(0, 100, 16), 0u);
    EXPECT_EQ(getRowStride(Mono16, 10, 0), 20u);
    // The product is 32-bit: 4 bytes x 2^30 wraps to 0 before the padding is added.
    EXPECT_EQ(getRowStride(RGBa8, 1u << 30, 8), 8u);
    // Rows spanned: the last row without its padding; nothing for no rows; saturated when the
    // sum does not fit 64 bits rather than wrapped to a small count.
    EXPECT_EQ(getSpannedByteCount(30, 34, 2), 64u);
    EXPECT_EQ(getSpannedByteCount(30, 34, 0), 0u);
    EXPECT_EQ(getSpannedByteCount(1, UINT64_MAX, 3), UINT64_MAX);
    EXPECT_EQ(getPixelFormatLabel(BayerRG12p), "BayerRG12p");
    EXPECT_EQ(getPixelFormatLabel(0x0104010Du), "0x0104010D");
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
