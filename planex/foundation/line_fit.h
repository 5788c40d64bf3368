#pragma once

#include <cmath>
#include <cstddef>

namespace cmnalg::math {

/// Least-squares line r = slope z + intercept through points (z, r), from the normal equations:
///
///     det       = n S_zz - S_z^2
///     slope     = (n S_rz - S_z S_r) / det
///     intercept = (S_zz S_r - S_z S_rz) / det
///
/// Sums are formed in the order of Add. Source: Press et al., Numerical Recipes, 3rd ed.,
/// section 15.2.
class LineFit {
 public:
  void Add(double z, double r) {
    count_ += 1;
    sumZ_ += z;
    sumZz_ += z * z;
    sumR_ += r;
    sumRz_ += r * z;
  }

  double Determinant() const { return count_ * sumZz_ - sumZ_ * sumZ_; }

  /// @return false, with the outputs untouched, unless |det| > 0.001: the points then have no
  ///         spread in z to speak of (a NaN counts as none)
  bool Solve(double& slope, double& intercept) const {
    const double det = Determinant();
    if (!(std::abs(det) > 0.001)) return false;
    slope = (count_ * sumRz_ - sumZ_ * sumR_) / det;
    intercept = (sumZz_ * sumR_ - sumZ_ * sumRz_) / det;
    return true;
  }

 private:
  double count_ = 0;
  double sumZ_ = 0;
  double sumZz_ = 0;
  double sumR_ = 0;
  double sumRz_ = 0;
};

}  // namespace cmnalg::math
