#pragma once

#include "planex/foundation/vec.h"

namespace datafusion::planex::basic {

/// Transforms a 3D point by the three upper rows of a 4 x 4 matrix, in place:
///
///     x' = m0 x + m1 y + m2  z + m3
///     y' = m4 x + m5 y + m6  z + m7
///     z' = m8 x + m9 y + m10 z + m11
///
/// @tparam C, T arithmetic runs in C; each result is rounded to T, the point's type, once
/// @param m     twelve coefficients, row-major; nothing is divided
template <typename C, typename T>
inline __attribute__((always_inline)) void transform(const C* m, cmnalg::Vec<3, T>& p) {
  const C x = static_cast<C>(p.x);
  const C y = static_cast<C>(p.y);
  const C z = static_cast<C>(p.z);
  p.x = static_cast<T>(m[0] * x + m[1] * y + m[2] * z + m[3]);
  p.y = static_cast<T>(m[4] * x + m[5] * y + m[6] * z + m[7]);
  p.z = static_cast<T>(m[8] * x + m[9] * y + m[10] * z + m[11]);
}

}  // namespace datafusion::planex::basic
