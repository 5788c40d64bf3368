#pragma once

namespace datafusion::planex::basic {

/// Newton steps of removeSheetCurve; all of them are taken.
constexpr int kSheetCurveSteps = 10;

/// Corrects Z for a light sheet that is not plane, in place:
///
///     d  = (X - s0) (1 + s1 Z)
///     Z' = Z + s2 + s3 d + s4 d^2 + s5 d^3
///
/// @tparam C, T arithmetic runs in C; the result is rounded to T, the point's type, once
/// @param s     six coefficients
template <typename C, typename T>
inline __attribute__((always_inline)) void applySheetCurve(const C* s, T x, T& z) {
  const C z0 = static_cast<C>(z);
  const C d = (static_cast<C>(x) - s[0]) * (C(1) + s[1] * z0);
  z = static_cast<T>(z0 + s[2] + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d));
}

/// One Newton step of removeSheetCurve: the next estimate of Z. @param a X - s0, target Z'
template <typename C>
inline __attribute__((always_inline)) C sheetCurveStep(const C* s, C a, C target, C z) {
  const C t = 1 + s[1] * z;
  const C d = a * t;
  const C g = z + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d) + s[2] - target;
  const C slope =
      1 + s[1] * s[3] * a + 2 * s[1] * s[4] * (a * a) * t + 3 * s[1] * s[5] * (a * a * a) * (t * t);
  return z - g / slope;
}

/// The inverse of applySheetCurve in Z, in place: Newton's method (Press et al., Numerical Recipes,
/// 3rd ed., section 9.4) from Z = Z', exactly 10 steps.
///
///     a = X - s0,  t = 1 + s1 Z,  d = a t
///     g  = Z + s3 d + s4 d^2 + s5 d^3 + s2 - Z'
///     g' = 1 + s1 s3 a + 2 s1 s4 a^2 t + 3 s1 s5 a^3 t^2
///     Z <- Z - g / g'
template <typename C, typename T>
inline __attribute__((always_inline)) void removeSheetCurve(const C* s, T x, T& z) {
  const C a = static_cast<C>(x) - s[0];
  const C target = static_cast<C>(z);
  C now = target;
  for (int step = 0; step < kSheetCurveSteps; ++step) now = sheetCurveStep(s, a, target, now);
  z = static_cast<T>(now);
}

}  // namespace datafusion::planex::basic
