#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "planex/estimation/estimation.h"
#include "planex/estimation/normal_matrix.h"
#include "planex/estimation/robust_fit.h"

namespace planex::estimation {

/// The frame of a fit: that of the measurements, turned so that X runs along the rows of the sensor
/// and shifted to the middle of them.
struct FitFrame {
  double angle = 0;               ///< of the measurements' X against that of the frame, in radians
  cmnalg::Vec<2, double> middle;  ///< of the frame, in turned coordinates

  cmnalg::Vec<2, double> fromPoint(cmnalg::Vec<2, double> point) const;
};

/// A fit of all unknowns.
struct ModelFit {
  FitFrame frame;
  bool isFrameFree = false;    ///< nothing but targets says where the frame is
  bool isLookGuessed = false;  ///< the targets look the same another way round
  FitProblem problem;          ///< with the noise found
  Unknowns unknowns;           ///< the best
  std::vector<Observation> observations;
  std::vector<char> used;     ///< of each observation
  NormalEquations equations;  ///< of the observations used, with the priors
  double correlation = 1;
  std::vector<MapUncertainty::OtherMinimum> others;

  CameraTerms terms() const { return unknowns.terms(); }
  cmnalg::Vec<2, double> inPlane(cmnalg::Vec<2, double> pixel) const {
    return laserFromSensor(terms(), problem.radius, pixel);
  }
  /// The residual of an observation over its deviation. Computed each time: with its derivatives it
  /// is ten times as large as the observation.
  SensorResidual residual(std::size_t i, Derivatives wanted = Derivatives::kAll) const;
};

/// Finds the unknowns, from no start. See estimateModel().
ModelFit fitModel(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options);

/// By which part a target is wider than its description, if nothing is expected of that, and the
/// standard uncertainty.
TargetStretch stretchOf(const ModelFit& fit, std::size_t target, const EstimationOptions& options);

/// The model of a fit, with all that its members are for.
datafusion::planex::CalibrationModel modelOf(const ModelFit& fit, const EstimationOptions& options);

/// Reasons to doubt a fit.
std::vector<Finding> findingsOf(const ModelFit& fit, const std::vector<ScanMeasurement>& scans,
                                const EstimationOptions& options, const Estimation& estimation);

/// The further scan of one of the targets that would tell most; none where no target is seen.
std::optional<NextScan> nextScan(const ModelFit& fit, const EstimationOptions& options);

/// Residuals of patches of the sensor, predicted from the others, over their uncertainty.
double heldOutPatches(const ModelFit& fit);

/// For each scan, residuals predicted from the other scans over their uncertainty; 0 for one of
/// points, or that is too short to tell.
std::vector<double> heldOutScans(const ModelFit& fit);

}  // namespace planex::estimation
