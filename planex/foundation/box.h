#pragma once

#include "planex/foundation/transform.h"
#include "planex/foundation/vec.h"
#include "planex/infra/export.h"

namespace cmnalg {

namespace math {

/// Carries a point through a 3D transform with matrix m:
///
///     x' = m00 x + m01 y + m02 z + m03, likewise y' with row 1 and z' with row 2
///
/// A transform of stored type HOMOGRAPHY divides each by w = m30 x + m31 y + m32 z + m33; for
/// w = 0 that gives infinities or NaN. Below it the last row is not read.
PLANEX_EXPORT Vec<3, double> ApplyTransform(const Transform<3, double>& transform,
                                            const Vec<3, double>& point);

}  // namespace math

namespace shape3d {

/// A box in space: its size and the pose that carries it from its own frame, whose origin is the
/// centre of the box and whose axes run along its edges, to where it lies.
struct PLANEX_EXPORT Box {
  Vec<3, double> Size;                ///< lengths of the edges along the axes of the box's frame
  math::Transform<3, double> Pose{};  ///< world point = Pose * point in the box's frame

  /// The box of which two opposite corners are given, with edges along the axes of the world.
  ///
  /// Its size is b - a, so a component is negative where b is the lesser; its pose is the
  /// translation by the middle, a / 2 + b / 2. Throws std::bad_alloc.
  static Box FromCorners(const Vec<3, double>& a, const Vec<3, double>& b);
};

}  // namespace shape3d
}  // namespace cmnalg
