#pragma once

#include "planex/foundation/rectangle.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"

namespace cmnalg::shape {

/// A closed line through a list of points in the plane: the last point is joined to the first,
/// which the list does not repeat.
struct PLANEX_EXPORT Polyline {
  etl::Vector<Vec<2, double>> Points;  ///< in the order of the line

  /// The smallest rectangle of rotation 0 that holds all points.
  ///
  /// A NaN coordinate is left out. Without any number in x (or y) that component of the centre
  /// and Width (or Height) are NaN; with an infinite one they are not finite. Both show in
  /// Rectangle::IsValid().
  Rectangle GetBoundingBox() const;
};

}  // namespace cmnalg::shape
