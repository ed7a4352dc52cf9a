// Residual-interpolation demosaicing in one pass over a ring of rows.
//
// Green: gradient-based threshold-free interpolation on residual-interpolated estimates. Along
// every row and every column a guided filter led by the other colour, interpolated linearly,
// estimates the colour each pixel misses, plus its spread residuals; the estimates give a
// horizontal and a vertical colour-difference plane, green minus red or blue. (A neighbour
// mean with a second-difference correction, Hamilton-Adams' estimate, leaves steps in the
// colour differences at saturated colour edges, which the fusion then spreads: on such a photo
// it fell below Hamilton-Adams itself.) At red and blue sites the colour difference is fused
// from the three nearest ones towards north, south, west and east, weighted by the inverse
// square of the colour-difference gradients summed over a 5 x 5 window on that side; green is
// the sample plus that difference.
//
// Red and blue: minimized-Laplacian residual interpolation. A guided filter led by the full
// green plane predicts the sparse colour. Its windows are centred on the colour's own sites,
// 13 x 13 pixels holding 7 x 7 of them: in each window the gain fits the Laplacian of the colour
// samples to the Laplacian of green at the same sites (least squares on the Laplacians, not on
// the values, so that a smooth offset between the planes does not bias the gain) and the offset
// matches the means; a pixel takes the mean gain and offset of the windows centred within 5
// pixels of it (25 to 36 windows). Centring windows on the sites alone fits a quarter of the
// windows of a dense guided filter; it measured 0.08 dB below dense 11 x 11 windows on
// photographs, at two thirds of the time. The prediction is clipped, its residuals at the
// colour sites are spread bilinearly, and the sum is the result; at the colour's own sites that
// is the sample itself.
//
// Every step reads a bounded neighbourhood (31 pixels in all), so the frame is cut into strips
// of columns, processed independently with 32 columns of mirrored or neighbouring context on
// each side, and each strip in one pass from top to bottom: every step runs on a row as soon as
// the rows it reads exist, and keeps only the last rows that later steps still read, so a pixel
// goes through the whole pipeline while its neighbourhood is in cache. Work that concerns only
// some sites runs on those sites alone: the green fusion at red and blue sites, the
// guided-filter products and their box sums at the sites of the colour. All sums have a fixed
// order (no running sums) and the unit is compiled without floating-point contraction, so a
// pixel's value depends neither on the strips nor on the platform.

#include "QualityDemosaic.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "BayerMirror.h"
#include "RgbRows.h"

