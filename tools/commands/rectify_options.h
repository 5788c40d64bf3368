// What the parts of the command `rectify` share: its options, and what a map is made from.
#pragma once

#include <planex/foundation/interval.h>
#include <planex/io/raster_writer.h>
#include <planex/processing/rectification_mode.h>
#include <planex/scan/calibrated_rows.h>
#include <planex/scan/rectified_rows.h>
#include <planex/scan/row_blocks.h>
#include <planex/scan/sensor.h>
#include <planex/scan/y_positions.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/cli/made.h"
#include "tools/cli/options.h"
#include "tools/cli/progress.h"
#include "tools/cli/scan_options.h"
#include "tools/commands/stated_uncertainty.h"

namespace planex::tools {

struct RectifyOptions {
  std::string model, range, output, preview, colors = "viridis", mode = "mean";
  std::string xRange, yRange, zRange, uncertainty, format = "tif";
  std::vector<std::string> ranges, intensities, layers;
  int jobs = 1, columns = 0, fill = 0, intensityDepth = 8;
  std::optional<double> pixelSize, rowSize, noData, splat, rowNoise;
  bool aligned = false, floating = false, shade = false;
  scan::SensorSettings sensor;
  scan::RowSettings y;
  RowOptions rows;
  std::optional<io::Compression> compression;

  /// Whether cells are made from points in space, in floats, and not from levels of profiles.
  bool isGridded() const { return aligned || floating; }
  bool hasLayer(const char* name) const;
};

/// What a map is made from. All of it outlives the making.
struct MapSource {
  ModelSource model;
  const scan::RangeScan& scan;
  const scan::IntensityImages& intensities;
  const scan::YPositions& y;
  const scan::RowBlocks& rows;
  datafusion::planex::WorldBounds bounds;  ///< of what the scan can show, calibrated
  datafusion::planex::RectificationMode mode;
  const PlaneUncertainty* uncertainty;  ///< of the model; null: not wanted
  Progress& progress;                   ///< hears of points that are done
};

/// Columns and heights of a map: those that the options ask for, else as many and as far as the
/// range image shows.
/// @param x, z what the sensor region sees, in the system of the map
datafusion::planex::HeightGrid heightGrid(const RectifyOptions& options, int imageColumns,
                                          cmnalg::math::Interval x, cmnalg::math::Interval z);

/// Replaces the limits by those of an option A:B, where it is given.
void narrow(const char* name, const std::string& text, cmnalg::math::Interval& limits);

/// What became of a map.
struct MapOutcome {
  datafusion::planex::HeightGrid grid;
  std::int64_t filled = 0;                 ///< cells that hold a height
  std::int64_t measured = 0, outside = 0;  ///< samples, and those of them outside the sensor
  scan::MapShare share;                    ///< of the points
  int rowsLeftOut = 0, emptyRows = 0;      ///< where positions are uneven
};

/// @{
/// Makes the map and all that goes with it. `rectifyLevels` gives
/// 16-bit levels of profiles, `rectifyGrid` points in space.
MapOutcome rectifyLevels(const RectifyOptions& options, const Context& context,
                         const MapSource& source, io::WorkerPool& pool);
MapOutcome rectifyGrid(const RectifyOptions& options, const Context& context,
                       const MapSource& source, io::WorkerPool& pool);
/// @}

}  // namespace planex::tools
