// Packed 10- and 12-bit unpacking: the layouts on hand-made bytes, rejected input, and the
// block-wise fast paths against a bit-stream reference at every short length.
#include "PixelUnpack.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
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

using Bytes = std::vector<unsigned char>;

// Runs an unpacker into `slots` 16-bit values pre-filled with kUntouched. `src` is a copy
// holding exactly its bytes, so AddressSanitizer reports any read past the packed stream.
template <typename Unpack>
std::vector<uint16_t> unpackInto(Unpack unpack, PfncFormat_ code, int width, int height,
                                 Bytes src, size_t slots) {
    std::vector<uint16_t> dst(slots, kUntouched);
    unpack(code, width, height, src.data(), reinterpret_cast<unsigned char*>(dst.data()));
    return dst;
}

// Reference readers that treat the source as a bit stream rather than as groups: pixel i of a
// 10-bit stream is bits [10 i, 10 i + 10) counted from the most significant bit of byte 0, and
// pixel i of a least-significant-first 12-bit stream is bits [12 i, 12 i + 12) counted from
// the least significant bit of byte 0.
uint16_t msbFirstBits(const Bytes& s, size_t first, unsigned count) {
    unsigned v = 0;
    for (unsigned b = 0; b < count; ++b) {
        const size_t bit = first + b;
        v = (v << 1) | ((s[bit / 8] >> (7 - bit % 8)) & 1u);
    }
    return static_cast<uint16_t>(v);
}

uint16_t lsbFirstBits(const Bytes& s, size_t first, unsigned count) {
    unsigned v = 0;
    for (unsigned b = 0; b < count; ++b) {
        const size_t bit = first + b;
        v |= ((s[bit / 8] >> (bit % 8)) & 1u) << b;
    }
    return static_cast<uint16_t>(v);
}

Bytes randomBytes(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    Bytes v(n);
    for (auto& b : v) b = static_cast<unsigned char>(rng());
    return v;
}

TEST(PixelUnpack, HandPackedBytesGiveTheSameValuesForEveryCodeOfALayout) {
    // By hand: the 10-bit groups hold 0x3FF, 0, 0, 0 and 0x123, 0x045, 0x3A5, 0x0F0 (the
    // second is 0100100011 0001000101 1110100101 0011110000 cut into bytes); the LSB-first pair
    // 0x21 0x43 0x65 holds 0x321, 0x654; the packed pair 0x12 0x34 0x56 holds 0x124, 0x563.
    const Bytes ten({0xFF, 0xC0, 0x00, 0x00, 0x00, 0x48, 0xC4, 0x5E, 0x94, 0xF0});
    const Bytes lsb({0x21, 0x43, 0x65, 0xFF, 0x0F, 0x00});
    const Bytes packed({0x12, 0x34, 0x56, 0xFF, 0x0F, 0x00});
    for (PfncFormat_ code : kTenBitCodes)
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, code, 4, 2, ten, 9),
                  (std::vector<uint16_t>{0x3FF, 0, 0, 0, 0x123, 0x045, 0x3A5, 0x0F0, kUntouched}))
            << std::hex << "code 0x" << code;
    for (PfncFormat_ code : kLsbFirstCodes)
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, code, 2, 2, lsb, 4),
                  (std::vector<uint16_t>{0x321, 0x654, 0xFFF, 0x000}))
            << std::hex << "code 0x" << code;
    for (PfncFormat_ code : kPackedPairCodes)
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, code, 2, 2, packed, 4),
                  (std::vector<uint16_t>{0x124, 0x563, 0xFFF, 0x000}))
            << std::hex << "code 0x" << code;
}

TEST(PixelUnpack, RejectedInputWritesNothing) {
    Bytes src = randomBytes(64, 1);
    const std::vector<uint16_t> untouched(32, kUntouched);
    // Unpacked, unknown, and packed codes that are not mono or Bayer; then pixel counts of 0
    // and below (a negative width, and a product past 2^31).
    for (PfncFormat_ code : {PfncFormat_{0}, Mono10, BayerRG12, RGB12p, RGB10V1Packed}) {
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, code, 8, 4, src, 32), untouched) << code;
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, code, 8, 4, src, 32), untouched) << code;
    }
    for (auto [w, h] : {std::pair{0, 4}, std::pair{-8, 4}, std::pair{65536, 32768}}) {
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, Mono10p, w, h, src, 32), untouched);
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, Mono12p, w, h, src, 32), untouched);
    }
    // One 12-bit pixel is half a pair: nothing to unpack.
    EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, Mono12p, 1, 1, src, 32), untouched);
    // A null source is not read (the destination keeps its contents); a null destination is
    // skipped rather than written through.
    std::vector<uint16_t> dst = untouched;
    unpack12BitsPixelBuffer(Mono12p, 8, 4, nullptr, reinterpret_cast<unsigned char*>(dst.data()));
    unpack10BitsPixelBuffer(Mono10p, 8, 4, nullptr, reinterpret_cast<unsigned char*>(dst.data()));
    EXPECT_EQ(dst, untouched);
    unpack10BitsPixelBuffer(Mono10p, 8, 4, src.data(), nullptr);
    unpack12BitsPixelBuffer(Mono12p, 8, 4, src.data(), nullptr);
}

// The unpackers take a vectorized path over whole blocks and plain code for the rest. Every
// length from 0 to 100 moves the split between them and gives every partial 10-bit group and
// odd 12-bit count; a larger frame runs the block loop many times. Sources end right after the
// bytes the pixels need, and a sentinel after the last pixel must stay untouched.
TEST(PixelUnpack, MatchesBitStreamReferenceAtEveryLength) {
    std::vector<std::pair<int, int>> sizes = {{333, 257}, {64, 64}};  // 85581 pixels: n % 4 == 1
    for (int n = 0; n <= 100; ++n) sizes.push_back({n, 1});

    for (auto [width, height] : sizes) {
        const size_t n = size_t(width) * size_t(height);
        SCOPED_TRACE(testing::Message() << width << " x " << height);

        const Bytes ten = randomBytes((10 * n + 7) / 8, unsigned(n));
        std::vector<uint16_t> expected(n + 1, kUntouched);
        for (size_t i = 0; i < n; ++i) expected[i] = msbFirstBits(ten, 10 * i, 10);
        EXPECT_EQ(unpackInto(unpack10BitsPixelBuffer, BayerGB10Packed, width, height, ten,
                             n + 1),
                  expected);

        // Only whole pairs are read, so the 12-bit sources stop after the last whole pair.
        const Bytes twelve = randomBytes(3 * (n / 2), unsigned(n) + 7);
        std::fill(expected.begin(), expected.end(), kUntouched);
        for (size_t i = 0; i < n / 2 * 2; ++i) expected[i] = lsbFirstBits(twelve, 12 * i, 12);
        EXPECT_EQ(unpackInto(unpack12BitsPixelBuffer, BayerRG12p, width, height, twelve,
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
                             twelve, n + 1),
                  expected);
    }
}

}  // namespace
