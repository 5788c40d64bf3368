#pragma once

#include <optional>
#include <string>

#include "planex/report/model_plot.h"
#include "planex/scan/model_summary.h"

namespace planex::report {

/// What the sensor sees of the laser plane, as a figure: the border of the sensor, every eighth of
/// its rows and columns, the calibrated region and its residuals.
ModelFigure figureOf(const datafusion::planex::CalibrationModel& model,
                     const scan::FieldOfView& view,
                     const std::optional<scan::RegionSummary>& region, const std::string& unit);

/// Whether there is anything to draw: a view that is finite and neither a line nor a point.
bool hasArea(const scan::FieldOfView& view);

}  // namespace planex::report
