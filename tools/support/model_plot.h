#pragma once

#include <planex/io/output_file.h>
#include <planex/scan/model_summary.h>

#include <optional>
#include <string>

namespace planex::tools {

/// Draws what the sensor sees of the laser plane, X to the right and Z up, both to one scale: the
/// border of the sensor, every eighth of its rows and columns faintly, the calibrated region, a
/// grid with labels and a scale bar. Below, where there is a calibrated region, its residuals in
/// false colour, each map with its legend; cells without points stay dark.
///
/// @param file  receives a PNG; the caller commits
void plotModel(const datafusion::planex::CalibrationModel& model, const scan::FieldOfView& view,
               const std::optional<scan::RegionSummary>& region, const std::string& unit,
               io::OutputFile& file);

}  // namespace planex::tools
