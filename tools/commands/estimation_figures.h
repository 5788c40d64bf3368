#pragma once

#include <string>
#include <vector>

#include "tools/cli/html.h"
#include "tools/commands/estimation_residuals.h"

namespace planex::tools {

/// Lengths of the size of residuals: thousandths, where these have a name.
struct SmallUnit {
  explicit SmallUnit(const std::string& unit)
      : name(unit == "mm" ? "\xC2\xB5m" : unit), factor(unit == "mm" ? 1000 : 1) {}

  /// The number; with the unit, in HTML.
  std::string text(double value) const { return figureText(value * factor, 3); }
  std::string withName(double value) const { return text(value) + "\u00A0" + htmlText(name); }

  std::string name;
  double factor;
};

/// A part of the report: a map of the uncertainty over the sensor.
std::string uncertaintyFigure(const estimation::Estimation& result, const std::string& unit);

/// A part of the report: residuals over the sensor and over the laser plane.
/// @param residuals  some or all of the estimation
std::string residualFigures(const estimation::Estimation& result,
                            const std::vector<PlaceResidual>& residuals, const std::string& unit);

}  // namespace planex::tools