namespace {

// First row and column (from the strip's edge, in rows and columns with context) where each
// step's results are valid. The colour differences along a line: the line filter's
// coefficients reach 6, their window 5 and the residual 1. Their gradients 1 more, the 5 x 5
// gradient sums 2 more, and green, which reads the sums two pixels to each side, 2 more. Then
// the guided-filter products (Laplacians, 2), the gains and offsets (their windows, 6), the
// prediction (the mean over windows, 5); red and blue are valid one further in (the bilinear
// residual).
constexpr int kCoefficientEdge = 6;
constexpr int kLinePredictionEdge = kCoefficientEdge + 5;
constexpr int kDifferenceEdge = kLinePredictionEdge + 1;
constexpr int kGradientEdge = kDifferenceEdge + 1;
constexpr int kGradientSumEdge = kGradientEdge + 2;
constexpr int kGreenEdge = kGradientSumEdge + 2;
constexpr int kProductEdge = kGreenEdge + 2;
constexpr int kGainEdge = kProductEdge + 6;
constexpr int kPredictionEdge = kGainEdge + 5;
// Context around a strip: the support of the whole pipeline, rounded up to even so that strip
// and frame have the same phase.
constexpr int kPad = 32;
static_assert(kPredictionEdge + 1 <= kPad, "the context must cover the pipeline");
// Output columns of a strip. Even, so every strip starts on the same colour-filter phase. Wide,
// because the per-row calls and the ends of the vector loops cost more on narrow strips than
// the cache saves: at 2448 columns one strip ran 20 % faster than strips of 256 (whose rows
// fit the second-level cache). A strip keeps about 510 rows alive, 5 MB at 2448 columns.
constexpr int kStripCols = 4096;

// The gradient weights and the guided-filter gain divide by squares that vanish on flat areas.
// These terms only keep such divisions finite and are far below any real signal: for the
// weights, on the squared mean gradient in 8-bit units; for the gain, set for 8-bit samples and
// scaled by the square of the sample scale.
constexpr float kWeightEps = 1e-10f;
constexpr float kGainEps8 = 1e-10f;

enum Colour { kRed = 0, kGreen = 1, kBlue = 2 };

// colour[row parity][column parity] of the filter.
bool resolvePattern(const char* pattern, int colour[2][2])
{
    if (pattern == nullptr)
        return false;
    static const char* const kKnown[] = {"RGGB", "BGGR", "GRBG", "GBRG"};
    for (const char* known : kKnown)
        if (std::strcmp(pattern, known) == 0) {
            for (int i = 0; i < 4; ++i)
                colour[i / 2][i % 2] = pattern[i] == 'R' ? kRed : pattern[i] == 'G' ? kGreen : kBlue;
            return true;
        }
    return false;
}

using bayer::mirror;
using bayer::writeRow;

// v limited to [0, maxValue]; a NaN becomes 0, so no step can hand one on.
float clampTo(float v, float maxValue)
{
    v = v > 0.0f ? v : 0.0f;
    return v < maxValue ? v : maxValue;
}

// The last rows of one plane of a strip: row r at r mod rows (a power of two). A ring that
// serves the line filter down columns, whose kernels reach row r + k as row r's pointer plus k
// row pitches, also keeps every row a second time `rows` further on (publish() after writing
// it): the rows within `reach` of row r are then consecutive from window(r, reach), for reach
// up to half the ring.
class Ring {
public:
    void resize(int rows, int cols, bool windows = false)
    {
        rows_ = rows;
        mask_ = rows - 1;
        cols_ = cols;
        windows_ = windows;
        data_.assign(static_cast<size_t>(windows ? 2 * rows : rows) * cols, 0.0f);
    }
    float* row(int r) { return data_.data() + static_cast<size_t>(r & mask_) * cols_; }
    void publish(int r)
    {
        if (windows_)
            std::memcpy(row(r) + static_cast<size_t>(rows_) * cols_, row(r), cols_ * sizeof(float));
    }
    const float* window(int r, int reach)
    {
        const int slot = r & mask_;
        return data_.data() + static_cast<size_t>(slot < reach ? slot + rows_ : slot) * cols_;
    }

private:
    int rows_ = 0;
    int mask_ = 0;
    int cols_ = 0;
    bool windows_ = false;
    std::vector<float> data_;
};

// Green and the other colour of a line alternate along every row and column of the mosaic, so
// along a line each pixel has its own colour and misses the colour of its two neighbours. The
// missing colour is estimated by residual interpolation along the line: a guided filter over
// the samples of each colour, led by the other colour interpolated linearly, predicts both
// colours at every pixel; the prediction errors at the samples are spread linearly and added.
// The windows are centred on every other pixel of the line, those of even row and column
// (a pixel averages the 5 or 6 windows centred within 5 pixels): half the work of windows at
// every pixel, for 0.03 dB less on photographs.
// The kernels below do this for one line direction. `x` is the mosaic at the pixel, and
// x[c + k * step] its k-th neighbour along the line (step 1 along a row, the row pitch along a
// column), so one kernel serves both directions. Their pixels are c = kSpacing * j, j from lo
// to hi: every other pixel of a row, or every pixel of a row across columns.

// Guided-filter gain and offset of the 11-pixel window centred on each pixel, for the colour of
// the pixel (own: the 5 samples at even offsets) and for the other colour (the 6 at odd
// offsets). The guide at a sample is the mean of its two neighbours. Values of the centre's
// colour are taken relative to the centre sample, those of the other colour relative to the next
// sample: that changes neither gain nor offset, but keeps the variance free of cancellation at 16
// bits, also where the two colours lie far apart, and makes it exactly zero on flat areas.
// Reads offsets -6 .. 6.
template <int kSpacing>
__attribute__((noinline)) void lineCoefficients(const float* __restrict x, int step,
                                                float* __restrict aOwn, float* __restrict bOwn,
                                                float* __restrict aOther,
                                                float* __restrict bOther, int lo, int hi,
                                                float eps)
{
    for (int j = lo; j < hi; ++j) {
        const int c = kSpacing * j;
        const float k = x[c];
        const float o = x[c + step];
        const float shift = o - k;
        // Samples at offsets -6 .. 6 relative to the centre; the guide at offset j is half of
        // d[j + 5] + d[j + 7]. All differences of integer samples, so exact. The loops unroll,
        // so the arrays stay in registers and the pixel loop vectorises.
        float d[13];
#pragma GCC unroll 13
        for (int i = 0; i < 13; ++i)
            d[i] = x[c + (i - 6) * step] - k;
        // [own, other][twice the guide, sample, their product, twice the guide squared]
        float sum[2][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}};
#pragma GCC unroll 11
        for (int i = 1; i < 12; ++i) {
            const int other = i & 1;  // offset i - 6 has the parity of i
            // The other colour's values relative to o instead of k.
            const float g2 = other != 0 ? d[i - 1] + d[i + 1] : (d[i - 1] + d[i + 1]) - 2.0f * shift;
            const float v = other != 0 ? d[i] - shift : d[i];
            float* s = sum[other];
            s[0] += g2;
            s[1] += v;
            s[2] += g2 * v;
            s[3] += g2 * g2;
        }
        const float inv[2] = {1.0f / 5.0f, 1.0f / 6.0f};
        const float sampleRef[2] = {k, o}, guideRef[2] = {o, k};
        float a[2], b[2];
#pragma GCC unroll 2
        for (int i = 0; i < 2; ++i) {
            const float meanG = 0.5f * (sum[i][0] * inv[i]), meanV = sum[i][1] * inv[i];
            const float cov = 0.5f * (sum[i][2] * inv[i]) - meanG * meanV;
            // Never below zero, as rounding could make it where the guide is flat.
            const float var = std::max(0.25f * (sum[i][3] * inv[i]) - meanG * meanG, 0.0f);
            a[i] = cov / (var + eps);
            b[i] = (meanV + sampleRef[i]) - a[i] * (meanG + guideRef[i]);
        }
        aOwn[c] = a[0];
        bOwn[c] = b[0];
        aOther[c] = a[1];
        bOther[c] = b[1];
    }
}

// Predicts from the mean gain and offset of the windows over each pixel: the pixel's own colour
// (guide: mean of the neighbours), whose error against the sample goes to `residual`, and the
// missing colour (guide: the sample), into `missing`. Both predictions are clipped to the
// sample range: where a window's guide is nearly flat its gain can be huge, and an unclipped
// prediction would carry that into the colour differences (and their squares into overflow).
inline void predictPixel(const float* __restrict x, int c, int step, const float sum[4],
                         float scale, float maxValue, float* __restrict residual,
                         float* __restrict missing)
{
    const float guide = 0.5f * (x[c - step] + x[c + step]);
    residual[c] = x[c] - clampTo((sum[0] * scale) * guide + sum[1] * scale, maxValue);
    missing[c] = clampTo((sum[2] * scale) * x[c] + sum[3] * scale, maxValue);
}

