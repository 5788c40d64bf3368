#pragma once

#include <cstddef>
#include <vector>

#include "planex/estimation/camera_terms.h"
#include "planex/estimation/target_profile.h"

namespace planex::estimation {

/// @{
/// Of a target in a scan: X and Z of its origin, its angle in radians, and by which part its
/// section is wider than the target, since it stands turned out of the laser plane.
enum Placement { kPlaceX, kPlaceZ, kPlaceAngle, kPlaceWidening, kPlacementCount };
/// Of a target: by which part it is larger than described, and by which part wider still.
enum TargetSize { kSizeScale, kSizeWidening, kSizeCount };
/// @}

/// The deviation of what is known, beside what is measured.
constexpr double kExact = 1e-9;
/// In radians.
constexpr double kDegree = 0.017453292519943295;

/// All that a fit determines, as one list of numbers: the camera terms; of each scan of a target
/// its placement; of each target its size and, unless they are known exactly, its corners.
struct Unknowns {
  struct Scan {
    int target = -1;       ///< -1: a scan of points
    int placement = -1;    ///< where it begins in `values`
    bool isFound = false;  ///< whether the target was found in it
    /// @{
    /// Whether somebody said where it stands; whether that contradicts the scans, and was left out.
    bool hasPose = false, isPoseWrong = false;
    /// @}
  };
  struct Target {
    TargetProfile profile;
    int size = -1;
    int corners = -1;  ///< X and Z of each; -1: those of the profile
  };

  std::vector<Scan> scans;
  std::vector<Target> targets;
  std::vector<double> values = std::vector<double>(kTermCount);
  /// @{
  /// Expected before anything is measured; a deviation of 0: nothing is.
  std::vector<double> mean = std::vector<double>(kTermCount);
  std::vector<double> deviation = std::vector<double>(kTermCount);
  /// @}

  /// @return where the new unknowns begin
  int append(int count) {
    const auto first = static_cast<int>(values.size());
    values.resize(values.size() + static_cast<std::size_t>(count));
    mean.resize(values.size());
    deviation.resize(values.size());
    return first;
  }
  void expect(int place, double value, double by) {
    mean[static_cast<std::size_t>(place)] = value;
    deviation[static_cast<std::size_t>(place)] = by;
  }
  double meanOf(int place) const { return mean[static_cast<std::size_t>(place)]; }
  double deviationOf(int place) const { return deviation[static_cast<std::size_t>(place)]; }
  double* at(int place) { return values.data() + place; }
  const double* at(int place) const { return values.data() + place; }

  const Target& targetOf(const Scan& scan) const {
    return targets[static_cast<std::size_t>(scan.target)];
  }

  CameraTerms terms() const {
    CameraTerms terms;
    for (std::size_t i = 0; i < terms.size(); ++i) terms[i] = values[i];
    return terms;
  }
  void setTerms(const CameraTerms& terms) {
    for (std::size_t i = 0; i < terms.size(); ++i) values[i] = terms[i];
  }

  cmnalg::Vec<2, double> corner(const Target& target, int i) const {
    if (target.corners < 0) return target.profile.corners[static_cast<std::size_t>(i)];
    const double* const place = at(target.corners + 2 * i);
    return {place[0], place[1]};
  }
};

}  // namespace planex::estimation
