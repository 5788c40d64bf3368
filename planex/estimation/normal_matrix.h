#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "planex/estimation/observation.h"

namespace planex::estimation {

/// A symmetric matrix over the terms, row by row.
using TermMatrix = std::array<double, std::size_t{kTermCount} * kTermCount>;

/// One number of a residual by those unknowns that it depends on.
struct SparseRow {
  static constexpr int kMost = kTermCount + kPlacementCount + kSizeCount + 4;

  SparseRow(const SensorResidual& residual, int number, const Observation& observation,
            const Unknowns& unknowns);

  int count = kTermCount;
  int places[kMost];  ///< the terms first, in their order
  double values[kMost];
};

/// Sums of least squares over observations and priors: J^T J, J^T r and r^T r of residuals over
/// their standard deviations.
struct NormalEquations {
  explicit NormalEquations(std::size_t unknowns = kTermCount)
      : matrix(unknowns * unknowns), gradient(unknowns) {}

  void add(const SensorResidual& whitened, const Observation& observation,
           const Unknowns& unknowns);
  void addPriors(const Unknowns& unknowns);
  /// Takes away what was added to the other one.
  void subtract(const NormalEquations& other);
  /// The inverse of the matrix, row by row, its columns scaled to unit length first; directions
  /// with an eigenvalue below 1e-15 of the largest are cut off.
  std::vector<double> covariance() const;

  std::vector<double> matrix, gradient;
  double squares = 0;
  int residuals = 0;
};

/// Of the terms alone.
TermMatrix termsOf(const std::vector<double>& covariance);

/// -C g: the step of Gauss and Newton.
std::vector<double> stepOf(const std::vector<double>& covariance,
                           const std::vector<double>& gradient);

/// D C D^T for rows of derivatives: xx, xz, zz.
std::array<double, 3> propagate(const double (&rows)[2][kTermCount], const TermMatrix& covariance);

}  // namespace planex::estimation
