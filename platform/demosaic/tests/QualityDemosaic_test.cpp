#include "QualityDemosaic.h"

#include "HamiltonAdams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "Mosaic.h"

using namespace mosaictest;

namespace {

Samples demosaic(Samples raw, int rows, int cols, int bits, const char* pattern, Demosaic method = QualityDemosaic)
{
    return mosaictest::demosaic(method, std::move(raw), rows, cols, bits, pattern);
}

Rgb grey(int v)
{
    return Rgb{v, v, v};
}

// Grey edges. Along rows and columns the colour differences stay zero and the edge comes back
// exactly. Diagonal and curved edges leave colour fringes in every interpolating demosaic (a
// pixel beside the edge has its colours from different sides of it). Away from the frame's edge
// they must stay below 30 % of the step (Hamilton-Adams reaches 25 % on the diagonal, this
// method about 21 %); where the diagonal meets the edge, the mirrored border turns it into a
// point and both methods fringe most (Hamilton-Adams 50 %, this method 44 %): there they must
// stay below Hamilton-Adams' largest fringe. The error over the frame must be below Hamilton-Adams', which it
// halves when correct.
TEST(QualityDemosaic, GreyEdgesWithoutStrongFringes)
{
    const int n = 48;
    auto vertical = [](int, int x) { return grey(x < 21 ? 400 : 3600); };
    auto horizontal = [](int y, int) { return grey(y < 20 ? 3000 : 100); };
    auto diagonal = [](int y, int x) { return grey(x + y < 47 ? 300 : 3800); };
    auto disk = [](int y, int x) { return grey((y - 24) * (y - 24) + (x - 24) * (x - 24) < 150 ? 3900 : 200); };
    for (const char* pattern : kPatterns) {
        for (auto scene : {+vertical, +horizontal}) {
            const Samples out = demosaic(mosaic(n, n, pattern, scene), n, n, 12, pattern);
            for (int i = 0; i < n * n * 3; ++i)
                ASSERT_EQ(out[i], scene(i / 3 / n, i / 3 % n)[i % 3]) << pattern << " pixel " << i / 3;
        }
        for (auto [scene, step] : {std::pair{+diagonal, 3500}, {+disk, 3700}}) {
            const Samples raw = mosaic(n, n, pattern, scene);
            const Samples out = demosaic(raw, n, n, 12, pattern);
            const Samples ha = demosaic(raw, n, n, 12, pattern, HamiltonAdams);
            auto fringeAt = [](const Samples& rgb, int i) {
                return std::max(std::abs(rgb[3 * i] - rgb[3 * i + 1]), std::abs(rgb[3 * i + 2] - rgb[3 * i + 1]));
            };
            int inner = 0, edge = 0, haLargest = 0;
            double error = 0, haError = 0;
            for (int i = 0; i < n * n; ++i) {
                const int y = i / n, x = i % n;
                if (std::min({y, x, n - 1 - y, n - 1 - x}) >= 3)
                    inner = std::max(inner, fringeAt(out, i));
                else
                    edge = std::max(edge, fringeAt(out, i));
                haLargest = std::max(haLargest, fringeAt(ha, i));
                for (int ch = 0; ch < 3; ++ch) {
                    const int truth = scene(i / n, i % n)[ch];
                    error += std::pow(out[3 * i + ch] - truth, 2);
                    haError += std::pow(ha[3 * i + ch] - truth, 2);
                }
            }
            EXPECT_LE(inner, step * 3 / 10) << pattern;
            EXPECT_LT(edge, haLargest) << pattern;
            EXPECT_LT(error, haError) << pattern;
        }
    }
}

// A zone plate: texture at every orientation, from flat to half the Nyquist frequency, in a
// colour whose channels differ by constant offsets, as neighbouring channels of natural scenes
// nearly do. That is what colour-difference fusion and residual interpolation exploit: the
// error must fall to a fraction of Hamilton-Adams' (about a twentieth when correct; a wrong
// weight direction or a misplaced Laplacian keeps the result plausible but loses that margin).
TEST(QualityDemosaic, BeatsHamiltonAdamsOnTexture)
{
    const int n = 96;
    auto zone = [](int y, int x) {
        const double phase = 0.01 * ((x - 48) * (x - 48) + (y - 40) * (y - 40));
        const int v = 2048 + static_cast<int>(1500 * std::cos(phase));
        return Rgb{v - 200, v, v + 300};
    };
    for (const char* pattern : kPatterns) {
        const Samples raw = mosaic(n, n, pattern, zone);
        const Samples out = demosaic(raw, n, n, 12, pattern);
        const Samples ha = demosaic(raw, n, n, 12, pattern, HamiltonAdams);
        double error = 0, haError = 0;
        for (int y = 10; y < n - 10; ++y)
            for (int x = 10; x < n - 10; ++x)
                for (int ch = 0; ch < 3; ++ch) {
                    const size_t i = (static_cast<size_t>(y) * n + x) * 3 + ch;
                    error += std::pow(out[i] - zone(y, x)[ch], 2);
                    haError += std::pow(ha[i] - zone(y, x)[ch], 2);
                }
        EXPECT_LT(error, 0.25 * haError) << pattern;
    }
}

// Wide frames are processed in strips of columns with mirrored or neighbouring context; a
// pixel's value must not depend on where the strip seams fall. Shifting the content by whole
// colour-filter cells moves every seam relative to it, so the interior of both results must
// agree exactly. The frame is wider than one strip (4096 columns).
TEST(QualityDemosaic, StripSeamsLeaveNoTrace)
{
    const int rows = 120, cols = 4400, shift = 2 * 17;
    const Samples raw = randomFrame(rows, cols, 12, 5);
    Samples shifted(raw.size());
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            shifted[static_cast<size_t>(y) * cols + x] =
                raw[static_cast<size_t>((y + shift) % rows) * cols + (x + shift) % cols];
    const Samples a = demosaic(raw, rows, cols, 12, "GRBG");
    const Samples b = demosaic(shifted, rows, cols, 12, "GRBG");
    // Mirrored borders reach 32 pixels in.
    for (int y = 32; y < rows - shift - 32; ++y)
        for (int x = 32; x < cols - shift - 32; ++x)
            for (int ch = 0; ch < 3; ++ch)
                ASSERT_EQ(b[(static_cast<size_t>(y) * cols + x) * 3 + ch],
                          a[(static_cast<size_t>(y + shift) * cols + x + shift) * 3 + ch])
                    << "at " << y << ',' << x << " channel " << ch;
}

// Full-scale samples beside a few small ones (from a fuzzing find): along a line the guide of a
// window can be nearly flat while its samples jump, so the line filter's gain is huge. Unclipped,
// its predictions carried that into the colour differences and their squares overflowed the
// gradient weights into NaN, whose conversion to a sample is undefined: the sanitizer build
// (float-cast-overflow) fails here on that fault. Every pattern, and the output in range.
TEST(QualityDemosaic, HugeGainsStayFinite)
{
    const int n = 15, m = 65535;
    const std::vector<int> band = {255, 0, 65280, m, m, 1285, m, m, m, 3327, 5, 1024, 1058, 0, 1024,
                                   65534, m, m, m, 167, 256, 55040, 41342, 16607, 25346, 9668, 59270,
                                   43336};
    const std::vector<int> tail = {27402, 59270, 43336, 27402, 10956, 27402, 59270, 43336, 27402,
                                   10956, 60468};
    Samples raw(n * n, m);
    for (int start : {41, 114, 194})
        std::copy(band.begin(), band.end(), raw.begin() + start);
    std::copy(tail.begin(), tail.end(), raw.begin() + 142);
    for (int bits : {12, 16})
        for (const char* pattern : kPatterns) {
            Samples frame(raw);
            for (auto& v : frame)
                v = static_cast<unsigned short>(v >> (16 - bits));
            const Samples out = demosaic(frame, n, n, bits, pattern);
            EXPECT_LE(*std::max_element(out.begin(), out.end()), (1 << bits) - 1) << pattern;
        }
}

// The constants are tied to the sample scale: the same picture at 8 bits and widened to 16
// must give the same result to within the rounding of the 8-bit samples (one step).
TEST(QualityDemosaic, SameResultAtEveryDepth)
{
    const int rows = 40, cols = 52;
    const Samples raw8 = randomFrame(rows, cols, 8, 9);
    Samples raw16(raw8);
    for (auto& v : raw16)
        v = static_cast<unsigned short>(v * 257);
    const Samples out8 = demosaic(raw8, rows, cols, 8, "BGGR");
    const Samples out16 = demosaic(raw16, rows, cols, 16, "BGGR");
    for (size_t i = 0; i < out8.size(); ++i)
        ASSERT_NEAR(out16[i] / 257.0, out8[i], 1.0) << "sample " << i;
}

// The arithmetic is IEEE single precision without contraction, so every platform must produce
// these exact samples; the suite runs on x86-64 and, emulated, on aarch64. The checksum (FNV-1a
// over the output) was recorded from this test on x86-64. A changed algorithm changes it too:
// then record the new value, after checking the quality figures.
TEST(QualityDemosaic, OutputIsTheSameOnEveryPlatform)
{
    const int rows = 67, cols = 301;  // odd sizes, borders on every side
    uint64_t hash = 1469598103934665603ull;
    for (const char* pattern : kPatterns)
        for (int bits : {8, 12, 16}) {
            const Samples out = demosaic(randomFrame(rows, cols, bits, 77), rows, cols, bits, pattern);
            for (unsigned short v : out)
                hash = (hash ^ v) * 1099511628211ull;
        }
    EXPECT_EQ(hash, 0xac198abcce3a1efbull);
}

}  // namespace
