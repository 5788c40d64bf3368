#pragma once

#include <optional>
#include <string>

#include "tools/support/model_summary.h"
#include "tools/support/output_file.h"

namespace planex_tools {

/// Draws what the sensor sees of the laser plane, X to the right and Z up, both to one scale: the
/// border of the sensor, every eighth of its rows and columns faintly, the calibrated region, a
/// grid with labels and a scale bar. Below, where there is a calibrated region, its residuals in
/// false colour, each map with its legend; cells without points stay dark.
///
/// @param file  receives a PNG; the caller commits
void plotModel(const datafusion::planex::CalibrationModel& model, const FieldOfView& view,
               const std::optional<RegionSummary>& region, const std::string& unit,
               OutputFile& file);

}  // namespace planex_tools
