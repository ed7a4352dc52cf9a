#include "HamiltonAdams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

#include "Mosaic.h"

using namespace mosaictest;

namespace {

Samples demosaic(Samples raw, int rows, int cols, int bits, const char* pattern)
{
    return mosaictest::demosaic(HamiltonAdams, std::move(raw), rows, cols, bits, pattern);
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

}  // namespace
