#pragma once

#include <string>
#include <vector>

#include "planex/report/document.h"
#include "planex/report/estimation_plot.h"
#include "planex/report/ticks.h"
#include "tools/commands/estimation_residuals.h"

namespace planex::tools {

/// Lengths of the size of residuals: thousandths, where these have a name.
struct SmallUnit {
  explicit SmallUnit(const std::string& unit)
      : name(unit == "mm" ? "\xC2\xB5m" : unit), factor(unit == "mm" ? 1000 : 1) {}

  /// The number; with the unit.
  std::string text(double value) const { return report::figureText(value * factor, 3); }
  std::string withName(double value) const { return text(value) + "\u00A0" + name; }

  std::string name;
  double factor;
};

/// A map of the uncertainty over the sensor.
/// @param largest95  at most over the measured part
report::Picture uncertaintyPicture(const estimation::MapUncertainty& uncertainty, double largest95,
                                   const std::string& unit);

/// Residuals over the sensor and over the laser plane.
/// @param residuals  some or all of the estimation
std::vector<report::Picture> residualPictures(const estimation::Estimation& result,
                                              const std::vector<PlaceResidual>& residuals,
                                              const std::string& unit);

}  // namespace planex::tools
