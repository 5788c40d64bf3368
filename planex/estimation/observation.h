#pragma once

#include "planex/estimation/unknowns.h"

namespace planex::estimation {

/// A sensor pixel, and what it shows: a place in the laser plane that is known, or an edge of the
/// target of its scan.
struct Observation {
  /// @{
  /// In place of the edge of a target.
  static constexpr int kPoint = -1, kNothing = -2;
  /// @}

  cmnalg::Vec<2, double> pixel;
  cmnalg::Vec<2, double> point;  ///< X and Z; NaN: this one is not known, and the other is
  double weight = 1;             ///< standard deviation of the pixel, in units of the noise
  int scan = 0;                  ///< which measurement it belongs to
  int edge = kPoint;             ///< the corner at which the edge begins

  int dimensions() const;
};

/// How far a measured pixel lies from where the model puts it: a displacement on the sensor, along
/// columns and rows; its length along the gradient, where one coordinate is known; along the
/// column, from an edge.
///
/// Distances in the laser plane would not do: the noise of the pixel is in their derivatives, too,
/// and a fit to them comes out with a scale that is too small.
struct SensorResidual {
  int count = 2;
  double value[2];
  double terms[2][kTermCount];  ///< derivatives of `value`
  /// @{
  /// Derivatives of the one number of an edge, by its placement, size and two corners.
  double placement[kPlacementCount]{};
  double size[kSizeCount]{};
  double corners[4]{};
  /// @}
  /// (J^T J)^-1, J the derivative of the laser plane by the pixel: the scatter on the sensor of a
  /// point that scatters by 1 in the plane. xx, xy, yy; of one number the first alone.
  double scatter[3];
  /// By what the deviation of an edge grows where the column runs along it: there the row says
  /// little, and what the laser line looks like decides.
  double grazing = 1;
};

/// The edge of a target as it stands in the laser plane.
struct PlacedEdge {
  /// @param placement,size as in Unknowns
  /// @param begin,end      its corners, in the target's own coordinates
  PlacedEdge(const double* placement, const double* size, cmnalg::Vec<2, double> begin,
             cmnalg::Vec<2, double> end);
  PlacedEdge(const Unknowns& unknowns, const Unknowns::Scan& scan, int edge);

  /// From the target's own coordinates, and back.
  cmnalg::Vec<2, double> place(cmnalg::Vec<2, double> own) const;
  cmnalg::Vec<2, double> own(cmnalg::Vec<2, double> place) const;

  cmnalg::Vec<2, double> from, to;
  double c, s;      ///< of the angle
  double ofX, ofZ;  ///< factors of the target's size
  cmnalg::Vec<2, double> shift;
};

/// What of a residual is computed.
enum class Derivatives { kNone, kAll };

/// @param radius half the diagonal of the sensor in pixels
/// @param edge   of an observation of an edge; nullptr of one of a point
/// @param wanted without derivatives `terms`, `placement`, `size` and `corners` are not set
SensorResidual residualOf(const CameraTerms& terms, double radius, const Observation& observation,
                          const PlacedEdge* edge, Derivatives wanted = Derivatives::kAll);
SensorResidual residualOf(const Unknowns& unknowns, double radius, const Observation& observation,
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
