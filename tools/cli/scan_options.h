#pragma once

#include <planex/io/image_reader.h>
#include <planex/io/raster_writer.h>
#include <planex/scan/row_blocks.h>
#include <planex/scan/sensor.h>
#include <planex/scan/y_positions.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace planex::tools {

/// Adds --scale-x, --origin-x, --scale-z, --origin-z, --sensor-width, --sensor-height and --sensor.
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

/// Where along the scan the rows of a range image lie: on a line, or at positions from a file.
struct YOptions {
  std::optional<double> scale, offset;
  std::string file;

  io::Axis line() const { return {scale.value_or(1), offset.value_or(0)}; }
};

/// Adds --y-scale and --y-offset, and --y-file where `withFile` is set.
void addYOptions(CLI::App& command, YOptions& options, bool withFile);

/// The positions of an image with that many rows.
scan::YPositions resolveY(const YOptions& options, int rows);

}  // namespace planex::tools
