// Contrast stretch and equalization: the stretch against its formula for every input value,
// the packed layouts on hand-made bytes, and equalization against OpenCV.
#include "HistogramEnhancement.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

using namespace ZTI;

namespace {

// The stretch of one value as documented: double precision, truncation toward zero, then the
// clamps; an infinite result clamps, 0/0 counts as 0.
unsigned formula(unsigned v, unsigned low, unsigned high, double max) {
    const double t = (double(v) - double(low)) / (double(high) - double(low)) * max;
    if (std::isnan(t)) return 0;
    const double truncated = std::trunc(t);
    return static_cast<unsigned>(std::fmax(0.0, std::fmin(max, truncated)));
}

const std::pair<unsigned, unsigned> kRanges[] = {
    {0, 255}, {50, 100}, {0, 4095}, {100, 3000}, {1000, 1000}, {0, 0}, {4095, 4095},
    {3000, 100}, {200, 10}, {0, 1}, {4000, 70000}, {70000, 80000}, {5, 65535},
};

// Packs 12-bit values two per three bytes in the given layout.
std::vector<unsigned char> pack12(const std::vector<uint16_t>& v, bool lsbFirst) {
    std::vector<unsigned char> out(v.size() / 2 * 3);
    for (size_t i = 0; i + 1 < v.size(); i += 2) {
        unsigned char* p = &out[i / 2 * 3];
        const unsigned a = v[i], b = v[i + 1];
        if (lsbFirst) {
            p[0] = a & 0xFF; p[1] = static_cast<unsigned char>((a >> 8) | ((b & 0x0F) << 4)); p[2] = static_cast<unsigned char>(b >> 4);
        } else {
            p[0] = static_cast<unsigned char>(a >> 4); p[1] = static_cast<unsigned char>((a & 0x0F) | ((b & 0x0F) << 4)); p[2] = static_cast<unsigned char>(b >> 4);
        }
    }
    return out;
}

// The bytes of `values` in a stretchable format: 8-bit samples, little-endian 16-bit words, or
// packed pairs.
std::vector<unsigned char> bytesOf(const std::vector<uint16_t>& values, PfncFormat_ format) {
    if (format == Mono12Packed || format == Mono12p) return pack12(values, format == Mono12p);
    if (format == Mono8) return std::vector<unsigned char>(values.begin(), values.end());
    std::vector<unsigned char> bytes(2 * values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        bytes[2 * i] = static_cast<unsigned char>(values[i]);
        bytes[2 * i + 1] = static_cast<unsigned char>(values[i] >> 8);
    }
    return bytes;
}

}  // namespace

TEST(HistStretch, Mono8AndMono12EqualTheFormulaForEveryInputValue) {
    std::vector<unsigned char> all8(256);
    for (int i = 0; i < 256; ++i) all8[i] = static_cast<unsigned char>(i);
    std::vector<uint16_t> all16(65536);
    for (int i = 0; i < 65536; ++i) all16[i] = static_cast<uint16_t>(i);
    ZTImage mono8(Mono8, 16, 16, 0, all8.data());
    ZTImage mono12(Mono12, 256, 256, 0, all16.data());  // 16-bit words may exceed 4095
    for (auto [low, high] : kRanges) {
        ZTImage out8 = ZTImage::create(Mono8, 16, 16);
        ASSERT_EQ(histStretch(mono8, out8, low, high), 0);
        for (unsigned v = 0; v < 256; ++v)
            ASSERT_EQ(out8.getBuffer()[v], formula(v, low, high, 255.0)) << v << " in [" << low << ", " << high << "]";
        ZTImage out12 = ZTImage::create(Mono12, 256, 256);
        ASSERT_EQ(histStretch(mono12, out12, low, high), 0);
        const auto* px = reinterpret_cast<const uint16_t*>(out12.getBuffer());
        for (unsigned v = 0; v < 65536; ++v)
            ASSERT_EQ(px[v], formula(v, low, high, 4095.0)) << v << " in [" << low << ", " << high << "]";
    }
    // The source is only read.
    EXPECT_EQ(0, std::memcmp(mono12.getBuffer(), all16.data(), all16.size() * 2));
    // Known values, by hand: 75 -> (25 / 50) x 255 = 127.5 -> 127.
    EXPECT_EQ(formula(75, 50, 100, 255.0), 127u);
}

