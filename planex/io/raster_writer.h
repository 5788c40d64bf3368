#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/ordered_work.h"
#include "planex/io/output_file.h"
#include "planex/io/raster.h"

namespace planex::io {

/// The kinds of raster files.
enum class RasterFormat { kPng, kTiff, kNpy };

/// @return the format that the ending of a file name stands for (.png, .tif, .tiff, .npy, in any
///         case), or nothing
PLANEX_EXPORT std::optional<RasterFormat> rasterFormatOf(const std::string& path);

/// How the samples of a TIFF are compressed. A PNG always is.
enum class Compression { kNone, kDeflate, kZstd };

/// How a raster file is made.
struct RasterEncoding {
  Compression compression = Compression::kNone;  ///< of a TIFF
  WorkerPool* pool =
      nullptr;  ///< compresses; null: the thread that writes does. Outlives the writer
};

/// Writes a raster row by row, from the first to the last. The bytes of the file do not depend on
/// how many rows come at a time, nor on the workers, nor on whether their number was known before
/// the last one. Failures name the file.
class PLANEX_EXPORT RasterWriter {
 public:
  /// @param file        empty; stays open while the writer is used, and is committed afterwards
  /// @param description stored in the file too: in a TIFF as tags that GDAL reads, in a PNG as text
  ///                    chunks; an NPY, rows x columns [x layers], holds samples alone. A PNG has
  ///                    one layer of integers. A TIFF whose height is not known is kept in a file
  ///                    without a name beside it until the end
  static std::unique_ptr<RasterWriter> create(RasterFormat format, OutputFile& file,
                                              const RasterDescription& description,
                                              const RasterEncoding& encoding = {});

  virtual ~RasterWriter() = default;
  RasterWriter(const RasterWriter&) = delete;
  RasterWriter& operator=(const RasterWriter&) = delete;

  /// Appends `count` rows without padding; layers[i] has those of layer i.
  virtual void writeRows(int count, const std::vector<const void*>& layers) = 0;
  /// Completes the file, after all rows. A Failure where there were none.
  virtual void finish() = 0;

 protected:
  RasterWriter() = default;
};

}  // namespace planex::io
