#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "planex/estimation/initial_homography.h"
#include "planex/estimation/profile_partition.h"
#include "planex/estimation/target_profile.h"

namespace planex::estimation {

/// How the sensor looks at the laser plane.
struct Orientation {
  int right;  ///< 1: X grows with the columns, -1: against them
  int up;     ///< 1: Z grows with the rows, -1: against them
};

/// A corner of a target that was seen.
struct CornerMatch {
  int seen;    ///< its place in the list of those seen
  int corner;  ///< in the target's profile
};

/// Corners seen in a scan, found on its target.
struct TargetMatch {
  std::vector<CornerMatch> corners;  ///< from left to right
  double error = 0;                  ///< rms distance, over the distance of neighbours
};

/// A match that needs no start: neighbouring corners whose turns are those of neighbouring corners
/// of the profile, and which a homography takes to each other; the longest such rows of corners,
/// of these the best, of those that are about as good the one nearest the middle of the target.
///
/// @param normalised sensor places for the homography
/// @return nothing where no four corners match
std::optional<TargetMatch> matchByHomography(
    const std::vector<SeenCorner>& seen, const TargetProfile& profile,
    const Orientation& orientation,
    const std::function<cmnalg::Vec<2, double>(cmnalg::Vec<2, double>)>& normalised);

/// Where a target stands.
struct RigidPlacement {
  double x, z, angle;
};

/// The same where the laser plane is known well enough for the target to be found by a motion.
/// @param inPlane the corners seen, in the laser plane
/// @return nothing where no three corners match
std::optional<TargetMatch> matchByMotion(const std::vector<SeenCorner>& seen,
                                         const std::vector<cmnalg::Vec<2, double>>& inPlane,
                                         const TargetProfile& profile,
                                         const Orientation& orientation, RigidPlacement& placement);

}  // namespace planex::estimation