// Pixels where windows are centred average the five windows centred 0, 2 and 4 pixels away,
// which hold the pixel's colour as their own. Their sums of aOwn, bOwn, aOther and bOther go to
// `sums` for the pixels between. Reads offsets -4 .. 4 of the coefficients, -1 .. 1 of the
// mosaic.
template <int kSpacing>
__attribute__((noinline)) void predictAtCentres(
    const float* __restrict x, const float* __restrict aOwn, const float* __restrict bOwn,
    const float* __restrict aOther, const float* __restrict bOther, int step,
    float* __restrict residual, float* __restrict missing, float* __restrict sumAOwn,
    float* __restrict sumBOwn, float* __restrict sumAOther, float* __restrict sumBOther, int lo,
    int hi, float maxValue)
{
    for (int j = lo; j < hi; ++j) {
        const int c = kSpacing * j;
        const int s = 2 * step;
        const float sum[4] = {
            (((aOwn[c - 2 * s] + aOwn[c - s]) + aOwn[c]) + aOwn[c + s]) + aOwn[c + 2 * s],
            (((bOwn[c - 2 * s] + bOwn[c - s]) + bOwn[c]) + bOwn[c + s]) + bOwn[c + 2 * s],
            (((aOther[c - 2 * s] + aOther[c - s]) + aOther[c]) + aOther[c + s]) + aOther[c + 2 * s],
            (((bOther[c - 2 * s] + bOther[c - s]) + bOther[c]) + bOther[c + s]) + bOther[c + 2 * s]};
        sumAOwn[c] = sum[0];
        sumBOwn[c] = sum[1];
        sumAOther[c] = sum[2];
        sumBOther[c] = sum[3];
        predictPixel(x, c, step, sum, 1.0f / 5.0f, maxValue, residual, missing);
    }
}

// The pixels between the centres average the six windows centred 1, 3 and 5 pixels away, which
// hold the pixel's colour as their other: the five sums of the centre before (`sum...` at c)
// plus the window 5 pixels on. Reads offset 5 of the coefficients, -1 .. 1 of the mosaic.
template <int kSpacing>
__attribute__((noinline)) void predictBetweenCentres(
    const float* __restrict x, const float* __restrict aOwn, const float* __restrict bOwn,
    const float* __restrict aOther, const float* __restrict bOther, int step,
    float* __restrict residual, float* __restrict missing, const float* __restrict sumAOwn,
    const float* __restrict sumBOwn, const float* __restrict sumAOther,
    const float* __restrict sumBOther, int lo, int hi, float maxValue)
{
    for (int j = lo; j < hi; ++j) {
        const int c = kSpacing * j;
        const int far = c + 5 * step;
        const float sum[4] = {sumAOther[c] + aOther[far], sumBOther[c] + bOther[far],
                              sumAOwn[c] + aOwn[far], sumBOwn[c] + bOwn[far]};
        predictPixel(x, c, step, sum, 1.0f / 6.0f, maxValue, residual, missing);
    }
}

// Colour difference along the line, green minus red or blue: the missing colour is its
// prediction plus the mean residual of the two neighbours (whose own colour it is); `sign` is +1
// at green sites (green minus the estimate) and -1 elsewhere (the estimate minus the sample).
// Reads offsets -1 .. 1.
void lineDifference(const float* __restrict x, const float* __restrict residual,
                    const float* __restrict missing, const float* __restrict sign, int step,
                    float* __restrict difference, int lo, int hi)
{
    for (int c = lo; c < hi; ++c) {
        const float estimate = missing[c] + 0.5f * (residual[c - step] + residual[c + step]);
        difference[c] = sign[c] * (x[c] - estimate);
    }
}

// Sums of five, six or seven rows, columns lo..hi, added top to bottom in one pass: the sum
// stays in a register instead of going through memory once per row. Kept out of line: inlined
// into a caller that picks the rows, the compiler loses sight of the restrict qualifiers and
// leaves the loop scalar.
__attribute__((noinline)) void sumRows(const float* const* in, float* __restrict out, int lo,
                                       int hi, int taps)
{
    const float* __restrict r0 = in[0];
    const float* __restrict r1 = in[1];
    const float* __restrict r2 = in[2];
    const float* __restrict r3 = in[3];
    const float* __restrict r4 = in[4];
    if (taps == 5) {
        for (int c = lo; c < hi; ++c)
            out[c] = (((r0[c] + r1[c]) + r2[c]) + r3[c]) + r4[c];
    } else if (taps == 6) {
        const float* __restrict r5 = in[5];
        for (int c = lo; c < hi; ++c)
            out[c] = ((((r0[c] + r1[c]) + r2[c]) + r3[c]) + r4[c]) + r5[c];
    } else {
        const float* __restrict r5 = in[5];
        const float* __restrict r6 = in[6];
        for (int c = lo; c < hi; ++c)
            out[c] = (((((r0[c] + r1[c]) + r2[c]) + r3[c]) + r4[c]) + r5[c]) + r6[c];
    }
}

// out[c] = sum of in[c - 2 .. c + 2], columns lo..hi, added from left to right.
__attribute__((noinline)) void sumFiveColumns(const float* __restrict in, float* __restrict out,
                                              int lo, int hi)
{
    for (int c = lo; c < hi; ++c)
        out[c] = (((in[c - 2] + in[c - 1]) + in[c]) + in[c + 1]) + in[c + 2];
}

// The 11-wide sums of a row of the colour's sites held at every other column: `in[j]` is the
// site at column 2j + s of the strip. At a site column c = 2j + s the sum is the five sites
// around it; at c + 1 it is the six from c - 4 to c + 6, the same five plus the next one. The
// columns between the sites hold zeros in the full plane, so leaving them out changes no bit:
// the other terms are added in the same order. `out` is the row offset by s.
__attribute__((noinline)) void sumSiteColumns(const float* __restrict in, float* __restrict out,
                                              int lo, int hi)
{
    for (int j = lo; j < hi; ++j) {
        const float own = (((in[j - 2] + in[j - 1]) + in[j]) + in[j + 1]) + in[j + 2];
        out[2 * j] = own;
        out[2 * j + 1] = own + in[j + 3];
    }
}

