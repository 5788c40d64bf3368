#pragma once

#include <cmath>

#include "planex/foundation/line_fit.h"

namespace datafusion::planex {

/// The distance of neighbouring points over Z: for rows of points of the laser plane with mapped
/// first, last and middle points, the least-squares line
///
///     |last - first| / steps = slope z(middle) + intercept
class SpacingFit {
 public:
  /// @param steps from the first point of a row to its last
  explicit SpacingFit(double steps) : steps_(steps) {}

  void Add(double dx, double dz, double middleZ) {
    fit_.Add(middleZ, std::sqrt(dx * dx + dz * dz) / steps_);
  }

  /// The outputs stay as they are where the points have no spread in Z to speak of.
  void Solve(double& slope, double& intercept) const {
    static_cast<void>(fit_.Solve(slope, intercept));
  }

 private:
  double steps_;
  cmnalg::math::LineFit fit_;
};

}  // namespace datafusion::planex
