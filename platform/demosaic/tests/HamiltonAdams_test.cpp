#include "HamiltonAdams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Samples = std::vector<unsigned short>;
using Rgb = std::array<int, 3>;

const char* const kPatterns[] = {"RGGB", "BGGR", "GRBG", "GBRG"};

// Channel (0 = R, 1 = G, 2 = B) of the filter at (y, x).
int channelAt(const char* pattern, int y, int x)
{
    const char c = pattern[(y & 1) * 2 + (x & 1)];
    return c == 'R' ? 0 : c == 'G' ? 1 : 2;
}

// Mosaic of a scene given as scene(y, x) -> Rgb.
template <class Scene>
Samples mosaic(int rows, int cols, const char* pattern, Scene scene)
{
    Samples raw(static_cast<size_t>(rows) * cols);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            raw[static_cast<size_t>(y) * cols + x] =
                static_cast<unsigned short>(scene(y, x)[channelAt(pattern, y, x)]);
    return raw;
}

Samples demosaic(Samples raw, int rows, int cols, int bits, const char* pattern)
{
    Samples out(raw.size() * 3, 0xBEEF);
    HamiltonAdams(raw.data(), out.data(), rows, cols, bits, pattern);
    return out;
}

int mirror(int i, int n)
{
    if (n == 1)
        return 0;
    while (i < 0 || i >= n)
        i = i < 0 ? -i : 2 * (n - 1) - i;
    return i;
}

// A per-pixel Hamilton-Adams written straight from the method's description, with the same
// integer rounding: whole planes, mirrored look-ups, no row ring, no column split. The library
// must match it bit for bit on frames of at least 2 x 2.
Samples reference(const Samples& raw, int rows, int cols, int bits, const char* pattern)
{
    const int maxValue = (1 << bits) - 1;
    auto clip = [maxValue](int v) { return std::clamp(v, 0, maxValue); };
    auto at = [&](const std::vector<int>& plane, int y, int x) {
        return plane[static_cast<size_t>(mirror(y, rows)) * cols + mirror(x, cols)];
    };
    std::vector<int> m(raw.size()), g(raw.size()), k(raw.size(), 0);
    for (size_t i = 0; i < raw.size(); ++i)
        m[i] = std::min<int>(raw[i], maxValue);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x) {
            const size_t i = static_cast<size_t>(y) * cols + x;
            if (channelAt(pattern, y, x) == 1) {
                g[i] = m[i];
                continue;
            }
            const int c = m[i];
            const int lapH = 2 * c - at(m, y, x - 2) - at(m, y, x + 2);
            const int lapV = 2 * c - at(m, y - 2, x) - at(m, y + 2, x);
            const int gl = at(m, y, x - 1), gr = at(m, y, x + 1);
            const int gu = at(m, y - 1, x), gd = at(m, y + 1, x);
            const int actH = std::abs(gl - gr) + std::abs(lapH);
            const int actV = std::abs(gu - gd) + std::abs(lapV);
            const int estH = (2 * (gl + gr) + lapH + 2) >> 2;
            const int estV = (2 * (gu + gd) + lapV + 2) >> 2;
            g[i] = clip(actH < actV ? estH : actV < actH ? estV : (estH + estV + 1) >> 1);
            k[i] = c - g[i];
        }
    Samples out(raw.size() * 3);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x) {
            const size_t i = static_cast<size_t>(y) * cols + x;
            const int own = channelAt(pattern, y, x);
            Rgb rgb{};
            rgb[1] = g[i];
            if (own == 1) {
                const int rowColour = channelAt(pattern, y, x + 1);
                rgb[rowColour] = clip((2 * g[i] + at(k, y, x - 1) + at(k, y, x + 1) + 1) >> 1);
                rgb[2 - rowColour] =
                    clip((2 * g[i] + at(k, y - 1, x) + at(k, y + 1, x) + 1) >> 1);
            } else {
                rgb[own] = m[i];
                const int lapA = 2 * g[i] - at(g, y - 1, x + 1) - at(g, y + 1, x - 1);
                const int lapB = 2 * g[i] - at(g, y - 1, x - 1) - at(g, y + 1, x + 1);
                const int actA = std::abs(at(m, y - 1, x + 1) - at(m, y + 1, x - 1)) + std::abs(lapA);
                const int actB = std::abs(at(m, y - 1, x - 1) - at(m, y + 1, x + 1)) + std::abs(lapB);
                const int sumA = at(k, y - 1, x + 1) + at(k, y + 1, x - 1);
                const int sumB = at(k, y - 1, x - 1) + at(k, y + 1, x + 1);
                const int sum = actA < actB ? 2 * sumA : actB < actA ? 2 * sumB : sumA + sumB;
                rgb[2 - own] = clip((4 * g[i] + sum + 2) >> 2);
            }
            for (int ch = 0; ch < 3; ++ch)
                out[i * 3 + ch] = static_cast<unsigned short>(rgb[ch]);
        }
    return out;
}