TEST(HistStretch, PackedLayoutsAreStretchedInPlaceForEveryValue) {
    std::vector<uint16_t> all(4096);
    for (int i = 0; i < 4096; ++i) all[i] = static_cast<uint16_t>(i);
    for (bool lsbFirst : {false, true}) {
        const PfncFormat_ format = lsbFirst ? Mono12p : Mono12Packed;
        for (auto [low, high] : kRanges) {
            std::vector<unsigned char> bytes = pack12(all, lsbFirst);
            ZTImage image(format, 64, 64, 0, bytes.data());
            // The same image as source and destination: stretched in place.
            ASSERT_EQ(histStretch(image, image, low, high), 0);
            std::vector<uint16_t> expected(4096);
            for (unsigned v = 0; v < 4096; ++v) expected[v] = static_cast<uint16_t>(formula(v, low, high, 4095.0));
            const std::vector<unsigned char> want = pack12(expected, lsbFirst);
            ASSERT_EQ(0, std::memcmp(image.getBuffer(), want.data(), want.size()))
                << std::hex << format << std::dec << " [" << low << ", " << high << "]";
        }
    }
}

TEST(HistStretch, PackedFormatsReadTheDestinationNotTheSource) {
    const std::vector<uint16_t> values = {100, 200, 300, 400};
    std::vector<unsigned char> srcBytes = pack12(values, false);
    std::vector<unsigned char> dstBytes = pack12({4000, 2000, 1000, 0}, false);
    ZTImage src(Mono12Packed, 2, 2, 0, srcBytes.data());
    ZTImage dst(Mono12Packed, 2, 2, 0, dstBytes.data());
    ASSERT_EQ(histStretch(src, dst, 0, 8190), 0);  // halves every value
    EXPECT_EQ(0, std::memcmp(dst.getBuffer(), pack12({2000, 1000, 500, 0}, false).data(), 6));
    EXPECT_EQ(0, std::memcmp(src.getBuffer(), srcBytes.data(), 6));
}

// The vector kernels take whole blocks of samples and leave the rest to scalar code: every
// length from one sample up to several blocks, at every alignment, on random samples, must
// match the formula, and nothing outside the image may be touched (the buffers end exactly
// where the image does, so AddressSanitizer sees any read beyond them).
TEST(HistStretch, AnyLengthAndAlignmentMatchesTheFormula) {
    std::mt19937 rng(7);
    const std::pair<unsigned, unsigned> ranges[] = {{20, 3000}, {0, 4095}, {1000, 1003}, {16, 240}, {3000, 100}};
    for (PfncFormat_ format : {Mono8, Mono12, Mono12Packed, Mono12p}) {
        const bool packed = format == Mono12Packed || format == Mono12p;
        const unsigned maxValue = format == Mono8 ? 255 : 4095;
        for (unsigned width = packed ? 2 : 1; width <= 70; width += packed ? 2 : 1) {
            for (size_t offset = 0; offset < 4; ++offset) {
                for (auto [low, high] : ranges) {
                    std::vector<uint16_t> values(width);
                    for (auto& v : values) v = static_cast<uint16_t>(rng() % (maxValue + 1));
                    const std::vector<unsigned char> bytes = bytesOf(values, format);
                    std::vector<unsigned char> memory(offset + bytes.size());
                    std::memcpy(memory.data() + offset, bytes.data(), bytes.size());
                    ZTImage image;
                    image.attachUserBuffer(memory.data() + offset, bytes.size(), format, width, 1, 0);
                    ASSERT_EQ(histStretch(image, image, low, high), 0);

                    std::vector<uint16_t> expected(width);
                    for (unsigned i = 0; i < width; ++i)
                        expected[i] = static_cast<uint16_t>(formula(values[i], low, high, double(maxValue)));
                    const std::vector<unsigned char> want = bytesOf(expected, format);
                    ASSERT_EQ(0, std::memcmp(memory.data() + offset, want.data(), want.size()))
                        << std::hex << format << std::dec << " width " << width << " offset " << offset << " ["
                        << low << ", " << high << "]";
                }
            }
        }
    }
}

TEST(HistStretch, OddWidthsChooseThePairHalfByColumn) {
    // One column, two rows of Mono12Packed: bytes 12 34 56. Row 1 starts at byte 1 (bit 12),
    // and column 0 is even, so it is read as a first pixel from bytes 1 and 2. Halving, by
    // hand: (0,0) = 0x124 -> 0x092 writes 09 32; (0,1) then reads 32 56 = 0x326 -> 0x193 and
    // writes 19 53, keeping byte 2's high nibble.
    unsigned char bytes[] = {0x12, 0x34, 0x56};
    ZTImage image(Mono12Packed, 1, 2, 0, bytes);
    ASSERT_EQ(histStretch(image, image, 0, 8190), 0);
    const unsigned char expected[] = {0x09, 0x19, 0x53};
    EXPECT_EQ(0, std::memcmp(image.getBuffer(), expected, 3));
}

