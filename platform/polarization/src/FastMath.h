// Branch-free float helpers that the compiler vectorizes on every target (SSE2 and NEON
// alike): no library calls, selects instead of branches, no rounding instructions that the
// x86-64 baseline lacks.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cstdint>

namespace pol {
namespace detail {

constexpr float kPi = 3.14159265358979f;
constexpr float kHalfPi = 1.57079632679490f;

/// Rounds to the nearest integer, ties to even, for |v| < 2^22: adding 1.5 x 2^23 leaves no
/// fraction bits in the mantissa, so the default rounding mode does the rounding. Must not be
/// compiled with -ffast-math, which would fold the two additions away.
inline float roundEven(float v) {
    constexpr float kShift = 12582912.0f;  // 1.5 x 2^23
    return (v + kShift) - kShift;
}

/// `v` rounded to nearest (ties to even) and saturated to 0..255; NaN gives 0.
inline uint8_t toU8(float v) {
    // min first, then max with 0 as the first operand: a NaN falls out of both as 0.
    const float clamped = std::max(0.0f, std::min(v, 255.0f));
    return static_cast<uint8_t>(static_cast<int>(roundEven(clamped)));
}

/// atan(t) for 0 <= t <= 1: the odd polynomial of Abramowitz and Stegun 4.4.47, whose error
/// is below 1e-5 rad. That is a thousandth of what an 8-bit angle resolves (pi / 255 rad per
/// count), and five terms instead of the nine of a 2e-8 fit keep the angle products close to
/// the cost of the others.
inline float atanUnit(float t) {
    const float t2 = t * t;
    float p = 0.0208351f;
    p = p * t2 - 0.0851330f;
    p = p * t2 + 0.1801410f;
    p = p * t2 - 0.3302995f;
    p = p * t2 + 0.9998660f;
    return t * p;
}

/// atan2(y, x) in (-pi, pi], within about 1e-5 rad of the exact value; 0 for (0, 0). Differs
/// from std::atan2 only for y = -0 with x < 0 (pi instead of -pi).
inline float atan2Fast(float y, float x) {
    const float ax = std::abs(x);
    const float ay = std::abs(y);
    const float lo = std::min(ax, ay);
    const float hi = std::max(ax, ay);
    // Dividing by at least FLT_MIN keeps 0 / 0 out: both zero gives t = 0.
    float r = atanUnit(lo / std::max(hi, FLT_MIN));
    r = ay > ax ? kHalfPi - r : r;
    r = x < 0.0f ? kPi - r : r;
    return y < 0.0f ? -r : r;
}

}  // namespace detail
}  // namespace pol