// Random frames of odd and even sizes down to 2 x 2, at 8 bits, at the deepest bit depth of each
// lane width (12, 16) and one past the narrow one (13); salt-and-pepper frames drive every
// intermediate value to the ends of its range.
TEST(HamiltonAdams, MatchesPerPixelReference)
{
    std::mt19937 rng(7);
    const int sizes[][2] = {{2, 2}, {2, 3}, {3, 2}, {3, 3}, {5, 7}, {16, 9}, {17, 32}};
    for (int bits : {8, 12, 13, 16})
        for (const char* pattern : kPatterns)
            for (auto [rows, cols] : sizes)
                for (bool saltAndPepper : {false, true}) {
                    Samples raw(static_cast<size_t>(rows) * cols);
                    for (auto& v : raw)
                        v = static_cast<unsigned short>(saltAndPepper ? (rng() & 1) * ((1 << bits) - 1)
                                                                      : rng() % (1 << bits));
                    ASSERT_EQ(demosaic(raw, rows, cols, bits, pattern),
                              reference(raw, rows, cols, bits, pattern))
                        << pattern << ' ' << rows << 'x' << cols << ' ' << bits << " bits"
                        << (saltAndPepper ? " salt and pepper" : "");
                }
}

// A uniform colour has no gradients and constant colour differences, so every pixel, borders
// included, must come back exactly; wrong phase handling shows as swapped or mixed channels.
TEST(HamiltonAdams, FlatColourComesBackEverywhere)
{
    const Rgb colour{200, 90, 30};
    for (const char* pattern : kPatterns)
        for (auto [rows, cols] : {std::pair{2, 2}, {3, 3}, {8, 8}, {7, 10}}) {
            const Samples out = demosaic(mosaic(rows, cols, pattern, [&](int, int) { return colour; }),
                                         rows, cols, 8, pattern);
            for (size_t i = 0; i < out.size(); ++i)
                ASSERT_EQ(out[i], colour[i % 3]) << pattern << ' ' << rows << 'x' << cols
                                                 << " pixel " << i / 3;
        }
}

// Grey step edges: the direction test must interpolate along the edge, which reproduces them
// exactly (colour differences are zero); a wrong choice blurs the step. A colour ramp is linear,
// so the Laplacian-corrected estimates are exact up to rounding three pixels away from the
// mirrored borders (the mirror puts a kink into a ramp).
TEST(HamiltonAdams, EdgesAndRampsAreReconstructed)
{
    const int n = 12;
    auto vertical = [](int, int x) { int v = x < 5 ? 400 : 3600; return Rgb{v, v, v}; };
    auto horizontal = [](int y, int) { int v = y < 6 ? 3000 : 100; return Rgb{v, v, v}; };
    auto ramp = [](int y, int x) { return Rgb{100 + 60 * x, 500 + 20 * x + 30 * y, 3000 - 50 * y}; };
    for (const char* pattern : kPatterns) {
        for (auto scene : {+vertical, +horizontal}) {
            const Samples out = demosaic(mosaic(n, n, pattern, scene), n, n, 12, pattern);
            for (int i = 0; i < n * n * 3; ++i)
                ASSERT_EQ(out[i], scene(i / 3 / n, i / 3 % n)[i % 3]) << pattern << " pixel " << i / 3;
        }
        const Samples out = demosaic(mosaic(n, n, pattern, ramp), n, n, 12, pattern);
        for (int y = 3; y < n - 3; ++y)
            for (int x = 3; x < n - 3; ++x)
                for (int ch = 0; ch < 3; ++ch)
                    ASSERT_NEAR(out[(y * n + x) * 3 + ch], ramp(y, x)[ch], 1)
                        << pattern << " at " << y << ',' << x << " channel " << ch;
    }
}

// Saturated stripes make the Laplacian correction overshoot; everything must stay within 10
// bits, and input samples above the bit depth count as full scale.
TEST(HamiltonAdams, OutputIsClippedToBitDepth)
{
    auto stripes = [](int, int x) { return x % 4 < 2 ? Rgb{1023, 0, 1023} : Rgb{0, 1023, 0}; };
    Samples raw = mosaic(16, 16, "RGGB", stripes);
    raw[5 * 16 + 5] = 60000;
    const Samples out = demosaic(raw, 16, 16, 10, "RGGB");
    EXPECT_EQ(*std::max_element(out.begin(), out.end()), 1023);
    EXPECT_EQ(out[(5 * 16 + 5) * 3 + 2], 1023);  // the blue sample itself
}

TEST(HamiltonAdams, InvalidPatternOrDepthZeroFills)
{
    const Samples raw(4 * 6, 100);
    const Samples zeros(raw.size() * 3, 0);
    for (const char* pattern : {"", "rggb", "RGB", "RGGBX", "GGRB", static_cast<const char*>(nullptr)})
        EXPECT_EQ(demosaic(raw, 4, 6, 12, pattern), zeros) << (pattern ? pattern : "null");
    for (int bits : {0, -3, 17})
        EXPECT_EQ(demosaic(raw, 4, 6, bits, "RGGB"), zeros) << bits << " bits";
}

