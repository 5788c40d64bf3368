#pragma once

#include <planex/io/raster_writer.h>
#include <planex/scan/extracted_frames.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/frame_record.h"
#include "tools/cli/made.h"

namespace planex::tools {

/// The names of the files that extract writes; empty where they are not wanted.
struct ExtractNames {
  std::string range, intensity, widths, quality, deviation;

  /// Throws CLI::ValidationError for names that stand for no kind of raster, and for one that two
  /// files have.
  void check() const;
};

/// The range image, and what comes with it.
class ExtractFiles {
 public:
  /// @param frame of the frames as lines are looked for in them
  /// @param rows  how many there will be; 0: nobody knows
  ExtractFiles(const ExtractNames& names, const Context& context, const io::ImageShape& frame,
               int rows, const io::RasterEncoding& encoding);
  ~ExtractFiles();
  ExtractFiles(const ExtractFiles&) = delete;
  ExtractFiles& operator=(const ExtractFiles&) = delete;

  void write(const scan::ExtractedFrames& block);
  /// Completes the files and tells the sidecar of them.
  void finish(OutputSidecar& sidecar);
  void commit();

 private:
  struct Layer;
  std::vector<std::unique_ptr<Layer>> layers_;
};

}  // namespace planex::tools
