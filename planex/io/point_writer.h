#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/output_file.h"
#include "planex/io/raster_writer.h"

namespace planex::io {

/// The kinds of files for the points of a range image.
enum class PointFormat { kPly, kPcd, kTiff, kNpy };

/// @return the format that the ending of a file name stands for (.ply, .pcd, .tif, .tiff, .npy, in
///         any case), or nothing
PLANEX_EXPORT std::optional<PointFormat> pointFormatOf(const std::string& path);

/// What a file of points says about itself.
struct PointDescription {
  int columns = 0;                      ///< points of a row
  int rows = 0;                         ///< of the file
  bool aligned = false;                 ///< X, Y and Z are aligned; otherwise calibrated
  std::optional<SampleType> intensity;  ///< its type (8 or 16 bits) where points have one
  std::string unit;                     ///< of all coordinates
  std::string rowUnit;                  ///< of Y, before it is aligned, where it is no length
};

/// Rows of points, each array row by row without padding; missing points are NaN in all three.
struct PointRows {
  int count = 0;                    ///< rows
  const float* x = nullptr;         ///< X
  const float* y = nullptr;         ///< Y
  const float* z = nullptr;         ///< Z
  const void* intensity = nullptr;  ///< null without
};

/// Writes the points of a range image row by row. The organised order, one point per sample of the
/// range image, is kept in all formats. All numbers are little-endian.
///
///     PLY   binary; float x, y, z, and intensity, uchar for 8 bits and float for 16
///     PCD   binary; float x, y, z, and float intensity
///     TIFF  float32 layers: X and Z, or X, Y and Z where they are aligned
///     NPY   float32, rows x columns x 2 or 3: X and Z, or X, Y and Z where they are aligned
class PLANEX_EXPORT PointWriter {
 public:
  /// @param file     empty; stays open while the writer is used, and is committed afterwards
  /// @param encoding of a TIFF
  static std::unique_ptr<PointWriter> create(PointFormat format, OutputFile& file,
                                             const PointDescription& description,
                                             const RasterEncoding& encoding = {});

  virtual ~PointWriter() = default;
  PointWriter(const PointWriter&) = delete;
  PointWriter& operator=(const PointWriter&) = delete;

  /// Brings rows into the form of the file, as far as that needs no order; on any thread, several
  /// at a time.
  /// @param bytes what writeRows() wants to have with the rows
  virtual void prepare(const PointRows& rows, std::vector<char>& bytes) const = 0;
  /// Appends rows that were prepared.
  virtual void writeRows(const PointRows& rows, const std::vector<char>& bytes) = 0;
  /// Completes the file, after all rows.
  virtual void finish() {}

 protected:
  PointWriter() = default;
};

}  // namespace planex::io
