// Full-resolution estimation of the four polarizer intensities of a mosaic, one output row at
// a time. Working row by row keeps the intermediate values in the first-level cache and lets
// every product be computed in one pass over the mosaic.
#pragma once

#include <vector>

#include "Polarization.h"
#include "Records.h"

namespace pol {
namespace detail {

/// The intensities behind each polarizer for one output row y, interpolated vertically and
/// split by angle: each array holds one value per 2 x 2 cell column c, taken at column 2c
/// (90 and 135 degrees) or 2c + 1 (45 and 0 degrees) of row y.
///
/// Each angle is sampled on a lattice of spacing 2. Bilinear interpolation on that lattice
/// is separable: a row that carries the angle's samples is used as it is, a row that does not
/// is the mean of the rows above and below (replicated at the top and bottom edge). The same
/// then holds for columns, which productRow does.
class AngleRows {
public:
    /// Rows for a mosaic `width` pixels wide (even, at least 2).
    explicit AngleRows(int width)
        : cells_(width / 2), storage_(4 * static_cast<size_t>(cells_ + 2)) {}

    /// Loads output row `y` of `in`, which isMosaic accepts.
    void load(const ImageInfo& in, int y) {
        // Rows 2k hold 90 and 45 degrees, rows 2k + 1 hold 135 and 0. For each pair, take row y
        // twice when it carries the pair, else its two neighbours; averaging a row with itself
        // is exact, so one loop serves both cases.
        const int last = in.height - 1;
        const int above = y - 1 < 0 ? y + 1 : y - 1;
        const int below = y + 1 > last ? y - 1 : y + 1;
        const bool evenRow = y % 2 == 0;
        const unsigned char* e0 = rowOf(in, evenRow ? y : above);
        const unsigned char* e1 = rowOf(in, evenRow ? y : below);
        const unsigned char* o0 = rowOf(in, evenRow ? above : y);
        const unsigned char* o1 = rowOf(in, evenRow ? below : y);

        float* i90 = at(k90);
        float* i45 = at(k45);
        float* i135 = at(k135);
        float* i0 = at(k0);
        meanOfRows(e0, e1, i90, i45, cells_);
        meanOfRows(o0, o1, i135, i0, cells_);
        // Replicated edges for the horizontal step: the odd-column angles are read one cell to
        // the left of column 0, the even-column angles one cell to the right of the last.
        i45[-1] = i45[0];
        i0[-1] = i0[0];
        i90[cells_] = i90[cells_ - 1];
        i135[cells_] = i135[cells_ - 1];
    }

    int cells() const { return cells_; }
    const float* i0() const { return at(k0); }
    const float* i45() const { return at(k45); }
    const float* i90() const { return at(k90); }
    const float* i135() const { return at(k135); }

private:
    /// Means of two mosaic rows, split into even columns (`even`) and odd columns (`odd`).
    /// The rows may be the same; the restrict-qualified parameters tell the compiler that the
    /// outputs overlap nothing, which it needs to vectorize.
    static void meanOfRows(const unsigned char* __restrict a, const unsigned char* __restrict b,
                           float* __restrict even, float* __restrict odd, int cells) {
        for (int c = 0; c < cells; ++c) {
            even[c] = 0.5f * static_cast<float>(a[2 * c] + b[2 * c]);
            odd[c] = 0.5f * static_cast<float>(a[2 * c + 1] + b[2 * c + 1]);
        }
    }

    enum Angle { k0, k45, k90, k135 };
    // Each array has one spare element on both sides for the replicated edges.
    float* at(Angle a) { return storage_.data() + a * static_cast<size_t>(cells_ + 2) + 1; }
    const float* at(Angle a) const {
        return storage_.data() + a * static_cast<size_t>(cells_ + 2) + 1;
    }

    int cells_;
    std::vector<float> storage_;
};

/// Writes product(I0, I45, I90, I135) for every pixel of the row loaded in `rows` to `out`
/// (2 x cells values). At an even column 90 and 135 degrees were sampled and 45 and 0 are the
/// means of the cells to the left and right; at an odd column the other way round.
template <typename T, typename Product>
inline void productRow(const AngleRows& rows, T* __restrict out, Product product) {
    const float* __restrict i0 = rows.i0();
    const float* __restrict i45 = rows.i45();
    const float* __restrict i90 = rows.i90();
    const float* __restrict i135 = rows.i135();
    const int cells = rows.cells();
    for (int c = 0; c < cells; ++c) {
        out[2 * c] = product(0.5f * (i0[c - 1] + i0[c]), 0.5f * (i45[c - 1] + i45[c]), i90[c],
                             i135[c]);
        out[2 * c + 1] = product(i0[c], i45[c], 0.5f * (i90[c] + i90[c + 1]),
                                 0.5f * (i135[c] + i135[c + 1]));
    }
}

/// Fills `result` (rows x cols of T, the mosaic's size) with product(I0, I45, I90, I135).
template <typename T, typename Product>
void computeProduct(const ImageInfo& in, cv::Mat& result, Product product) {
    AngleRows rows(in.width);
    for (int y = 0; y < in.height; ++y) {
        rows.load(in, y);
        productRow(rows, result.ptr<T>(y), product);
    }
}

}  // namespace detail
}  // namespace pol