TEST(HistStretch, PackedImagesOfOddPixelCountAreStretchedWhole) {
    // With an odd pixel count the last pixel's last nibble lies in the byte after the byte
    // count: the library's own images hold it (AddressSanitizer flags any byte outside the
    // allocation). Every byte 0x88 makes every pixel 0x888 in both layouts; halving gives
    // 0x444. The last row is an even one, read by pixel pairs, so its last pixel is stretched
    // once: bytes 44 and 84 (the nibble beyond it kept). Single rows come out 44 throughout.
    for (PfncFormat_ format : {Mono12Packed, Mono12p}) {
        for (auto [width, height] : {std::pair<unsigned, unsigned>{1, 1}, {3, 1}, {5, 3}, {2447, 2047}}) {
            SCOPED_TRACE(testing::Message() << std::hex << format << std::dec << " " << width << " x " << height);
            ZTImage image = ZTImage::create(format, width, height);
            ASSERT_TRUE(image.isValid());
            const size_t occupied = (size_t{width} * height * 12 + 7) / 8;
            ASSERT_EQ(image.getByteCount(), occupied - 1) << "the byte count stays rounded down";
            std::memset(image.getBuffer(), 0x88, occupied);
            ASSERT_EQ(histStretch(image, image, 0, 8190), 0);
            const unsigned char* p = image.getBuffer();
            EXPECT_EQ(p[occupied - 2], 0x44);
            EXPECT_EQ(p[occupied - 1], 0x84);
            for (size_t i = 0; height == 1 && i + 1 < occupied; ++i) ASSERT_EQ(p[i], 0x44) << "byte " << i;
        }
    }
}

TEST(HistStretch, RejectsWhatItCannotStretch) {
    ZTImage rgb = ZTImage::create(RGB8, 4, 4);
    testing::internal::CaptureStderr();
    EXPECT_EQ(histStretch(rgb, rgb, 0, 255), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unsupported format.\n");

    ZTImage empty = ZTImage::create(Mono8, 0, 5);
    EXPECT_EQ(histStretch(empty, empty, 0, 255), 0);

    // A destination smaller than the source's layout is refused before anything is written.
    ZTImage src = ZTImage::create(Mono12, 8, 8);
    std::vector<unsigned char> small(16, 7);
    ZTImage dst;
    dst.attachUserBuffer(small.data(), small.size(), Mono12, 8, 8, 0);
    EXPECT_EQ(histStretch(src, dst, 0, 4095), -1);
    EXPECT_EQ(small[0], 7);
}

TEST(HistEqual, MatchesOpenCVAndLeavesOtherFormatsAlone) {
    cv::Mat in(24, 32, CV_8UC1);
    cv::RNG(3).fill(in, cv::RNG::NORMAL, 100, 20);
    ZTImage src(Mono8, 32, 24, 0, in.data);
    ZTImage dst = ZTImage::create(Mono8, 32, 24);
    ASSERT_EQ(histEqual(src, dst), 0);
    cv::Mat expected;
    cv::equalizeHist(in, expected);
    EXPECT_EQ(cv::norm(cv::Mat(24, 32, CV_8UC1, dst.getBuffer()), expected, cv::NORM_INF), 0.0);

    for (PfncFormat_ other : {Mono16, RGB8}) {
        ZTImage s = ZTImage::create(other, 4, 4);
        std::memset(s.getBuffer(), 1, s.getByteCount());
        ZTImage d = ZTImage::create(other, 4, 4);
        std::memset(d.getBuffer(), 9, d.getByteCount());
        EXPECT_EQ(histEqual(s, d), 0);
        EXPECT_EQ(d.getBuffer()[0], 9);
    }

    ZTImage invalid;
    EXPECT_EQ(histEqual(invalid, dst), -1);
    EXPECT_EQ(histEqual(src, invalid), -1);
    // A destination of another size or format is refused and left as it was.
    for (ZTImage wrong : {ZTImage::create(Mono8, 31, 24), ZTImage::create(Mono16, 32, 24)}) {
        std::memset(wrong.getBuffer(), 5, wrong.getByteCount());
        EXPECT_EQ(histEqual(src, wrong), -1);
        EXPECT_EQ(wrong.getBuffer()[0], 5);
    }
}
