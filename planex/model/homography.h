#pragma once

namespace datafusion::planex::basic {

/// Projects the point (x, y) through a plane-to-plane homography, in place.
///
///     w  = h6 x + h7 y + h8
///     x' = (h0 x + h1 y + h2) / w,   y' = (h3 x + h4 y + h5) / w
///
/// Source: Hartley and Zisserman, Multiple View Geometry, 2nd ed., section 2.3.
///
/// @tparam C, T arithmetic runs in C; each result is rounded to T, the point's type, once
/// @param h     nine coefficients, row-major
/// @param x, y  in: undistorted sensor point, in focal lengths; out: laser-plane X and Z, in
///              the model's length unit
///
/// A point on the horizon (w = 0) gives infinities or NaN; nothing is reported.
template <typename C, typename T>
inline __attribute__((always_inline)) void applyHomography(const C* h, T& x, T& y) {
  const C x0 = static_cast<C>(x);
  const C y0 = static_cast<C>(y);
  const C w = h[6] * x0 + h[7] * y0 + h[8];
  x = static_cast<T>((h[0] * x0 + h[1] * y0 + h[2]) / w);
  y = static_cast<T>((h[3] * x0 + h[4] * y0 + h[5]) / w);
}

}  // namespace datafusion::planex::basic
