#pragma once

#include <cstddef>
#include <vector>

#include "planex/estimation/map_uncertainty.h"
#include "planex/foundation/vec.h"
#include "planex/infra/export.h"

namespace planex::estimation {

/// The covariance of the map, tabulated over the sensor: for every point of a scan, where
/// MapUncertainty::at() would take too long.
///
/// Between the nodes of a grid the three figures are interpolated in both directions linearly,
/// which keeps a covariance one. The grid begins coarse and is halved until halving changes none of
/// its figures at the new nodes by more than 0.4 % (of the variance, the covariance of the root of
/// the product of both); what is used is the halved one, whose own error is about a quarter of
/// that. So a standard uncertainty is good to about 0.05 %, or to that share of a third of the mean
/// one where it is smaller: where a frame is free, some places hardly move.
class PLANEX_EXPORT UncertaintyTable {
 public:
  /// @param rowNoise  standard deviation of a measured row in pixels, that of the extraction: adds
  ///                  (d(X, Z) / dv)^2 rowNoise^2 to the covariance of the map. 0: the map alone
  explicit UncertaintyTable(MapUncertainty uncertainty, double rowNoise = 0);

  /// @param pixel sensor column and row, with fractions. Off the sensor by more than a pixel, and
  ///              beside places that the model does not have, the figures are computed
  /// Any thread.
  PlaceCovariance at(cmnalg::Vec<2, double> pixel) const;
  /// The same without the table.
  PlaceCovariance exactlyAt(cmnalg::Vec<2, double> pixel) const;

  /// By how much halving the grid for the last time has changed figures: above the error of at(),
  /// relative to the variance, or to a tenth of the mean one. The table ends at 1025 nodes each
  /// way, whatever that is then.
  double largestChange() const { return largestChange_; }

  /// What it is a table of.
  const MapUncertainty& uncertainty() const { return uncertainty_; }

 private:
  struct Grid {
    int columns = 0, rows = 0;          // nodes
    double left = 0, top = 0;           // pixel of the first one
    double stepX = 0, stepY = 0;        // pixels between two
    std::vector<PlaceCovariance> node;  // row by row

    cmnalg::Vec<2, double> pixelOf(int column, int row) const;
    PlaceCovariance& of(int column, int row);
    const PlaceCovariance& of(int column, int row) const;
  };

  double meanVariance() const;
  Grid halved(const Grid& coarse) const;
  static bool interpolate(const Grid& grid, cmnalg::Vec<2, double> pixel, PlaceCovariance& result);

  MapUncertainty uncertainty_;
  double rowVariance_;
  double leastVariance_ = 0;
  double largestChange_ = 0;
  Grid grid_;
};

}  // namespace planex::estimation
