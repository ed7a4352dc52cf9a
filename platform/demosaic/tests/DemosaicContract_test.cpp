// The contract both demosaics share (arguments, output layout, clipping, borders, refusals,
// threads), checked on each of them.
#include "HamiltonAdams.h"
#include "QualityDemosaic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Mosaic.h"

using namespace mosaictest;

namespace {

struct Method {
    const char* name;
    Demosaic run;
};

class DemosaicContract : public testing::TestWithParam<Method> {
protected:
    Samples run(Samples raw, int rows, int cols, int bits, const char* pattern) const
    {
        return demosaic(GetParam().run, std::move(raw), rows, cols, bits, pattern);
    }
};

// A uniform colour has no gradients and constant colour differences, so every pixel, borders
// included, must come back exactly, at every depth; wrong phase handling shows as swapped or
// mixed channels, a depth-dependent constant as an offset. 70 x 300 has an interior beyond
// every method's border context.
TEST_P(DemosaicContract, FlatColourComesBackEverywhere)
{
    for (int bits : {1, 8, 12, 16}) {
        const int full = (1 << bits) - 1;
        const Rgb colour{full, full * 45 / 100, full * 15 / 100};
        for (const char* pattern : kPatterns)
            for (auto [rows, cols] : {std::pair{2, 2}, {3, 4}, {4, 3}, {8, 8}, {7, 10}, {70, 300}}) {
                const Samples out =
                    run(mosaic(rows, cols, pattern, [&](int, int) { return colour; }), rows, cols, bits, pattern);
                for (size_t i = 0; i < out.size(); ++i)
                    ASSERT_EQ(out[i], colour[i % 3]) << pattern << ' ' << rows << 'x' << cols << ' ' << bits
                                                     << " bits, pixel " << i / 3;
            }
    }
}

// Saturated stripes make the Laplacian corrections overshoot; everything must stay within 10
// bits, and input samples above the bit depth count as full scale.
TEST_P(DemosaicContract, OutputIsClippedToBitDepth)
{
    auto stripes = [](int, int x) { return x % 4 < 2 ? Rgb{1023, 0, 1023} : Rgb{0, 1023, 0}; };
    Samples raw = mosaic(32, 32, "RGGB", stripes);
    raw[5 * 32 + 5] = 60000;
    const Samples out = run(raw, 32, 32, 10, "RGGB");
    EXPECT_EQ(*std::max_element(out.begin(), out.end()), 1023);
    EXPECT_EQ(out[(5 * 32 + 5) * 3 + 2], 1023);  // the blue sample itself
}

// An unknown pattern or depth gives zeros. Nothing is read or written for an empty frame: guard
// samples around the output stay as they were, and null buffers are fine.
TEST_P(DemosaicContract, RefusalsZeroFillAndEmptyFramesTouchNothing)
{
    const Samples raw(4 * 6, 100);
    const Samples zeros(raw.size() * 3, 0);
    for (const char* pattern : {"", "rggb", "RGB", "RGGBX", "GGRB", static_cast<const char*>(nullptr)})
        EXPECT_EQ(run(raw, 4, 6, 12, pattern), zeros) << (pattern ? pattern : "null");
    for (int bits : {0, -3, 17})
        EXPECT_EQ(run(raw, 4, 6, bits, "RGGB"), zeros) << bits << " bits";
    Samples in(16, 7);
    for (auto [rows, cols] : {std::pair{0, 4}, {4, 0}, {-1, 4}, {4, -2}, {0, 0}}) {
        Samples guard(48, 0x5A5A);
        GetParam().run(in.data(), guard.data(), rows, cols, 12, "RGGB");
        EXPECT_EQ(guard, Samples(48, 0x5A5A)) << rows << 'x' << cols;
        GetParam().run(nullptr, nullptr, rows, cols, 12, "RGGB");
    }
}

using DemosaicContractDeathTest = DemosaicContract;

TEST_P(DemosaicContractDeathTest, NullBufferAborts)
{
    Samples buffer(4 * 3);
    const Demosaic method = GetParam().run;
    EXPECT_DEATH(method(nullptr, buffer.data(), 2, 2, 8, "RGGB"), std::string(GetParam().name) + ": null input buffer");
    EXPECT_DEATH(method(buffer.data(), nullptr, 2, 2, 8, ""), std::string(GetParam().name) + ": null output buffer");
}

// Frames of one to four rows or columns, far narrower than the mirrored context: exact-size
// buffers (AddressSanitizer catches any access outside them), every output sample written and
// within range, input untouched.
TEST_P(DemosaicContract, TinyFramesStayInBoundsAndKeepInput)
{
    unsigned seed = 1;
    for (const char* pattern : kPatterns)
        for (int rows = 1; rows <= 4; ++rows)
            for (int cols : {1, 2, 3, 4, 9}) {
                Samples raw = randomFrame(rows, cols, 10, seed++);
                const Samples before = raw;
                Samples out(raw.size() * 3, 0xFFFF);
                GetParam().run(raw.data(), out.data(), rows, cols, 10, pattern);
                EXPECT_EQ(raw, before);
                EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](int v) { return v <= 1023; }))
                    << pattern << ' ' << rows << 'x' << cols;
            }
}

TEST_P(DemosaicContract, ConcurrentCallsAgree)
{
    const int rows = 80, cols = 300;
    const Samples raw = randomFrame(rows, cols, 16, 11);
    const Samples expected = run(raw, rows, cols, 16, "GBRG");
    std::vector<Samples> results(4);
    std::vector<std::thread> threads;
    for (auto& result : results)
        threads.emplace_back([&] {
            for (int i = 0; i < 4; ++i)
                result = run(raw, rows, cols, 16, "GBRG");
        });
    for (auto& t : threads)
        t.join();
    for (const auto& result : results)
        EXPECT_EQ(result, expected);
}

const Method kMethods[] = {{"HamiltonAdams", HamiltonAdams}, {"QualityDemosaic", QualityDemosaic}};
std::string methodName(const testing::TestParamInfo<Method>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(BothMethods, DemosaicContract, testing::ValuesIn(kMethods), methodName);
INSTANTIATE_TEST_SUITE_P(BothMethods, DemosaicContractDeathTest, testing::ValuesIn(kMethods), methodName);

}  // namespace
