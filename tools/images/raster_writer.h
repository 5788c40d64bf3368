#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/images/raster.h"
#include "tools/support/output_file.h"

namespace planex_tools {

/// The kinds of raster files.
enum class RasterFormat { kPng, kTiff };

/// Writes a raster row by row, from the first to the last. The bytes of the file do not depend on
/// how many rows come at a time. Failures name the file.
class RasterWriter {
 public:
  /// @param file        empty; stays open while the writer is used, and is committed afterwards
  /// @param description stored in the file too: in a TIFF as tags that GDAL reads, in a PNG as text
  ///                    chunks. A PNG has one layer of integers
  static std::unique_ptr<RasterWriter> create(RasterFormat format, OutputFile& file,
                                              const RasterDescription& description);

  virtual ~RasterWriter() = default;
  RasterWriter(const RasterWriter&) = delete;
  RasterWriter& operator=(const RasterWriter&) = delete;

  /// Appends `count` rows without padding; layers[i] has those of layer i.
  virtual void writeRows(int count, const std::vector<const void*>& layers) = 0;
  /// Completes the file, after all rows.
  virtual void finish() = 0;

 protected:
  RasterWriter() = default;
};

/// Whether a TIFF with so many bytes of samples, in so many strips, must be a BigTIFF because
/// 32-bit offsets do not reach its end.
bool needsBigTiff(std::uint64_t sampleBytes, std::uint64_t strips);

/// Pairs of keyword and text, as they stand in a PNG.
std::vector<std::pair<std::string, std::string>> describeInText(const RasterDescription& raster);
/// The same as the XML document that GDAL keeps in TIFF tag 42112.
std::string describeInGdalXml(const RasterDescription& raster);

}  // namespace planex_tools
