// Hamilton-Adams demosaicing over a small ring of deinterleaved rows.
//
// Every mosaic row is split into its even and its odd columns ("halves") and extended on both
// sides by mirrored samples. In a Bayer row one half holds the row's red or blue samples and
// the other half its green samples, so each pass below reads one colour at unit stride, has no
// edge test and no per-pixel branch on the colour-filter phase, and the compiler turns it into
// vector code (SSE2 on x86-64, NEON on aarch64).
//
// The passes are templates over the lane type. Second differences of 16-bit samples span 18
// bits and need int32 lanes; up to 12 bits every intermediate value fits int16, which doubles
// the lanes per vector. The formulas are arranged so that both lane types give the same
// result (each pass notes its ranges for M = 2^bitDepth - 1), so the bit depth decides the
// speed, never the values.
//
// Only a few rows are alive at a time: 8 mosaic rows, 4 rows of interpolated green and of
// colour differences, and 3 rows of chroma estimates, each about cols / 2 elements long.

#include "HamiltonAdams.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "BayerMirror.h"
#include "RgbRows.h"

namespace {

// Mirrored elements on each side of a half row. The passes read one element beyond the
// interior; the second one lets the odd-column half of an odd-width row run to the same
// length as the even-column half without reading outside the buffer.
constexpr int kPad = 2;
// Output row y needs mosaic rows y-1 .. y+1 and the interpolated green of rows y-1 .. y+1,
// which in turn needs mosaic rows up to y+3: eight mosaic rows and four green rows suffice.
constexpr int kMosaicRing = 8;
constexpr int kGreenRing = 4;
// Deepest bit depth whose intermediate values all fit int16 lanes. The largest is 8M + 2 in the
// diagonal pass: 32762 at 12 bits.
constexpr int kMaxNarrowBits = 12;

// The colour-filter layout resolved once per call, by row parity.
struct Phase {
    int colourCol[2];  // column parity of the red or blue samples in even / odd rows
    bool redRow[2];    // whether that colour is red (else blue)
};

bool resolvePattern(const char* pattern, Phase& phase)
{
    if (pattern == nullptr)
        return false;
    int col0;
    bool red0;
    if (std::strcmp(pattern, "RGGB") == 0) {
        col0 = 0;
        red0 = true;
    } else if (std::strcmp(pattern, "BGGR") == 0) {
        col0 = 0;
        red0 = false;
    } else if (std::strcmp(pattern, "GRBG") == 0) {
        col0 = 1;
        red0 = true;
    } else if (std::strcmp(pattern, "GBRG") == 0) {
        col0 = 1;
        red0 = false;
    } else {
        return false;
    }
    // The two green sites of a cell lie on a diagonal, so the next row has its colour samples
    // in the other column parity and carries the other colour.
    phase.colourCol[0] = col0;
    phase.colourCol[1] = 1 - col0;
    phase.redRow[0] = red0;
    phase.redRow[1] = !red0;
    return true;
}

using bayer::mirror;
using bayer::writeRow;

// Column of element j of the half row holding column parity `parity`.
int columnOf(int j, int parity)
{
    return 2 * (j - kPad) + parity;
}

// Fills the mirrored border elements of a half row of `halfLen` elements whose interior holds
// the columns of one parity; `source(column)` gives the value of an in-frame column.
template <class T, class Source>
void fillBorders(T* half, int parity, int cols, int halfLen, Source source)
{
    const int interior = (cols + 1 - parity) / 2;
    for (int j = 0; j < kPad; ++j)
        half[j] = source(mirror(columnOf(j, parity), cols));
    for (int j = kPad + interior; j < halfLen; ++j)
        half[j] = source(mirror(columnOf(j, parity), cols));
}

// Fills the borders of a half row from its own interior (interpolated planes).
template <class T>
void mirrorBorders(T* half, int parity, int cols, int halfLen)
{
    fillBorders(half, parity, cols, halfLen, [half](int col) { return half[kPad + col / 2]; });
}

// Splits one mosaic row into its even and odd columns, clipped to maxValue, borders included.
template <class T>
void splitRow(const uint16_t* __restrict row, int cols, uint16_t maxValue, int halfLen,
              T* __restrict even, T* __restrict odd)
{
    T* e = even + kPad;
    T* o = odd + kPad;
    const int pairs = cols / 2;
    // Clipping happens on the unsigned samples, before they are narrowed to the lanes.
    for (int k = 0; k < pairs; ++k) {
        const uint16_t a = row[2 * k];
        const uint16_t b = row[2 * k + 1];
        e[k] = static_cast<T>(a < maxValue ? a : maxValue);
        o[k] = static_cast<T>(b < maxValue ? b : maxValue);
    }
    auto sample = [row, maxValue](int col) {
        return static_cast<T>(row[col] < maxValue ? row[col] : maxValue);
    };
    if (cols & 1)
        e[pairs] = sample(cols - 1);
    fillBorders(even, 0, cols, halfLen, sample);
    fillBorders(odd, 1, cols, halfLen, sample);
}

template <class T>
T absOf(T v)
{
    return static_cast<T>(v < 0 ? -v : v);
}

template <class T>
T clampTo(T v, T maxValue)
{
    v = v < 0 ? T{0} : v;
    return v > maxValue ? maxValue : v;
}

// Green at the n red or blue sites c[j] of one row, and the colour difference c - green there.
// The horizontal and the vertical estimate are the mean of the two green neighbours plus a
// quarter of the second difference of the row's own colour; the direction whose activity
// (green gradient plus that second difference) is smaller wins, and a tie averages both.
//   gl, gr: green left / right of c[j]; gu, gd: green above / below;
//   cu, cd: the same colour two rows above / below.
// Ranges: second differences within +-2M, activities within 3M, four times an estimate within
// [-2M, 6M].
template <class T>
void greenAtColourSites(const T* __restrict c, const T* __restrict gl, const T* __restrict gr,
                        const T* __restrict gu, const T* __restrict gd, const T* __restrict cu,
                        const T* __restrict cd, T* __restrict green, T* __restrict diff, int n,
                        T maxValue)
{
    for (int j = 0; j < n; ++j) {
        const T lapH = static_cast<T>(2 * c[j] - c[j - 1] - c[j + 1]);
        const T lapV = static_cast<T>(2 * c[j] - cu[j] - cd[j]);
        const T actH = static_cast<T>(absOf<T>(static_cast<T>(gl[j] - gr[j])) + absOf(lapH));
        const T actV = static_cast<T>(absOf<T>(static_cast<T>(gu[j] - gd[j])) + absOf(lapV));
        // Sums are narrowed before each shift so that the shift, too, runs in T lanes.
        const T sumH = static_cast<T>(2 * (gl[j] + gr[j]) + lapH + 2);
        const T sumV = static_cast<T>(2 * (gu[j] + gd[j]) + lapV + 2);
        const T estH = static_cast<T>(sumH >> 2);
        const T estV = static_cast<T>(sumV >> 2);
        const T sumHV = static_cast<T>(estH + estV + 1);
        const T both = static_cast<T>(sumHV >> 1);
        const T est = actH < actV ? estH : (actV < actH ? estV : both);
        const T g = clampTo(est, maxValue);
        green[j] = g;
        diff[j] = static_cast<T>(c[j] - g);
    }
}

// The other colour at the n red or blue sites of a row, from the colour differences of the
// four diagonal neighbours in the rows above (u*) and below (d*): along the diagonal whose
// activity (difference of that colour plus second difference of green) is smaller, both on a
// tie. Element j of the row has its north-west neighbour at index j + c - 1 of the neighbour
// rows and its north-east one at j + c, c being the row's colour column parity.
// Ranges: colour differences within +-M, so 4 green + twice a pair of them within
// [-4M, 8M + 2].
template <class T>
void otherColourAtColourSites(const T* __restrict green, int c, const T* __restrict uSample,
                              const T* __restrict uGreen, const T* __restrict uDiff,
                              const T* __restrict dSample, const T* __restrict dGreen,
                              const T* __restrict dDiff, T* __restrict other, int n, T maxValue)
{
    const int w = c - 1;
    const int e = c;
    for (int j = 0; j < n; ++j) {
        const T g2 = static_cast<T>(2 * green[j]);
        // A: north-east to south-west; B: north-west to south-east.
        const T lapA = static_cast<T>(g2 - uGreen[j + e] - dGreen[j + w]);
        const T lapB = static_cast<T>(g2 - uGreen[j + w] - dGreen[j + e]);
        const T actA = static_cast<T>(
            absOf<T>(static_cast<T>(uSample[j + e] - dSample[j + w])) + absOf(lapA));
        const T actB = static_cast<T>(
            absOf<T>(static_cast<T>(uSample[j + w] - dSample[j + e])) + absOf(lapB));
        const T sumA = static_cast<T>(uDiff[j + e] + dDiff[j + w]);
        const T sumB = static_cast<T>(uDiff[j + w] + dDiff[j + e]);
        // Four times the mean colour difference of the chosen pair or of all four.
        const T both = static_cast<T>(sumA + sumB);
        const T sum = actA < actB ? static_cast<T>(2 * sumA)
                                  : (actB < actA ? static_cast<T>(2 * sumB) : both);
        const T total = static_cast<T>(2 * g2 + sum + 2);
        other[j] = clampTo(static_cast<T>(total >> 2), maxValue);
    }
}

// Red and blue at the n green sites of a row: the row's own colour from the colour differences
// left and right (indices j - c and j + 1 - c of rowDiff), the other colour from those above
// and below (index j of uDiff and dDiff). Ranges: within [-2M, 4M + 1].
template <class T>
void coloursAtGreenSites(const T* __restrict green, int c, const T* __restrict rowDiff,
                         const T* __restrict uDiff, const T* __restrict dDiff, T* __restrict own,
                         T* __restrict other, int n, T maxValue)
{
    const int l = -c;
    const int r = 1 - c;
    for (int j = 0; j < n; ++j) {
        const T g2 = static_cast<T>(2 * green[j]);
        const T ownSum = static_cast<T>(g2 + rowDiff[j + l] + rowDiff[j + r] + 1);
        const T otherSum = static_cast<T>(g2 + uDiff[j] + dDiff[j] + 1);
        own[j] = clampTo(static_cast<T>(ownSum >> 1), maxValue);
        other[j] = clampTo(static_cast<T>(otherSum >> 1), maxValue);
    }
}

// Working rows of one call, in lanes of type T.
template <class T>
class Demosaicer {
public:
    Demosaicer(const uint16_t* in, uint16_t* out, int rows, int cols, int maxValue,
               const Phase& phase)
        : in_(in), out_(out), rows_(rows), cols_(cols), maxValue_(static_cast<T>(maxValue)),
          phase_(phase), n_((cols + 1) / 2), halfLen_(n_ + 2 * kPad),
          work_(static_cast<size_t>(halfLen_) * (2 * kMosaicRing + 2 * kGreenRing + 3)),
          pairs_(3 * static_cast<size_t>(cols + 1))
    {
    }

