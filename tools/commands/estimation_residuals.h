#pragma once

#include <planex/estimation/estimation.h>

#include <array>
#include <cstddef>
#include <vector>

namespace planex::tools {

/// How far a measured place is from where the model puts its pixel.
struct PlaceResidual {
  cmnalg::Vec<2, double> pixel;  ///< sensor column and row
  cmnalg::Vec<2, double> place;  ///< where the model puts it, in the system of the points
  double dx = 0, dz = 0;         ///< from there to where it was measured; NaN: not known
  bool used = true;              ///< whether the estimate rests on it
  std::size_t scan = 0;          ///< in Estimation::scans
};

/// The residuals that a report shows: of few points all, else some that are evenly spread over the
/// sensor, at most 1000 of those used and as large a share of those rejected, or 100 of them.
std::vector<PlaceResidual> shownResiduals(const estimation::Estimation& result,
                                          const std::vector<estimation::ScanMeasurement>& scans);

/// Where the model puts pixels, in the system of the points.
void mapToPoints(const datafusion::planex::CalibrationModel& model,
                 std::vector<cmnalg::Vec<2, double>>& pixels);

/// How a place of the laser plane changes with the pixel.
struct PixelSlopes {
  double xByColumn = 0, xByRow = 0, zByColumn = 0, zByRow = 0;

  /// Four places of the sensor, half a pixel to each side of one.
  static std::array<cmnalg::Vec<2, double>, 4> around(const cmnalg::Vec<2, double>& pixel);
  /// @param places  that belong to these
  static PixelSlopes between(const cmnalg::Vec<2, double>* places);
  /// The columns and rows that a displacement in the plane stands for.
  cmnalg::Vec<2, double> pixels(const cmnalg::Vec<2, double>& displacement) const;
};

}  // namespace planex::tools
