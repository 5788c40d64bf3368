// The kinds of raster files behind RasterWriter::create.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "planex/io/raster_writer.h"

namespace planex::io {

/// The rows that a raster has got.
class RowCount {
 public:
  /// @param file outlives the object
  explicit RowCount(const OutputFile& file) : file_(file) {}

  int get() const { return rows_; }
  /// A Failure where there are more than any raster has.
  void add(int count);
  /// A Failure where there are none.
  void requireSome() const;

 private:
  const OutputFile& file_;
  int rows_ = 0;
};

/// @{
/// As RasterWriter::create.
std::unique_ptr<RasterWriter> createPng(OutputFile& file, const RasterDescription& description,
                                        const RasterEncoding& encoding);
std::unique_ptr<RasterWriter> createTiff(OutputFile& file, const RasterDescription& description,
                                         const RasterEncoding& encoding);
std::unique_ptr<RasterWriter> createNpy(OutputFile& file, const RasterDescription& description);
/// @}

/// The start of an NPY file. @param type, shape as NumPy writes them: "<f4", "(2, 3)"
std::string npyHeader(const std::string& type, const std::string& shape);

/// Pairs of keyword and text, as they stand in a PNG.
std::vector<std::pair<std::string, std::string>> describeInText(const RasterDescription& raster);
/// The same as the XML document that GDAL keeps in TIFF tag 42112.
std::string describeInGdalXml(const RasterDescription& raster);

}  // namespace planex::io