// out[j] = sum of in[j - 3 .. j + 3], j = lo..hi, added from left to right.
__attribute__((noinline)) void sumSevenColumns(const float* __restrict in, float* __restrict out,
                                               int lo, int hi)
{
    for (int j = lo; j < hi; ++j)
        out[j] = (((((in[j - 3] + in[j - 2]) + in[j - 1]) + in[j]) + in[j + 1]) + in[j + 2]) + in[j + 3];
}
// Green at the red or blue sites of a row: the sample plus the colour difference fused from
// four directions with inverse-square gradient weights. The difference from one side is the
// mean of the pixel's own and the two next on that side: residual-interpolated differences are
// smooth enough that a longer mean only carries a colour edge further. The row pointers are
// offset to the first such site, so site j is at column 2j.
//   dV[k]: vertical colour differences of rows r - 2 .. r + 2; dH: horizontal ones of row r;
//   bvN, bvS: vertical gradient sums two rows up and down; bh: horizontal gradient sums.
// `unit` turns a gradient sum into a mean gradient on the 8-bit scale (at most about 1000).
// The weights 1 / x are multiplied by the product of the four x, which leaves their ratios as
// they are and needs one division instead of four; on that scale the products stay far inside
// the float range (between 1e-30 and 1e24).
void fuseGreen(const float* __restrict m, const float* const* dV, const float* __restrict dH,
               const float* __restrict bvN, const float* __restrict bvS,
               const float* __restrict bh, float* __restrict green, int lo, int hi, float unit,
               float maxValue)
{
    constexpr float kThird = 1.0f / 3.0f;
    const float* __restrict v0 = dV[0];
    const float* __restrict v1 = dV[1];
    const float* __restrict v2 = dV[2];
    const float* __restrict v3 = dV[3];
    const float* __restrict v4 = dV[4];
    for (int j = lo; j < hi; ++j) {
        const int c = 2 * j;
        const float n = bvN[c] * unit, s = bvS[c] * unit;
        const float w = bh[c - 2] * unit, e = bh[c + 2] * unit;
        const float xN = n * n + kWeightEps, xS = s * s + kWeightEps;
        const float xW = w * w + kWeightEps, xE = e * e + kWeightEps;
        const float xNS = xN * xS, xWE = xW * xE;
        const float wN = xS * xWE, wS = xN * xWE, wW = xNS * xE, wE = xNS * xW;
        const float fN = ((v0[c] + v1[c]) + v2[c]) * kThird;
        const float fS = ((v2[c] + v3[c]) + v4[c]) * kThird;
        const float fW = ((dH[c - 2] + dH[c - 1]) + dH[c]) * kThird;
        const float fE = ((dH[c] + dH[c + 1]) + dH[c + 2]) * kThird;
        const float diff = (wN * fN + wS * fS + wW * fW + wE * fE) / (wN + wS + wW + wE);
        green[c] = clampTo(m[c] + diff, maxValue);
    }
}

// The products the guided filter sums at the sites of one colour, one per site: Laplacian of
// green squared, Laplacians of green and of the colour multiplied, green, colour. The row
// pointers are offset to the first site column, so site j is at column 2j; the products are
// stored at j. The Laplacians span two pixels, the spacing of the sites.
__attribute__((noinline)) void siteProducts(
    const float* __restrict gUp, const float* __restrict g, const float* __restrict gDown,
    const float* __restrict mUp, const float* __restrict m, const float* __restrict mDown,
    float* __restrict gg, float* __restrict gm, float* __restrict gs, float* __restrict ms, int lo,
    int hi)
{
    for (int j = lo; j < hi; ++j) {
        const int c = 2 * j;
        const float lapG = 4.0f * g[c] - gUp[c] - gDown[c] - g[c - 2] - g[c + 2];
        const float lapM = 4.0f * m[c] - mUp[c] - mDown[c] - m[c - 2] - m[c + 2];
        gg[j] = lapG * lapG;
        gm[j] = lapG * lapM;
        gs[j] = g[c];
        ms[j] = m[c];
    }
}

// Gain and offset of the windows centred on a row's sites from their sums over the 25 sites
// of each window, stored by site.
void gainAndOffset(const float* __restrict gg, const float* __restrict gm,
                   const float* __restrict gs, const float* __restrict ms,
                   float* __restrict a, float* __restrict b, int lo, int hi, float eps)
{
    constexpr float kInvSites = 1.0f / 49.0f;
    for (int j = lo; j < hi; ++j) {
        const float gain = gm[j] / (gg[j] + eps);
        a[j] = gain;
        b[j] = (ms[j] - gain * gs[j]) * kInvSites;
    }
}

// The prediction from the gains and offsets averaged over the windows that cover each pixel
// (sums over them and 1 / their count), clipped, and the residual at the colour's sites.
void predict(const float* __restrict sumA, const float* __restrict sumB,
             const float* __restrict invCount, const float* __restrict g,
             const float* __restrict m, const float* __restrict mask,
             float* __restrict prediction, float* __restrict residual, int lo, int hi,
             float maxValue)
{
    for (int c = lo; c < hi; ++c) {
        const float q = clampTo((sumA[c] * invCount[c]) * g[c] + sumB[c] * invCount[c], maxValue);
        prediction[c] = q;
        residual[c] = mask[c] * (m[c] - q);
    }
}

// The colour at every pixel of a row: the prediction plus the residuals spread bilinearly, and
// the sample itself at the colour's own sites. The residuals are zero between the sites, so
// each kind of pixel adds only its own neighbours: on a row that holds sites, the two in the
// row; on the rows between, the two above and below a site's column, and the four diagonal
// ones elsewhere. The row pointers are offset so that the site columns are the even ones 2j.
void siteRowColour(const float* __restrict q, const float* __restrict r,
                   const float* __restrict m, float* __restrict colour, int lo, int hi,
                   float maxValue)
{
    for (int j = lo; j < hi; ++j)
        colour[2 * j] = m[2 * j];
    for (int j = lo; j < hi; ++j) {
        const int c = 2 * j + 1;
        colour[c] = clampTo(q[c] + 0.5f * (r[c - 1] + r[c + 1]), maxValue);
    }
}

