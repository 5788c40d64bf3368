#pragma once

#include <cstddef>
#include <vector>

#include "planex/estimation/estimation.h"
#include "planex/estimation/normal_matrix.h"
#include "planex/estimation/robust_fit.h"

namespace planex::estimation {

/// The frame of a fit: the measured points, turned so that X runs along the rows of the sensor and
/// shifted to the middle of them.
struct FitFrame {
  double angle = 0;               ///< of the points' X against that of the frame, in radians
  cmnalg::Vec<2, double> middle;  ///< of the frame, in turned coordinates

  cmnalg::Vec<2, double> fromPoint(cmnalg::Vec<2, double> point) const;
};

/// A fit of all terms to points.
struct PointFit {
  FitFrame frame;
  FitProblem problem;                    ///< with the noise found
  CameraTerms terms{};                   ///< the best
  std::vector<PointObservation> points;  ///< in the frame
  std::vector<char> used;                ///< of each point
  NormalEquations equations;             ///< of the points used, with the priors
  double correlation = 1;
  std::vector<MapUncertainty::OtherMinimum> others;

  /// The residual of a point over its deviation. Computed each time: with its derivatives it is ten
  /// times as large as the point.
  SensorResidual residual(std::size_t i, Derivatives wanted = Derivatives::kAll) const;
};

/// Finds the terms, from no start. See estimateModel().
PointFit fitPoints(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options);

/// The model of a fit, with all that its members are for.
datafusion::planex::CalibrationModel modelOf(const PointFit& fit, const EstimationOptions& options);

/// Reasons to doubt a fit.
std::vector<Finding> findingsOf(const PointFit& fit, const std::vector<ScanMeasurement>& scans,
                                const EstimationOptions& options, const Estimation& estimation);

/// Residuals of patches of the sensor, predicted from the others, over their uncertainty.
double heldOut(const PointFit& fit);

}  // namespace planex::estimation