    // Writes output rows first .. first + count - 1 to out_, which holds those rows only. The
    // rows above the band are recomputed as far as the band needs them (the interpolated green
    // of row first - 1 and the mosaic rows it reads), so a band equals the same rows of a whole
    // frame.
    void run(int first, int count)
    {
        int greened = first > 0 ? first - 1 : 0;
        int split = greened > 2 ? greened - 2 : 0;
        for (int y = first; y < first + count; ++y) {
            const int greenNeeded = y + 1 < rows_ ? y + 1 : rows_ - 1;
            while (greened <= greenNeeded) {
                const int mosaicNeeded = greened + 2 < rows_ ? greened + 2 : rows_ - 1;
                while (split <= mosaicNeeded) {
                    splitRow(in_ + static_cast<size_t>(split) * cols_, cols_,
                             static_cast<uint16_t>(maxValue_), halfLen_, mosaic(split, 0),
                             mosaic(split, 1));
                    ++split;
                }
                interpolateGreen(greened++);
            }
            // The next input row and the next output row are fetched into the cache while
            // this row is computed: each row spans page boundaries, where the hardware
            // prefetchers stop, so without this every row starts with cache misses.
            if (split < rows_)
                prefetch<0>(in_ + static_cast<size_t>(split) * cols_, cols_);
            if (y + 1 < first + count)
                prefetch<1>(outRow(y + 1 - first), static_cast<size_t>(cols_) * 3);
            interpolateChroma(y, outRow(y - first));
        }
    }

private:
    // Asks for the cache lines of count samples from p, to be read (kWrite 0) or written (1).
    template <int kWrite>
    static void prefetch(const uint16_t* p, size_t count)
    {
        constexpr size_t kLineSamples = 64 / sizeof(uint16_t);
        for (size_t i = 0; i < count; i += kLineSamples)
            __builtin_prefetch(p + i, kWrite);
    }

