// Packed 10- and 12-bit unpacking: the layouts on hand-made bytes, partial groups, rejected
// input, and the block-wise fast paths against a bit-stream reference at many lengths.
#include "PixelUnpack.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace ZTI;

const PfncFormat_ kTenBitCodes[] = {Mono10Packed, Mono10p, BayerGR10Packed, BayerRG10Packed,
                                    BayerGB10Packed, BayerBG10Packed, BayerBG10p, BayerGB10p,
                                    BayerGR10p, BayerRG10p};
// Codes whose pairs are read least significant bits first (the 10p codes too) ...
const PfncFormat_ kLsbFirstCodes[] = {Mono12p, BayerBG12p, BayerGB12p, BayerGR12p, BayerRG12p,
                                      Mono10p, BayerBG10p, BayerGB10p, BayerGR10p, BayerRG10p};
// ... and those read as packed pairs (the 10 Packed codes too).
const PfncFormat_ kPackedPairCodes[] = {Mono12Packed, BayerGR12Packed, BayerRG12Packed,
                                        BayerGB12Packed, BayerBG12Packed, Mono10Packed,
                                        BayerGR10Packed, BayerRG10Packed, BayerGB10Packed,
                                        BayerBG10Packed};

constexpr uint16_t kUntouched = 0xBEEF;  // marks destination slots nothing should write

// Source bytes on the heap with exactly the given size, so that AddressSanitizer reports any
// read past the packed stream.
struct Packed {
    explicit Packed(std::vector<unsigned char> bytes)
        : size(bytes.size()), data(new unsigned char[bytes.size() + (bytes.empty() ? 1 : 0)]) {
        if (size != 0) std::memcpy(data.get(), bytes.data(), size);
    }
    size_t size;
    std::unique_ptr<unsigned char[]> data;
};

// Runs an unpacker into a destination of `slots` 16-bit values pre-filled with kUntouched.
template <typename Unpack>
std::vector<uint16_t> unpackInto(Unpack unpack, PfncFormat_ code, int width, int height,
                                 const Packed& src, size_t slots) {
    std::vector<uint16_t> dst(slots, kUntouched);
    unpack(code, width, height, src.data.get(), reinterpret_cast<unsigned char*>(dst.data()));
    return dst;
}

// Reference readers that treat the source as a bit stream rather than as groups: pixel i of a
// 10-bit stream is bits [10 i, 10 i + 10) counted from the most significant bit of byte 0, and
// pixel i of a least-significant-first 12-bit stream is bits [12 i, 12 i + 12) counted from
// the least significant bit of byte 0.
uint16_t msbFirstBits(const std::vector<unsigned char>& s, size_t first, unsigned count) {
    unsigned v = 0;
    for (unsigned b = 0; b < count; ++b) {
        const size_t bit = first + b;
        v = (v << 1) | ((s[bit / 8] >> (7 - bit % 8)) & 1u);
    }
    return static_cast<uint16_t>(v);
}

uint16_t lsbFirstBits(const std::vector<unsigned char>& s, size_t first, unsigned count) {
    unsigned v = 0;
    for (unsigned b = 0; b < count; ++b) {
        const size_t bit = first + b;
        v |= ((s[bit / 8] >> (bit % 8)) & 1u) << b;
    }
    return static_cast<uint16_t>(v);
}

std::vector<unsigned char> randomBytes(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<unsigned char> v(n);
    for (auto& b : v) b = static_cast<unsigned char>(rng());
    return v;
}

TEST(PixelUnpack, TenBitGroupsGiveTheSameValuesForEveryAcceptedCode) {
    // Pixels 0x3FF, 0, 0, 0 and 0x123, 0x045, 0x3A5, 0x0F0, packed by hand (the second group is
    // 0100100011 0001000101 1110100101 0011110000 cut into bytes).
    const Packed src({0xFF, 0xC0, 0x00, 0x00, 0x00, 0x48, 0xC4, 0x5E, 0x94, 0xF0});
    const std::vector<uint16_t> expected = {0x3FF, 0, 0, 0, 0x123, 0x045, 0x3A5, 0x0F0, kUntouched};
    for (PfncFormat_ code : kTenBitCodes) {
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, code, 4, 2, src, 9), expected)
            << std::hex << "code 0x" << code;
    }
    // The 12-bit codes are accepted by the 10-bit unpacker too and read the same way.
    EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, Mono12p, 8, 1, src, 9), expected);
}

TEST(PixelUnpack, TwelveBitPairsFollowTheLayoutOfEachCode) {
    // By hand: LSB-first 0x21 0x43 0x65 -> 0x321, 0x654; packed pair 0x12 0x34 0x56 -> 0x124,
    // 0x563.
    const Packed lsb({0x21, 0x43, 0x65, 0xFF, 0x0F, 0x00});
    const Packed packed({0x12, 0x34, 0x56, 0xFF, 0x0F, 0x00});
    for (PfncFormat_ code : kLsbFirstCodes) {
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, code, 2, 2, lsb, 4),
                  (std::vector<uint16_t>{0x321, 0x654, 0xFFF, 0x000}))
            << std::hex << "code 0x" << code;
    }
    for (PfncFormat_ code : kPackedPairCodes) {
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, code, 2, 2, packed, 4),
                  (std::vector<uint16_t>{0x124, 0x563, 0xFFF, 0x000}))
            << std::hex << "code 0x" << code;
    }
}

