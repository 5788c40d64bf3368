#pragma once

#include <array>

#include "planex/foundation/vec.h"
#include "planex/infra/export.h"

namespace cmnalg::shape {

/// A rectangle in the plane, given by its centre, its two side lengths and its rotation.
///
/// Length unit and coordinate system are those of whoever made it; in the laser plane y stands
/// for Z. Fields are plain values without invariant: see IsValid().
struct PLANEX_EXPORT Rectangle {
  Vec<2, double> Center;  ///< of the rectangle and of its rotation
  double Width = 0;       ///< length of the side along x at rotation 0
  double Height = 0;      ///< length of the side along y at rotation 0
  double Rotation = 0;    ///< about the centre, in radians, positive from x towards y

  /// The four corners, counter-clockwise from the one that lies at minimal x and y at rotation 0.
  /// With w = Width / 2, h = Height / 2 and a = Rotation:
  ///
  ///     corner 0, 1, 2, 3 has (p, q) = (-w, -h), (w, -h), (w, h), (-w, h)
  ///     x = Center.x + (p cos(a) - q sin(a)),   y = Center.y + (p sin(a) + q cos(a))
  ///
  /// Non-finite fields give non-finite corners.
  std::array<Vec<2, double>, 4> GetCorners() const;

  /// Whether all fields are finite and neither Width nor Height is negative.
  bool IsValid() const;
};

}  // namespace cmnalg::shape