    T* row(size_t index) { return work_.data() + index * halfLen_; }
    // Half row of column parity `parity` of mosaic row r.
    T* mosaic(int r, int parity) { return row(static_cast<size_t>(r % kMosaicRing) * 2 + parity); }
    // Interpolated green at the colour sites of row r, and colour minus green there.
    T* green(int r) { return row(2 * kMosaicRing + r % kGreenRing); }
    T* diff(int r) { return row(2 * kMosaicRing + kGreenRing + r % kGreenRing); }
    T* scratch(int i) { return row(2 * kMosaicRing + 2 * kGreenRing + i); }

    void interpolateGreen(int r)
    {
        const int c = phase_.colourCol[r & 1];
        const T* own = mosaic(r, c) + kPad;
        const T* rowGreen = mosaic(r, 1 - c) + kPad;
        greenAtColourSites(own, rowGreen + c - 1, rowGreen + c,
                           mosaic(mirror(r - 1, rows_), c) + kPad,
                           mosaic(mirror(r + 1, rows_), c) + kPad,
                           mosaic(mirror(r - 2, rows_), c) + kPad,
                           mosaic(mirror(r + 2, rows_), c) + kPad, green(r) + kPad,
                           diff(r) + kPad, n_, maxValue_);
        mirrorBorders(green(r), c, cols_, halfLen_);
        mirrorBorders(diff(r), c, cols_, halfLen_);
    }

