#pragma once

#include <array>
#include <vector>

#include "planex/estimation/observation.h"

namespace planex::estimation {

/// What is expected of the terms before anything is measured: independent normal distributions.
/// The homography, whose deviations are 0, is not expected anywhere.
struct TermPriors {
  CameraTerms mean{};
  CameraTerms deviation{};
};

/// How residuals enter a fit.
enum class Loss {
  kSquares,
  kCauchy,  ///< with the scale of 2 standard deviations
  kTukey,   ///< biweight, nothing beyond 6 standard deviations
};

/// What a fit takes into account.
struct FitProblem {
  double radius = 0;  ///< half the diagonal of the sensor in pixels
  TermPriors priors;
  double noise = 1;      ///< of a pixel of weight 1
  double tolerance = 0;  ///< standard uncertainty of points in the plane
  Loss loss = Loss::kSquares;
};

/// Improves the terms until chi-square, the sum of squared residuals over their deviations and of
/// the priors, changes by no more than 1e-12 of itself, or 1e-6 where a loss limits residuals.
///
/// The covariance of each observation is that of the terms at the beginning. One thread; the same
/// result every time.
/// @return half of the last sum, of the loss
double fitTerms(const FitProblem& problem, const std::vector<const PointObservation*>& observations,
                CameraTerms& terms);

}  // namespace planex::estimation
