#pragma once

#include <vector>

#include "planex/foundation/vec.h"
#include "planex/infra/export.h"

namespace planex::estimation {

/// The slope of an edge beyond which it is not seen: the tangent of 78 degrees.
constexpr double kSteepestEdge = 4.7046301094784542;

/// The section of a target: straight edges from corner to corner, the material below.
struct TargetProfile {
  std::vector<cmnalg::Vec<2, double>> corners;  ///< X, which does not fall, and Z
  double tolerance = 0;       ///< standard uncertainty of each corner, in X and in Z
  double scaleTolerance = 0;  ///< of the whole, relative; temperature, for one
  /// What is left out on either side of a corner, since corners are round and lines are broad.
  double margin = 0.5;
};

/// Throws std::invalid_argument with one sentence where a profile is none: less than two corners or
/// more than 128, X that falls, numbers that are not finite, corners that coincide.
PLANEX_EXPORT void requireTarget(const TargetProfile& profile);

}  // namespace planex::estimation
