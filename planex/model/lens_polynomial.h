#pragma once

#include <cmath>

namespace datafusion::planex::basic {

/// Sensor pixels to focal lengths from the principal point: x = (u - cx) / f, and likewise y.
template <typename C, typename T>
inline __attribute__((always_inline)) void normalise(C f, C cx, C cy, T& x, T& y) {
  x = static_cast<T>((static_cast<C>(x) - cx) / f);
  y = static_cast<T>((static_cast<C>(y) - cy) / f);
}

/// The inverse of normalise: u = f x + cx.
template <typename C, typename T>
inline __attribute__((always_inline)) void denormalise(C f, C cx, C cy, T& x, T& y) {
  x = static_cast<T>(f * static_cast<C>(x) + cx);
  y = static_cast<T>(f * static_cast<C>(y) + cy);
}

/// Corrects a normalised sensor point for the lens, in place.
///
///     r2 = x^2 + y^2,  radial = 1 + r2 (c0 + r2 (c1 + r2 c2))
///     x' = x radial + 2 c3 x y + c4 (r2 + 2 x^2) + c5 r2
///     y' = y radial + c3 (r2 + 2 y^2) + 2 c4 x y + c6 r2
///
/// Source: Brown, Decentering distortion of lenses, Photogrammetric Engineering 32(3), 1966, for
/// the radial (c0 to c2) and tangential (c3, c4) terms; c5 and c6 take up a sensor that is tilted
/// against the lens (Scheimpflug), to first order.
///
/// @tparam C, T arithmetic runs in C, which may be a number that carries derivatives; each result
///              is rounded to T, the point's type, once
/// @param c     seven coefficients
template <typename C, typename T>
inline __attribute__((always_inline)) void undistort(const C* c, T& x, T& y) {
  const C x0 = static_cast<C>(x);
  const C y0 = static_cast<C>(y);
  const C r2 = x0 * x0 + y0 * y0;
  const C one(1), two(2);
  const C radial = one + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
  x = static_cast<T>(x0 * radial + two * c[3] * x0 * y0 + c[4] * (r2 + two * (x0 * x0)) +
                     c[5] * r2);
  y = static_cast<T>(y0 * radial + c[3] * (r2 + two * (y0 * y0)) + two * c[4] * x0 * y0 +
                     c[6] * r2);
}

/// Largest number of rounds of distort.
constexpr int kDistortRounds = 100;
/// Change of a point, in focal lengths, below which distort stops.
constexpr double kDistortTolerance = 1e-5;

/// One round of distort: the next estimate of the point that undistort maps to (xTarget, yTarget).
/// @return whether both coordinates changed by less than the tolerance
template <typename C>
inline __attribute__((always_inline)) bool distortRound(const C* c, C xTarget, C yTarget, C& x,
                                                        C& y) {
  const C r2 = x * x + y * y;
  const C radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
  const C xNext = (xTarget - (2 * c[3] * x * y + c[4] * (r2 + 2 * (x * x)) + c[5] * r2)) / radial;
  const C yNext = (yTarget - (c[3] * (r2 + 2 * (y * y)) + 2 * c[4] * x * y + c[6] * r2)) / radial;
  // Bitwise: a loop over many points must not branch here.
  const int xSettled = std::abs(xNext - x) < static_cast<C>(kDistortTolerance) ? 1 : 0;
  const int ySettled = std::abs(yNext - y) < static_cast<C>(kDistortTolerance) ? 1 : 0;
  x = xNext;
  y = yNext;
  return (xSettled & ySettled) != 0;
}

/// The inverse of undistort, in place, by fixed-point iteration from the point itself: at most 100
/// rounds, until both coordinates change by less than 1e-5. A point that does not settle keeps
/// the last estimate.
template <typename C, typename T>
inline void distort(const C* c, T& x, T& y) {
  const C xTarget = static_cast<C>(x);
  const C yTarget = static_cast<C>(y);
  C xNow = xTarget;
  C yNow = yTarget;
  for (int round = 0; round < kDistortRounds; ++round) {
    if (distortRound(c, xTarget, yTarget, xNow, yNow)) break;
  }
  x = static_cast<T>(xNow);
  y = static_cast<T>(yNow);
}

}  // namespace datafusion::planex::basic
