#pragma once

#include <array>
#include <optional>
#include <vector>

#include "planex/foundation/vec.h"

namespace planex::estimation {

/// A place on the sensor, normalised, and the place in the plane that it shows.
struct PlacePair {
  cmnalg::Vec<2, double> sensor, plane;
};

/// h00 ... h22, row by row, from the sensor to the plane; h22 is 1.
using PlaneHomography = std::array<double, 9>;

/// The homography that most pairs agree with: of those through four pairs drawn at random the one
/// whose 60 % quantile of distances on the sensor is least, fitted anew to the pairs near it. The
/// draws are the same every time.
///
/// Source: the normalised direct linear transformation, Hartley and Zisserman, Multiple View
/// Geometry, 2nd ed., section 4.4; least quantile of squares, Rousseeuw and Leroy, Robust
/// Regression and Outlier Detection, 1987.
///
/// @return nothing where there are less than four pairs, or none of the draws gives a homography
std::optional<PlaneHomography> initialHomography(const std::vector<PlacePair>& pairs);

/// The homography of all pairs, by the same transformation.
/// @return nothing where there are less than four, or they lie so that they have none
std::optional<PlaneHomography> fitHomography(const std::vector<PlacePair>& pairs);

/// Root mean square of the distances on the sensor.
double rmsOnSensor(const std::vector<PlacePair>& pairs, const PlaneHomography& homography);

}  // namespace planex::estimation
