#pragma once

#include <planex/io/output_file.h>
#include <planex/io/raster_writer.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/made.h"

namespace planex::tools {

/// Rows of standard uncertainties of X and of Z, and of their correlation.
struct UncertaintyLayers {
  /// Makes room for so many values, all NaN.
  void resize(std::size_t count);
  /// From a covariance.
  void set(std::size_t i, double xx, double xz, double zz);

  std::vector<float> x, z, correlation;
};

/// Adds --uncertainty and --row-noise.
void addUncertaintyOptions(CLI::App& command, std::string& path, std::optional<double>& rowNoise,
                           const char* description);

/// Refuses a name of --uncertainty that does not end in .tif or .tiff.
void requireUncertaintyName(const std::string& path);

/// Refuses a name that leads to the same file as that of another output, or of its sidecar.
void requireOtherName(const char* option, const std::string& path, const std::string& output);

/// A TIFF of such layers with its sidecar.
class UncertaintyFile {
 public:
  UncertaintyFile(const std::string& path, const Context& context);

  /// Before rows are written.
  void begin(int width, int height, const io::RasterEncoding& encoding = {});
  void writeRows(int count, const UncertaintyLayers& layers);
  /// Adds what the file is: unit, layers.
  void describe(const OutputSidecar& sidecar) const;
  /// After all rows: completes the file, adds it to the sidecar, and writes that.
  void finish(OutputSidecar& sidecar, const char* content);
  void commit();

  const std::string& sidecarPath() const { return sidecar_.path(); }

 private:
  io::OutputFile file_, sidecar_;
  io::RasterDescription raster_;
  std::unique_ptr<io::RasterWriter> writer_;
};

}  // namespace planex::tools
