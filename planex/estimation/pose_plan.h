#pragma once

#include <vector>

#include "planex/estimation/estimation.h"

namespace planex::estimation {

/// What scans of a target would tell.
struct PosePlan {
  std::vector<PlannedScan> scans;  ///< the most useful one first
  MapUncertainty uncertainty;      ///< with all of them
};

/// What to measure, before anything is measured: of scans at four heights over the sensor, level
/// and tilted by 5 and by 10 degrees either way in the laser plane, one after another that which
/// lowers the mean variance of the map the most. The same pose may come twice.
///
/// The information is that of the fit: of every column that sees an edge, with what is expected of
/// cameras and of the target.
///
/// Source: Fisher information of the scans at a nominal model; the choice is greedy, as in Fedorov,
/// Theory of Optimal Experiments, 1972, chapter 3.
///
/// @param model   a camera such as the one to be calibrated; the one itself once it is estimated
/// @param options sensor size, noise (0: 0.1 pixels) and turn count
/// @param count   scans, 1 to 64
/// Throws EstimationFailure where the target cannot be seen in any of the poses.
PLANEX_EXPORT PosePlan planScans(const datafusion::planex::CalibrationModel& model,
                                 const TargetProfile& target, const EstimationOptions& options,
                                 int count);

}  // namespace planex::estimation
