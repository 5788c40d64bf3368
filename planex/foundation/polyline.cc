#include "planex/foundation/polyline.h"

#include <algorithm>
#include <limits>

namespace cmnalg::shape {
namespace {

class Extent {
 public:
  void Add(double value) {
    low_ = std::min(low_, value);  // the accumulated bound comes first: a NaN never replaces it
    high_ = std::max(high_, value);
  }
  // Halved before they are added, so that the sum of two large bounds is finite.
  double Center() const { return IsEmpty() ? kNan : low_ / 2 + high_ / 2; }
  double Length() const { return IsEmpty() ? kNan : high_ - low_; }

 private:
  static constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

  bool IsEmpty() const { return low_ > high_; }

  double low_ = std::numeric_limits<double>::infinity();
  double high_ = -std::numeric_limits<double>::infinity();
};

}  // namespace

Rectangle Polyline::GetBoundingBox() const {
  Extent x;
  Extent y;
  for (const Vec<2, double>& point : Points) {
    x.Add(point.x);
    y.Add(point.y);
  }
  return {{x.Center(), y.Center()}, x.Length(), y.Length(), 0};
}

}  // namespace cmnalg::shape
