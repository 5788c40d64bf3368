#pragma once

#include "planex/estimation/camera_terms.h"

namespace planex::estimation {

/// A sensor pixel whose place in the laser plane is known.
struct PointObservation {
  cmnalg::Vec<2, double> pixel;
  cmnalg::Vec<2, double> point;  ///< X and Z; NaN: this one is not known, and the other is
  double weight = 1;             ///< standard deviation of the pixel, in units of the noise
  int scan = 0;                  ///< which measurement it belongs to

  int dimensions() const;
};

/// How far a measured pixel lies from where the model puts it: a displacement on the sensor, along
/// columns and rows; or its length along the gradient, where one coordinate is known.
///
/// Distances in the laser plane would not do: the noise of the pixel is in their derivatives, too,
/// and a fit to them comes out with a scale that is too small.
struct SensorResidual {
  int count = 2;
  double value[2];
  double terms[2][kTermCount];  ///< derivatives of `value`
  /// (J^T J)^-1, J the derivative of the laser plane by the pixel: the scatter on the sensor of a
  /// point that scatters by 1 in the plane. xx, xy, yy; of one number the first alone.
  double scatter[3];
};

/// What of a residual is computed.
enum class Derivatives { kNone, kAll };

/// @param radius half the diagonal of the sensor in pixels
/// @param wanted without derivatives `terms` is not set
SensorResidual residualOf(const CameraTerms& terms, double radius,
                          const PointObservation& observation,
                          Derivatives wanted = Derivatives::kAll);

/// What divides a residual by its standard deviation: the inverse of the lower Cholesky factor of
/// its covariance.
struct Whitening {
  double xx = 1, yx = 0, yy = 1;

  /// @param noise     of a pixel of weight 1
  /// @param tolerance standard uncertainty of the points in X and in Z
  static Whitening of(const SensorResidual& residual, double weight, double noise,
                      double tolerance);
  /// Value and derivatives, in place.
  void apply(SensorResidual& residual, Derivatives wanted = Derivatives::kAll) const;
};

}  // namespace planex::estimation