// Nothing is read or written for an empty frame; guard samples around the output stay as they
// were and null buffers are fine.
TEST(HamiltonAdams, EmptyFrameTouchesNothing)
{
    Samples raw(16, 7);
    for (auto [rows, cols] : {std::pair{0, 4}, {4, 0}, {-1, 4}, {4, -2}, {0, 0}}) {
        Samples guard(48, 0x5A5A);
        HamiltonAdams(raw.data(), guard.data(), rows, cols, 12, "RGGB");
        EXPECT_EQ(guard, Samples(48, 0x5A5A)) << rows << 'x' << cols;
        HamiltonAdams(nullptr, nullptr, rows, cols, 12, "RGGB");
    }
}

TEST(HamiltonAdamsDeathTest, NullBufferAborts)
{
    Samples buffer(4 * 3);
    EXPECT_DEATH(HamiltonAdams(nullptr, buffer.data(), 2, 2, 8, "RGGB"), "null input buffer");
    EXPECT_DEATH(HamiltonAdams(buffer.data(), nullptr, 2, 2, 8, ""), "null output buffer");
}

// Frames of one to three rows or columns: exact-size buffers (AddressSanitizer catches any read
// or write outside them), every output sample written and within range, input untouched.
TEST(HamiltonAdams, TinyFramesStayInBoundsAndKeepInput)
{
    std::mt19937 rng(3);
    for (const char* pattern : kPatterns)
        for (int rows = 1; rows <= 4; ++rows)
            for (int cols : {1, 2, 3, 4, 9}) {
                Samples raw(static_cast<size_t>(rows) * cols);
                for (auto& v : raw)
                    v = static_cast<unsigned short>(rng() % 1024);
                const Samples before = raw;
                Samples out(raw.size() * 3, 0xFFFF);
                HamiltonAdams(raw.data(), out.data(), rows, cols, 10, pattern);
                EXPECT_EQ(raw, before);
                EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](int v) { return v <= 1023; }))
                    << pattern << ' ' << rows << 'x' << cols;
            }
}

// Every band of every frame, tiny ones included (where the mirrored rows wrap more than once),
// must equal the same rows of the whole frame; bands of one row start on either row parity.
// Both lane widths are covered, and the rows beyond the band are left alone.
TEST(HamiltonAdams, BandsEqualTheWholeFrame)
{
    std::mt19937 rng(5);
    for (int bits : {12, 16})
        for (const char* pattern : {"RGGB", "GBRG"})
            for (int rows : {1, 2, 3, 4, 7, 20})
                for (int cols : {1, 2, 5, 12}) {
                    Samples raw(static_cast<size_t>(rows) * cols);
                    for (auto& v : raw)
                        v = static_cast<unsigned short>(rng() % (1 << bits));
                    const Samples whole = demosaic(raw, rows, cols, bits, pattern);
                    const size_t rowSamples = static_cast<size_t>(cols) * 3;
                    for (int first = 0; first < rows; ++first)
                        for (int count = 1; first + count <= rows; ++count) {
                            Samples band(rowSamples * (count + 1), 0xABCD);
                            HamiltonAdamsRows(raw.data(), band.data(), rows, cols, bits, pattern, first,
                                              count);
                            const Samples expected(whole.begin() + first * rowSamples,
                                                   whole.begin() + (first + count) * rowSamples);
                            ASSERT_EQ(Samples(band.begin(), band.end() - rowSamples), expected)
                                << pattern << ' ' << rows << 'x' << cols << ' ' << bits << " bits, rows "
                                << first << " + " << count;
                            ASSERT_TRUE(std::all_of(band.end() - rowSamples, band.end(),
                                                    [](unsigned short v) { return v == 0xABCD; }));
                        }
                }
}

TEST(HamiltonAdamsDeathTest, BandOutsideTheFrameAborts)
{
    Samples raw(4 * 4), out(4 * 4 * 3);
    EXPECT_DEATH(HamiltonAdamsRows(raw.data(), out.data(), 4, 4, 12, "RGGB", 3, 2), "band outside");
    EXPECT_DEATH(HamiltonAdamsRows(raw.data(), out.data(), 4, 4, 12, "RGGB", -1, 2), "band outside");
}

TEST(HamiltonAdams, ConcurrentCallsAgree)
{
    std::mt19937 rng(11);
    const int rows = 48, cols = 64;
    Samples raw(rows * cols);
    for (auto& v : raw)
        v = static_cast<unsigned short>(rng() % 65536);
    const Samples expected = demosaic(raw, rows, cols, 16, "GBRG");
    std::vector<Samples> results(4);
    std::vector<std::thread> threads;
    for (auto& result : results)
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i)
                result = demosaic(raw, rows, cols, 16, "GBRG");
        });
    for (auto& t : threads)
        t.join();
    for (const auto& result : results)
        EXPECT_EQ(result, expected);
}

}  // namespace
