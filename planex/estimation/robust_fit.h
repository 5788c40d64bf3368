#pragma once

#include <vector>

#include "planex/estimation/observation.h"

namespace planex::estimation {

/// How residuals enter a fit.
enum class Loss {
  kSquares,
  kCauchy,  ///< with the scale of 2 standard deviations
  kTukey,   ///< biweight, nothing beyond 6 standard deviations
};

/// What a fit takes into account, beside the unknowns and what is expected of them.
struct FitProblem {
  double radius = 0;     ///< half the diagonal of the sensor in pixels
  double noise = 1;      ///< of a pixel of weight 1
  double tolerance = 0;  ///< standard uncertainty of points in the plane
  Loss loss = Loss::kSquares;
  double precision = 1e-12;  ///< relative change of chi-square at which a fit ends
};

/// Improves the unknowns until chi-square, the sum of squared residuals over their deviations and
/// of the priors, changes by no more than 1e-12 of itself, or 1e-6 where a loss limits residuals.
///
/// The covariance of each observation is that of the unknowns at the beginning. One thread; the
/// same result every time.
void fitUnknowns(const FitProblem& problem, const std::vector<const Observation*>& observations,
                 Unknowns& unknowns);

}  // namespace planex::estimation
