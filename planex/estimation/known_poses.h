#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "planex/estimation/initial_homography.h"
#include "planex/estimation/model_fit.h"

namespace planex::estimation {

/// Whether anything of a pose is known; all of it.
bool isKnownInPart(const TargetPose& pose);
bool isKnown(const TargetPose& pose);

/// Whether a target is one straight edge, which has no corners to be found by.
bool isPlate(const TargetProfile& profile);

/// Throws EstimationFailure where poses cannot be used: not finite, uncertainties below 0, of no
/// target, or without any angle.
void requirePoses(const std::vector<ScanMeasurement>& scans);

/// Moves a fit whose frame is that of one of its targets into the frame that poses tell, as far as
/// they tell it: the angle by the mean of the angles, X and Z by the first scan that knows them. A
/// frame that is turned by more than a degree stays along the rows, as that of points does.
void moveToPoses(ModelFit& fit, const std::vector<ScanMeasurement>& scans);

/// Says of all placements what is known of them, in the frame of the fit. A target whose parts look
/// alike is moved along by as many of them as bring it nearest its pose; a plate stands where its
/// pose says. Throws EstimationFailure where X or Z alone is known in a turned frame.
void expectPoses(ModelFit& fit, const std::vector<ScanMeasurement>& scans);

/// Leaves out poses that lie beyond what the loss of a fit lets count. Throws EstimationFailure
/// where none is left that tells the angle, X or Z, and there are no points that do.
void rejectPoses(Unknowns& unknowns);

/// A homography into the frame of the poses, from the lines that plates in known poses show: from
/// l = H^T m for lines l of the sensor and m of the plane, by the direct linear transformation.
///
/// Source: Hartley and Zisserman, Multiple View Geometry, 2nd ed., section 2.2.1.
///
/// @param normalised sensor places for the homography
/// @return nothing where the lines do not determine one; level plates do not
std::optional<PlaneHomography> homographyOfPlates(
    const std::vector<ScanMeasurement>& scans,
    const std::function<cmnalg::Vec<2, double>(cmnalg::Vec<2, double>)>& normalised);

}  // namespace planex::estimation
