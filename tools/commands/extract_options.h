#pragma once

#include <planex/io/image_reader.h>
#include <planex/io/raster_writer.h>
#include <planex/scan/extracted_frames.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/camera_options.h"
#include "tools/commands/extract_files.h"

namespace planex::tools {

/// What the options of extract were given.
struct ExtractOptions {
  std::vector<std::string> frames;
  ExtractNames names;
  std::string preview, dark, band, part, raw, pick = "strongest";
  std::optional<double> lineWidth, threshold, leastWidth, mostWidth, gain, readNoise;
  std::optional<double> bits, scaleX, originX, scaleZ, originZ, sensorWidth, sensorHeight;
  std::optional<double> scaleY, originY;
  datafusion::planex::LineMethod method = datafusion::planex::LineMethod::DERIVATIVE;
  bool transpose = false;
  int block = 0;
  std::optional<io::Compression> compression;
  CameraOptions camera;
};

/// Adds those that tell of the line, of the frames, and where they lie.
void addExtractOptions(CLI::App& command, ExtractOptions& options);

/// A part "A:B" of something that is counted; B is the largest number where it is left out.
struct Part {
  std::int64_t first = 0, end = std::numeric_limits<std::int64_t>::max();
};

/// Reads the value of an option; all where it is empty. Throws CLI::ValidationError for other
/// texts.
Part partOf(const std::string& option, const std::string& text);

/// How lines are looked for in frames of this size and type, without the frame of --dark. Throws
/// CLI::ValidationError for a rule that is none, and a Failure for what the frames do not have.
/// @param formatBits of a pixel that carry its value, where the format of the frames tells
scan::FrameExtraction extractionOf(const ExtractOptions& options, const io::ImageShape& shape,
                                   std::optional<int> formatBits);

}  // namespace planex::tools
