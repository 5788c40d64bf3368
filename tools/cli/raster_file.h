#pragma once

#include <planex/foundation/pixel_type.h>
#include <planex/io/output_file.h>
#include <planex/io/raster_writer.h>

#include <memory>
#include <string>

#include "tools/cli/made.h"
#include "tools/cli/options.h"

namespace planex::tools {

/// A raster of one layer with a row for each profile, and the writer of it. 0 is no measurement.
class RasterFile {
 public:
  /// @param path    whose ending stands for a kind of raster
  /// @param content what it is, and the name of its layer
  /// @param width   columns, of UINT8 or UINT16
  /// @param height  rows; 0: as many as are written
  RasterFile(const std::string& path, const char* content, int width, int height,
             cmnalg::ImageType type, const Context& context,
             const io::RasterEncoding& encoding = {});

  void writeRows(int count, const void* rows) { writer_->writeRows(count, {rows}); }
  /// Completes the file and tells the sidecar of it.
  void finish(OutputSidecar& sidecar);
  void commit() { file_.commit(); }

 private:
  const char* content_;
  io::OutputFile file_;
  std::unique_ptr<io::RasterWriter> writer_;
};

}  // namespace planex::tools
