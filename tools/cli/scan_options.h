#pragma once

#include <planex/io/image_reader.h>
#include <planex/io/raster_writer.h>
#include <planex/scan/row_blocks.h>
#include <planex/scan/sensor.h>
#include <planex/scan/y_positions.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/options.h"

namespace planex::tools {

/// Adds --scale-x, --origin-x, --scale-z and --origin-z.
void addRangeOptions(CLI::App& command, scan::SensorSettings& settings);

/// The same, and --sensor-width, --sensor-height and --sensor.
void addSensorOptions(CLI::App& command, scan::SensorSettings& settings);

/// Adds --compress.
void addCompressOption(CLI::App& command, std::optional<io::Compression>& compression);

/// Which rows of a scan are processed, and how many at a time.
struct RowOptions {
  std::string rows;  ///< --rows A:B; empty: all
  int block = 0;     ///< --block N; 0: as many as caches hold
};

/// Adds --rows and --block.
void addRowOptions(CLI::App& command, RowOptions& options);

/// The rows of an image that the options ask for, in blocks whose memory is bounded. Throws
/// CLI::ValidationError for rows that are written wrongly, none, or not in the image.
/// @param columns of the widest row that is made of one of the image
scan::RowBlocks resolveRows(const RowOptions& options, const io::ImageShape& image, int columns);

/// Adds --y-scale, --y-offset and --y-file.
void addYOptions(CLI::App& command, scan::RowSettings& settings);

/// Refuses more than one input that is standard input; a range image and its intensities are one
/// where they are the same file.
void requireOneStandardInput(const std::vector<std::string>& inputs);

/// Tells on standard error which members of the sidecar options replace by other values.
void tellOfReplacedMembers(const scan::SensorSettings& sensor, const scan::RowSettings& rows,
                           const scan::ScanSidecar& sidecar);

/// Tells on standard error that Y counts rows, where it does.
/// @param aligned whether the pose of the model takes the count for a length
void warnOfCountedRows(const scan::YPositions& y, bool aligned, const std::string& range,
                       const Context& context);

}  // namespace planex::tools