void otherRowColour(const float* __restrict q, const float* __restrict rUp,
                    const float* __restrict rDown, float* __restrict colour, int lo, int hi,
                    float maxValue)
{
    for (int j = lo; j < hi; ++j) {
        const int c = 2 * j;
        colour[c] = clampTo(q[c] + 0.5f * (rUp[c] + rDown[c]), maxValue);
    }
    for (int j = lo; j < hi; ++j) {
        const int c = 2 * j + 1;
        const float diagonal = (rUp[c - 1] + rUp[c + 1]) + (rDown[c - 1] + rDown[c + 1]);
        colour[c] = clampTo(q[c] + 0.25f * diagonal, maxValue);
    }
}

// Rounds a row of one plane to 16-bit samples (the values lie in [0, 65535]), split into its
// even and odd columns for writeRow: n columns from the first one.
__attribute__((noinline)) void roundSplit(const float* __restrict in, uint16_t* __restrict even,
                                          uint16_t* __restrict odd, int n)
{
    for (int k = 0; k < n / 2; ++k) {
        even[k] = static_cast<uint16_t>(static_cast<int>(in[2 * k] + 0.5f));
        odd[k] = static_cast<uint16_t>(static_cast<int>(in[2 * k + 1] + 0.5f));
    }
    if (n & 1)
        even[n / 2] = static_cast<uint16_t>(static_cast<int>(in[n - 1] + 0.5f));
}

class Demosaicer {
public:
    Demosaicer(const uint16_t* in, uint16_t* out, int rows, int cols, int bitDepth,
               const int colour[2][2])
        : in_(in), out_(out), rows_(rows), cols_(cols),
          maxValue_(static_cast<float>((1 << bitDepth) - 1))
    {
        const float scale = maxValue_ / 255.0f;
        gradientUnit_ = 1.0f / (25.0f * scale);
        gainEps_ = kGainEps8 * scale * scale;
        stripCols_ = std::min(kStripCols, cols + (cols & 1));
        h_ = rows + 2 * kPad;
        w_ = stripCols_ + 2 * kPad;
        for (int id = 0; id < kRingCount; ++id) {
            // The rings that the line filter reads down the columns.
            const bool windows = id == kMosaic || id == kLineResidual ||
                                 (id >= kLineCoefficients && id < kLineCoefficients + 4);
            rings_[id].resize(kRingRows[id], w_, windows);
        }
        for (std::vector<float>& row : rowScratch_)
            row.assign(w_, 0.0f);
        for (int k = 0; k < 4; ++k) {
            rowSums_[k].assign(w_, 0.0f);
            columnSums_[k].assign(w_, 0.0f);
        }
        for (std::vector<float>* row : {&sumGG_, &sumGM_, &sumGS_, &sumMS_, &meanA_, &meanB_,
                                        &colourRow_[0], &colourRow_[1], &tmp_})
            row->assign(w_, 0.0f);
        halfStride_ = w_ / 2 + 1;
        samples_.resize(6 * static_cast<size_t>(halfStride_));
        pairs_.resize(3 * static_cast<size_t>(w_ + 1));
        columns_.resize(w_);
        // Per row parity and column of a strip: the site masks and the sign of the colour
        // difference. Strips start on even columns, so these hold for every strip.
        for (int py = 0; py < 2; ++py) {
            for (auto* v : {&sign_[py], &mask_[py][0], &mask_[py][1],
                            &invCount_[py][0], &invCount_[py][1]})
                v->resize(w_);
            for (int c = 0; c < w_; ++c) {
                const int here = colour[py][c & 1];
                if (here != kGreen)
                    otherColumn_[py] = c & 1;
                sign_[py][c] = here == kGreen ? 1.0f : -1.0f;
                for (int x = 0; x < 2; ++x) {
                    const int target = x == 0 ? kRed : kBlue;
                    mask_[py][x][c] = here == target ? 1.0f : 0.0f;
                    if (here == target)
                        siteRow_[x] = py;
                    // Windows that cover a pixel, one per site within 5 rows and columns: 5
                    // rows (columns) of them when the pixel's row (column) holds the colour,
                    // else 6.
                    const bool rowHas = colour[py][0] == target || colour[py][1] == target;
                    const bool colHas = colour[0][c & 1] == target || colour[1][c & 1] == target;
                    invCount_[py][x][c] = 1.0f / static_cast<float>((rowHas ? 5 : 6) * (colHas ? 5 : 6));
                    if (colHas)
                        siteColumn_[x] = c & 1;
                }
            }
        }
    }

    void run()
    {
        for (int x0 = 0; x0 < cols_; x0 += stripCols_)
            strip(x0, std::min(stripCols_, cols_ - x0));
    }

private:
    // The rows each step keeps, one ring per plane. Row r of a plane lives at r mod the ring's
    // size, a power of two at least the span of rows that the later steps still read (see
    // strip()).
    enum RingId {
        kMosaic, kDiffH, kDiffV, kGradH, kGradV, kSumH, kSumV, kGreenPlane,
        kLineCoefficients,                    // down columns: aOwn, bOwn, aOther, bOther
        kLineResidual = kLineCoefficients + 4,  // down columns
        kLineMissing,                         // down columns
        kProducts,                      // 4 products (gg, gm, gs, ms) of red, then of blue
        kGain = kProducts + 8,          // gain a and offset b of red, then of blue
        kPrediction = kGain + 4,        // prediction of red, blue
        kResidual = kPrediction + 2,    // residual of red, blue
        kRingCount = kResidual + 2
    };
    // Rows per ring: at least the span from the newest row a step writes to the oldest one a
    // later step still reads (strip() gives the lags), and twice the reach of a window read.
    static constexpr int kRingRows[kRingCount] = {
        32, 32, 8, 8, 8, 4, 8, 16,
        16, 16, 16, 16, 4, 2,
        16, 16, 16, 16, 16, 16, 16, 16,
        16, 16, 16, 16,
        2, 2,
        4, 4};

    float* p(int id, int r) { return rings_[id].row(r); }
    const float* window(int id, int r, int reach) { return rings_[id].window(r, reach); }