TEST(PixelUnpack, PartialLastGroupReadsOnlyItsOwnBytes) {
    // 5 to 7 pixels: one whole group, then 1 to 3 pixels from the next 2 to 4 bytes. The
    // sources hold exactly those bytes (ASan would flag a read past them), and the slots after
    // the last pixel stay untouched.
    const std::vector<unsigned char> bytes = {0x48, 0xC4, 0x5E, 0x94, 0xF0,
                                              0xFF, 0xC0, 0xFF, 0xF0};
    const std::vector<uint16_t> all = {0x123, 0x045, 0x3A5, 0x0F0, 0x3FF, 0x00F, 0x3FC};
    for (int n = 5; n <= 7; ++n) {
        const Packed src({bytes.begin(), bytes.begin() + 5 + (n - 4) + 1});
        std::vector<uint16_t> expected(all.begin(), all.begin() + n);
        expected.push_back(kUntouched);
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, Mono10p, n, 1, src, n + 1), expected)
            << n << " pixels";
    }
}

TEST(PixelUnpack, OddTwelveBitPixelCountLeavesTheLastSlotUnwritten) {
    const Packed src({0x21, 0x43, 0x65, 0x21, 0x43, 0x65});
    EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, Mono12p, 3, 1, src, 4),
              (std::vector<uint16_t>{0x321, 0x654, kUntouched, kUntouched}));
    EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, Mono12p, 1, 1, src, 2),
              (std::vector<uint16_t>{kUntouched, kUntouched}));
    EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, Mono12Packed, 5, 1, src, 6),
              (std::vector<uint16_t>{0x213, 0x654, 0x213, 0x654, kUntouched, kUntouched}));
}

TEST(PixelUnpack, RejectedInputWritesNothing) {
    const Packed src(randomBytes(64, 1));
    const std::vector<uint16_t> untouched(32, kUntouched);
    // Unpacked, colour and unknown codes, and the packed codes that are not mono or Bayer.
    for (PfncFormat_ code : {PfncFormat_{0}, Mono8, Mono10, Mono12, BayerRG12, RGB12p,
                             RGB10V1Packed, Mono4p, PfncFormat_{0x010C0005}}) {
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, code, 8, 4, src, 32), untouched)
            << std::hex << "code 0x" << code;
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, code, 8, 4, src, 32), untouched)
            << std::hex << "code 0x" << code;
    }
    // Zero and negative pixel counts (a negative width, or a product past 2^31).
    for (auto [w, h] : std::initializer_list<std::pair<int, int>>{{0, 4}, {-8, 4}, {65536, 32768}}) {
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, Mono10p, w, h, src, 32), untouched);
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, Mono12p, w, h, src, 32), untouched);
    }
    // A null destination is skipped rather than written through.
    unpack10BitsPixelBuffer(Mono10p, 8, 4, src.data.get(), nullptr);
    unpack12BitsPixelBuffer(Mono12p, 8, 4, src.data.get(), nullptr);
}

// The unpackers take a vectorized path over whole blocks and plain code for the rest; every
// length from 0 to 100 moves the split between them, and a larger frame with a ragged end runs
// the block loop many times.
TEST(PixelUnpack, MatchesBitStreamReferenceAtEveryLength) {
    std::vector<std::pair<int, int>> sizes;
    for (int n = 0; n <= 100; ++n) sizes.push_back({n, 1});
    sizes.push_back({333, 257});  // 85581 pixels: n % 4 == 1, n odd
    sizes.push_back({64, 64});

    for (auto [width, height] : sizes) {
        const size_t n = size_t(width) * size_t(height);
        SCOPED_TRACE(testing::Message() << width << " x " << height);

        const std::vector<unsigned char> ten = randomBytes((10 * n + 7) / 8, unsigned(n));
        std::vector<uint16_t> expected(n + 1, kUntouched);
        for (size_t i = 0; i < n; ++i) expected[i] = msbFirstBits(ten, 10 * i, 10);
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, BayerGB10Packed, width, height, Packed(ten),
                             n + 1),
                  expected);

        // Only whole pairs are read, so the 12-bit sources stop after the last whole pair.
        const std::vector<unsigned char> twelve = randomBytes(3 * (n / 2), unsigned(n) + 7);
        std::fill(expected.begin(), expected.end(), kUntouched);
        for (size_t i = 0; i + 1 < n; i += 2) {
            expected[i] = lsbFirstBits(twelve, 12 * i, 12);
            expected[i + 1] = lsbFirstBits(twelve, 12 * (i + 1), 12);
        }
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, BayerRG12p, width, height, Packed(twelve),
                             n + 1),
                  expected);

        // Packed pairs: the high eight bits of each pixel have a byte of their own and the low
        // four bits share the middle byte, first pixel in its low nibble.
        for (size_t i = 0; i + 1 < n; i += 2) {
            const unsigned char* pair = &twelve[3 * (i / 2)];
            expected[i] = uint16_t(pair[0] << 4 | (pair[1] & 0x0F));
            expected[i + 1] = uint16_t(pair[2] << 4 | pair[1] >> 4);
        }
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, BayerBG12Packed, width, height,
                             Packed(twelve), n + 1),
                  expected);
    }
}

}  // namespace
