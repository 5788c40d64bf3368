#include "planex/foundation/polyline.h"

#include <limits>

#include "planex/foundation/interval.h"
#include "planex/infra/float_environment.h"

namespace cmnalg::shape {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

/// Halved before they are added, so that the sum of two large bounds is finite.
double centerOf(const math::Interval& extent) {
  return extent.IsEmpty() ? kNan : extent.min / 2 + extent.max / 2;
}

double lengthOf(const math::Interval& extent) {
  return extent.IsEmpty() ? kNan : extent.max - extent.min;
}

}  // namespace

Rectangle Polyline::GetBoundingBox() const {
  const base::DefaultFloatEnvironment environment;
  math::Interval x, y;
  for (const Vec<2, double>& point : Points) {
    x.Include(point.x);
    y.Include(point.y);
  }
  return {{centerOf(x), centerOf(y)}, lengthOf(x), lengthOf(y), 0};
}

}  // namespace cmnalg::shape