    // One strip of output columns [x0, x0 + outCols) over the whole height. Every step works
    // on one row as soon as the rows it reads exist: step k of local row r runs when mosaic
    // row r + lag(k) has been loaded, so a pixel passes through the whole pipeline while its
    // neighbourhood is still in cache. The lag of each step is its edge (the rows of context
    // it needs): the colour differences along rows 0, the line filter down columns 6, 11 and
    // 12, gradients 13, their sums 15, green 17, guided-filter products 19, gains and offsets
    // 25, their means and the prediction 30, red and blue 31. Local row r is frame row
    // r - kPad; rows outside the frame are mirrored.
    void strip(int x0, int outCols)
    {
        setColumns(x0);
        const auto inside = [&](int r, int edge) { return r >= edge && r < h_ - edge; };
        for (int t = 0; t < h_; ++t) {
            load(t, x0);
            rowDifferences(t);
            if (int r = t - kCoefficientEdge; inside(r, kCoefficientEdge) && (r & 1) == 0)
                columnCoefficients(r);
            // From the even row before the first, whose window sums that one uses.
            if (int r = t - kLinePredictionEdge;
                r >= kLinePredictionEdge - 1 && r < h_ - kLinePredictionEdge)
                columnPrediction(r);
            if (int r = t - kDifferenceEdge; inside(r, kDifferenceEdge))
                lineDifference(p(kMosaic, r), window(kLineResidual, r, 1), p(kLineMissing, r),
                               sign_[r & 1].data(), w_, p(kDiffV, r), kGradientEdge,
                               w_ - kGradientEdge);
            if (int r = t - kGradientEdge; inside(r, kGradientEdge))
                gradients(r);
            if (int r = t - kGradientSumEdge; inside(r, kGradientSumEdge)) {
                boxSum5(kGradH, kSumH, r, kGradientSumEdge);
                boxSum5(kGradV, kSumV, r, kGradientSumEdge);
            }
            if (int r = t - kGreenEdge; inside(r, kGreenEdge))
                greenRow(r);
            for (int x = 0; x < 2; ++x) {
                const auto holdsSites = [&](int r) { return ((r - siteRow_[x]) & 1) == 0; };
                if (int r = t - kProductEdge; inside(r, kProductEdge) && holdsSites(r))
                    products(x, r);
                if (int r = t - kGainEdge; inside(r, kGainEdge) && holdsSites(r))
                    gains(x, r);
                if (int r = t - kPredictionEdge; inside(r, kPredictionEdge))
                    prediction(x, r);
                if (int r = t - kPredictionEdge - 1; inside(r, kPad))
                    colourRow(x, r);
            }
            if (int r = t - kPredictionEdge - 1; inside(r, kPad))
                writePixels(r, x0, outCols);
        }
    }

    // Colour differences along row r, from the line filter along it, columns from
    // kDifferenceEdge. The filter's coefficients and predictions of one row are scratch.
    void rowDifferences(int r)
    {
        const float* m = p(kMosaic, r);
        float* coefficient[4];
        for (int k = 0; k < 4; ++k)
            coefficient[k] = rowScratch_[k].data();
        // Windows at the even columns; j indexes the pixels c = 2j + parity.
        const auto first = [](int edge, int parity) { return (edge - parity + 1) / 2; };
        const auto end = [&](int edge, int parity) { return (w_ - edge - parity + 1) / 2; };
        lineCoefficients<2>(m, 1, coefficient[0], coefficient[1], coefficient[2], coefficient[3],
                            first(kCoefficientEdge, 0), end(kCoefficientEdge, 0), gainEps_);
        float* residual = rowScratch_[4].data();
        float* missing = rowScratch_[5].data();
        float* sums[4];
        for (int k = 0; k < 4; ++k)
            sums[k] = rowSums_[k].data();
        // The centres from one before the first pixel between them, whose sums those use.
        predictAtCentres<2>(m, coefficient[0], coefficient[1], coefficient[2], coefficient[3], 1,
                            residual, missing, sums[0], sums[1], sums[2], sums[3],
                            first(kLinePredictionEdge - 1, 0), end(kLinePredictionEdge, 0),
                            maxValue_);
        // Between the centres, in coordinates offset by one column: the centre before the
        // pixel at 2j + 1 is at 2j, so the sums are passed unshifted.
        predictBetweenCentres<2>(m + 1, coefficient[0] + 1, coefficient[1] + 1,
                                 coefficient[2] + 1, coefficient[3] + 1, 1, residual + 1,
                                 missing + 1, sums[0], sums[1], sums[2], sums[3],
                                 first(kLinePredictionEdge, 1), end(kLinePredictionEdge, 1),
                                 maxValue_);
        lineDifference(m, rowScratch_[4].data(), rowScratch_[5].data(), sign_[r & 1].data(), 1,
                       p(kDiffH, r), kDifferenceEdge, w_ - kDifferenceEdge);
    }

    // The line filter down the columns: coefficients of row r (an even one), then the
    // predictions of row r.
    // Only the columns from kGradientEdge are needed across the line.
    void columnCoefficients(int r)
    {
        lineCoefficients<1>(window(kMosaic, r, 6), w_, p(kLineCoefficients, r),
                         p(kLineCoefficients + 1, r), p(kLineCoefficients + 2, r),
                         p(kLineCoefficients + 3, r), kGradientEdge, w_ - kGradientEdge,
                         gainEps_);
        for (int k = 0; k < 4; ++k)
            rings_[kLineCoefficients + k].publish(r);
    }