    uint16_t* outRow(int bandRow) { return out_ + static_cast<size_t>(bandRow) * cols_ * 3; }

    void interpolateChroma(int y, uint16_t* out)
    {
        const int c = phase_.colourCol[y & 1];
        const int up = mirror(y - 1, rows_);
        const int down = mirror(y + 1, rows_);
        T* otherAtColour = scratch(0);
        T* ownAtGreen = scratch(1);
        T* otherAtGreen = scratch(2);
        otherColourAtColourSites<T>(green(y) + kPad, c, mosaic(up, 1 - c) + kPad,
                                    green(up) + kPad, diff(up) + kPad,
                                    mosaic(down, 1 - c) + kPad, green(down) + kPad,
                                    diff(down) + kPad, otherAtColour + kPad, n_, maxValue_);
        coloursAtGreenSites<T>(mosaic(y, 1 - c) + kPad, c, diff(y) + kPad, diff(up) + kPad,
                               diff(down) + kPad, ownAtGreen + kPad, otherAtGreen + kPad, n_,
                               maxValue_);

        // Planes by column parity: [parity][0 = own colour, 1 = green, 2 = other colour].
        const T* planes[2][3];
        planes[c][0] = mosaic(y, c);
        planes[c][1] = green(y);
        planes[c][2] = otherAtColour;
        planes[1 - c][0] = ownAtGreen;
        planes[1 - c][1] = mosaic(y, 1 - c);
        planes[1 - c][2] = otherAtGreen;
        const int red = phase_.redRow[y & 1] ? 0 : 2;
        const int blue = 2 - red;
        writeRow(planes[0][red] + kPad, planes[0][1] + kPad, planes[0][blue] + kPad,
                 planes[1][red] + kPad, planes[1][1] + kPad, planes[1][blue] + kPad,
                 pairs_.data(), cols_ + 1, out, cols_);
    }

    const uint16_t* in_;
    uint16_t* out_;
    int rows_;
    int cols_;
    T maxValue_;
    Phase phase_;
    int n_;        // elements of a half row's interior (the even-column count)
    int halfLen_;  // elements of a half row, borders included
    std::vector<T> work_;
    std::vector<uint16_t> pairs_;  // scratch of writeRow
};

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "HamiltonAdams: %s\n", what);
    std::abort();
}

// Checks the arguments shared by both entry points and runs the band; a frame of no rows or
// columns touches nothing.
void demosaicRows(const uint16_t* in, uint16_t* out, int rows, int cols, int bitDepth,
                  const char* pattern, int firstRow, int rowCount)
{
    if (rows < 1 || cols < 1 || rowCount < 1)
        return;
    if (in == nullptr || out == nullptr)
        fail(in == nullptr ? "null input buffer" : "null output buffer");
    if (firstRow < 0 || firstRow > rows - rowCount)
        fail("band outside the frame");
    Phase phase;
    if (bitDepth < 1 || bitDepth > 16 || !resolvePattern(pattern, phase)) {
        std::memset(out, 0, static_cast<size_t>(rowCount) * cols * 3 * sizeof *out);
        return;
    }
    const int maxValue = (1 << bitDepth) - 1;
    if (bitDepth <= kMaxNarrowBits)
        Demosaicer<int16_t>(in, out, rows, cols, maxValue, phase).run(firstRow, rowCount);
    else
        Demosaicer<int32_t>(in, out, rows, cols, maxValue, phase).run(firstRow, rowCount);
}

}  // namespace

void HamiltonAdams(unsigned short* in, unsigned short* out, int rows, int cols, int bitDepth,
                   const char* pattern)
{
    demosaicRows(in, out, rows, cols, bitDepth, pattern, 0, rows);
}

void HamiltonAdamsRows(const unsigned short* in, unsigned short* out, int rows, int cols,
                       int bitDepth, const char* pattern, int firstRow, int rowCount)
{
    demosaicRows(in, out, rows, cols, bitDepth, pattern, firstRow, rowCount);
}
