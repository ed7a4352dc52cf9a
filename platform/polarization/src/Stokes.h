// Per-pixel formulas shared by the products: Stokes parameters from the four polarizer
// intensities I0, I45, I90 and I135.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace pol {
namespace detail {

inline float stokesS0(float i0, float i45, float i90, float i135) {
    return 0.5f * (i0 + i45 + i90 + i135);
}

/// sqrt(S1^2 + S2^2): the linearly polarized part of the intensity.
inline float polarizedPart(float i0, float i45, float i90, float i135) {
    const float s1 = i0 - i90;
    const float s2 = i45 - i135;
    return std::sqrt(s1 * s1 + s2 * s2);
}

/// Degree of linear polarization, clipped to [0, 1], 0 where S0 is 0.
inline float degreeOfPolarization(float i0, float i45, float i90, float i135) {
    // The intensities are never negative, so S0 = 0 means all four are 0 and so is the
    // polarized part: dividing by FLT_MIN instead of 0 then gives the required 0 without a
    // branch. Interpolated intensities of neighbouring cells need not be consistent (at sharp
    // edges the polarized part can exceed S0), hence the clip to 1.
    const float s0 = stokesS0(i0, i45, i90, i135);
    return std::min(polarizedPart(i0, i45, i90, i135) / std::max(s0, FLT_MIN), 1.0f);
}

}  // namespace detail
}  // namespace pol