    void columnPrediction(int r)
    {
        // An odd row uses the sums of the even row before it, the last one predicted.
        float* sums[4];
        for (int k = 0; k < 4; ++k)
            sums[k] = columnSums_[k].data();
        const float* coefficient[4];
        for (int k = 0; k < 4; ++k)
            coefficient[k] = window(kLineCoefficients + k, r, 5);
        if ((r & 1) == 0)
            predictAtCentres<1>(window(kMosaic, r, 1), coefficient[0], coefficient[1],
                                coefficient[2], coefficient[3], w_, p(kLineResidual, r),
                                p(kLineMissing, r), sums[0], sums[1], sums[2], sums[3],
                                kGradientEdge, w_ - kGradientEdge, maxValue_);
        else
            predictBetweenCentres<1>(window(kMosaic, r, 1), coefficient[0], coefficient[1],
                                     coefficient[2], coefficient[3], w_, p(kLineResidual, r),
                                     p(kLineMissing, r), sums[0], sums[1], sums[2], sums[3],
                                     kGradientEdge, w_ - kGradientEdge, maxValue_);
        rings_[kLineResidual].publish(r);
    }

    // Output row of local row r, columns [x0, x0 + outCols), rounded and interleaved.
    void writePixels(int r, int x0, int outCols)
    {
        const float* planes[3] = {colourRow_[0].data(), p(kGreenPlane, r), colourRow_[1].data()};
        uint16_t* split[2][3];
        for (int k = 0; k < 3; ++k) {
            split[0][k] = samples_.data() + (2 * k) * halfStride_;
            split[1][k] = samples_.data() + (2 * k + 1) * halfStride_;
            roundSplit(planes[k] + kPad, split[0][k], split[1][k], outCols);
        }
        writeRow(split[0][0], split[0][1], split[0][2], split[1][0], split[1][1], split[1][2],
                 pairs_.data(), w_ + 1, out_ + (static_cast<size_t>(r - kPad) * cols_ + x0) * 3,
                 outCols);
    }

    // Frame column of every strip column, mirrored outside the frame.
    void setColumns(int x0)
    {
        for (int c = 0; c < w_; ++c)
            columns_[c] = mirror(x0 - kPad + c, cols_);
    }

    // Mosaic row r of the strip and its context, clipped to the bit depth.
    void load(int r, int x0)
    {
        // Columns that lie inside the frame are contiguous and copied straight.
        const int first = std::max(0, kPad - x0);
        const int last = std::min(w_, kPad - x0 + cols_);
        const uint16_t maxValue = static_cast<uint16_t>(maxValue_);
        const uint16_t* __restrict src = in_ + static_cast<size_t>(mirror(r - kPad, rows_)) * cols_;
        float* __restrict dst = p(kMosaic, r);
        const int offset = x0 - kPad;
        for (int c = first; c < last; ++c)
            dst[c] = static_cast<float>(std::min(src[offset + c], maxValue));
        for (int c = 0; c < first; ++c)
            dst[c] = static_cast<float>(std::min(src[columns_[c]], maxValue));
        for (int c = last; c < w_; ++c)
            dst[c] = static_cast<float>(std::min(src[columns_[c]], maxValue));
        rings_[kMosaic].publish(r);
    }

    // Gradients of the colour differences along their own direction, columns from
    // kGradientEdge.
    void gradients(int r)
    {
        const float* __restrict dH = p(kDiffH, r);
        const float* __restrict up = p(kDiffV, r - 1);
        const float* __restrict down = p(kDiffV, r + 1);
        float* __restrict gH = p(kGradH, r);
        float* __restrict gV = p(kGradV, r);
        for (int c = kGradientEdge; c < w_ - kGradientEdge; ++c) {
            gH[c] = std::abs(dH[c - 1] - dH[c + 1]);
            gV[c] = std::abs(up[c] - down[c]);
        }
    }

    // Row r of the 5 x 5 box sum of plane `from` into plane `to`, columns [margin, w -
    // margin); the source must be valid two pixels further out.
    void boxSum5(int from, int to, int r, int margin)
    {
        const float* rowsIn[5];
        for (int k = 0; k < 5; ++k)
            rowsIn[k] = p(from, r - 2 + k);
        sumRows(rowsIn, tmp_.data(), margin - 2, w_ - margin + 2, 5);
        sumFiveColumns(tmp_.data(), p(to, r), margin, w_ - margin);
    }

    // Green of row r, columns from kGreenEdge: the samples at the green sites, then the fused
    // green at the others, 2j + t with t the parity of the other sites of this row.
    void greenRow(int r)
    {
        constexpr int m = kGreenEdge;
        std::memcpy(p(kGreenPlane, r) + m, p(kMosaic, r) + m,
                    static_cast<size_t>(w_ - 2 * m) * sizeof(float));
        const int t = otherColumn_[r & 1];
        const float* dV[5];
        for (int k = 0; k < 5; ++k)
            dV[k] = p(kDiffV, r - 2 + k) + t;
        fuseGreen(p(kMosaic, r) + t, dV, p(kDiffH, r) + t, p(kSumV, r - 2) + t,
                  p(kSumV, r + 2) + t, p(kSumH, r) + t, p(kGreenPlane, r) + t, (m + 1 - t) / 2,
                  (w_ - m + 1 - t) / 2, gradientUnit_, maxValue_);
    }

    // Output columns of the sums over the sites of colour x, as site indices j (columns 2j + s
    // and 2j + s + 1, s the parity of the site columns), for sums valid in [margin, w - margin).
    int firstSite(int x, int margin) const { return (margin - siteColumn_[x]) / 2; }
    int endSite(int x, int margin) const { return (w_ - margin - 1 - siteColumn_[x]) / 2 + 1; }

    // The sites of colour x whose gains and offsets the prediction's means read (sites j - 2
    // to j + 3 for the outputs at j), and those whose products the gains read (3 sites more on
    // each side). At the far edge of an odd site phase the last ones lie one column beyond
    // the valid products or green; they serve only outputs that are not used.
    int firstGainSite(int x) const { return firstSite(x, kPredictionEdge) - 2; }
    int endGainSite(int x) const { return endSite(x, kPredictionEdge) + 3; }

