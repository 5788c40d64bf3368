#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "planex/estimation/robust_fit.h"

namespace planex::estimation {

/// A symmetric matrix over the terms, row by row.
using TermMatrix = std::array<double, std::size_t{kTermCount} * kTermCount>;

/// Sums of least squares over observations and priors: J^T J, J^T r and r^T r of residuals over
/// their standard deviations.
struct NormalEquations {
  TermMatrix matrix{};
  CameraTerms gradient{};
  double squares = 0;
  int residuals = 0;

  void add(const SensorResidual& whitened);
  void add(const TermPriors& priors, const CameraTerms& terms);
  /// Takes away what was added to the other one.
  void subtract(const NormalEquations& other);
  /// The inverse of the matrix, its columns scaled to unit length first; directions with an
  /// eigenvalue below 1e-15 of the largest are cut off.
  TermMatrix covariance() const;
};

/// -C g: the step of Gauss and Newton.
CameraTerms stepOf(const TermMatrix& covariance, const CameraTerms& gradient);

/// D C D^T for rows of derivatives: xx, xz, zz.
std::array<double, 3> propagate(const double (&rows)[2][kTermCount], const TermMatrix& covariance);

}  // namespace planex::estimation