    // The guided-filter products of colour x at its sites of row r (a row that holds them),
    // one per site.
    void products(int x, int r)
    {
        const int s = siteColumn_[x];
        const int base = kProducts + 4 * x;
        siteProducts(p(kGreenPlane, r - 2) + s, p(kGreenPlane, r) + s, p(kGreenPlane, r + 2) + s,
                     p(kMosaic, r - 2) + s, p(kMosaic, r) + s, p(kMosaic, r + 2) + s,
                     p(base, r), p(base + 1, r), p(base + 2, r), p(base + 3, r),
                     firstGainSite(x) - 3, endGainSite(x) + 3);
    }

    // Row r of the sums of ring `from`, which holds values at the sites of colour x, over the
    // sites within 5 rows and columns of each pixel, into `to`, columns [margin, w - margin).
    void siteBoxSum(int from, float* to, int x, int r, int margin)
    {
        const float* rowsIn[6];
        const int lo = firstSite(x, margin), hi = endSite(x, margin);
        // The site rows among r - 5 .. r + 5: five around a site row, else six.
        const int first = ((r - siteRow_[x]) & 1) == 0 ? r - 4 : r - 5;
        int taps = 0;
        for (int k = first; k <= r + 5; k += 2)
            rowsIn[taps++] = p(from, k);
        sumRows(rowsIn, tmp_.data(), lo - 2, hi + 3, taps);
        sumSiteColumns(tmp_.data(), to + siteColumn_[x], lo, hi);
    }

    // Gain and offset of the windows centred on the sites of colour x on row r (a row that
    // holds them), stored by site: the sites that the averages of the prediction read.
    void gains(int x, int r)
    {
        const int base = kProducts + 4 * x;
        const int lo = firstGainSite(x), hi = endGainSite(x);
        float* sums[4] = {sumGG_.data(), sumGM_.data(), sumGS_.data(), sumMS_.data()};
        const float* rowsIn[7];
        for (int k = 0; k < 4; ++k) {
            for (int i = 0; i < 7; ++i)
                rowsIn[i] = p(base + k, r - 6 + 2 * i);
            sumRows(rowsIn, tmp_.data(), lo - 3, hi + 3, 7);
            sumSevenColumns(tmp_.data(), sums[k], lo, hi);
        }
        gainAndOffset(sums[0], sums[1], sums[2], sums[3], p(kGain + 2 * x, r),
                      p(kGain + 2 * x + 1, r), lo, hi, gainEps_);
    }

    // Colour x of row r, columns kPad - 2 to w - kPad + 1 (site pairs).
    void colourRow(int x, int r)
    {
        const int s = siteColumn_[x];
        const int lo = (kPad - 1 - s) / 2, hi = (w_ - kPad - s) / 2 + 1;
        if (((r - siteRow_[x]) & 1) == 0)
            siteRowColour(p(kPrediction + x, r) + s, p(kResidual + x, r) + s, p(kMosaic, r) + s,
                          colourRow_[x].data() + s, lo, hi, maxValue_);
        else
            otherRowColour(p(kPrediction + x, r) + s, p(kResidual + x, r - 1) + s,
                           p(kResidual + x, r + 1) + s, colourRow_[x].data() + s, lo, hi,
                           maxValue_);
    }

    // Prediction of colour x on row r from the gains and offsets averaged over the windows
    // that cover each pixel, and its residual at the colour's sites.
    void prediction(int x, int r)
    {
        siteBoxSum(kGain + 2 * x, meanA_.data(), x, r, kPredictionEdge);
        siteBoxSum(kGain + 2 * x + 1, meanB_.data(), x, r, kPredictionEdge);
        predict(meanA_.data(), meanB_.data(), invCount_[r & 1][x].data(), p(kGreenPlane, r),
                p(kMosaic, r), mask_[r & 1][x].data(), p(kPrediction + x, r),
                p(kResidual + x, r), kPredictionEdge, w_ - kPredictionEdge, maxValue_);
    }

    const uint16_t* in_;
    uint16_t* out_;
    int rows_;
    int cols_;
    float maxValue_;
    float gradientUnit_ = 0;  // gradient sum (25 values) -> mean gradient on the 8-bit scale
    float gainEps_ = 0;
    int stripCols_ = 0;
    int h_ = 0;  // rows of a strip with context
    int w_ = 0;  // columns of a strip with context
    Ring rings_[kRingCount];
    // Rows used only by the step that fills them.
    std::vector<float> sumGG_, sumGM_, sumGS_, sumMS_, meanA_, meanB_, colourRow_[2], tmp_;
    std::vector<float> rowScratch_[6];  // the line filter along a row: 4 coefficients, 2 results
    // Window sums of the last centres along the row and down the columns (predictAtCentres).
    std::vector<float> rowSums_[4], columnSums_[4];
    // Rounded red, green, blue of the output row, even and odd columns, and writeRow's scratch.
    int halfStride_ = 0;
    std::vector<uint16_t> samples_;
    std::vector<uint16_t> pairs_;
    std::vector<int> columns_;  // frame column of each strip column, for the mirrored ones
    int otherColumn_[2] = {0, 0};  // [row parity]: column parity of the red or blue sites
    std::vector<float> sign_[2];
    std::vector<float> mask_[2][2];      // [row parity][red, blue]
    std::vector<float> invCount_[2][2];  // [row parity][red, blue]
    int siteRow_[2] = {0, 0};     // row parity of the red, blue sites
    int siteColumn_[2] = {0, 0};  // column parity of the red, blue sites
};

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "QualityDemosaic: %s\n", what);
    std::abort();
}

}  // namespace

void QualityDemosaic(unsigned short* in, unsigned short* out, int rows, int cols, int bitDepth,
                     const char* pattern)
{
    if (rows < 1 || cols < 1)
        return;
    if (in == nullptr || out == nullptr)
        fail(in == nullptr ? "null input buffer" : "null output buffer");
    int colour[2][2];
    if (bitDepth < 1 || bitDepth > 16 || !resolvePattern(pattern, colour)) {
        std::memset(out, 0, static_cast<size_t>(rows) * cols * 3 * sizeof *out);
        return;
    }
    Demosaicer(in, out, rows, cols, bitDepth, colour).run();
}
