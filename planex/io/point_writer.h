#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/output_file.h"
#include "planex/io/raster_writer.h"

namespace planex::io {

/// The kinds of files for the points of a range image.
enum class PointFormat { kPly, kPcd, kTiff, kNpy, kLas, kCsv, kXyz };

/// @return the format that the ending of a file name stands for (.ply, .pcd, .tif, .tiff, .npy,
///         .las, .csv, and .xyz or .txt, in any case), or nothing
PLANEX_EXPORT std::optional<PointFormat> pointFormatOf(const std::string& path);

/// What a file of points says about itself.
struct PointDescription {
  int columns = 0;                      ///< points of a row
  int rows = 0;                         ///< of the file
  bool aligned = false;                 ///< X, Y and Z are aligned; otherwise calibrated
  std::optional<SampleType> intensity;  ///< its type (8 or 16 bits) where points have one
  std::string unit;                     ///< of all coordinates
  std::string rowUnit;                  ///< of Y, before it is aligned, where it is no length
  /// Missing points are left out, of a PLY or a PCD. LAS and text have no place for them anyway.
  bool withoutMissing = false;
  /// The longest edge of the triangles of a mesh, above 0; a PLY without missing points.
  std::optional<double> meshEdge;
};

/// Rows of points, each array row by row without padding; missing points are NaN in all three.
struct PointRows {
  int count = 0;                    ///< rows
  const float* x = nullptr;         ///< X
  const float* y = nullptr;         ///< Y
  const float* z = nullptr;         ///< Z
  const void* intensity = nullptr;  ///< null without
};

/// Rows in the form of their file.
struct PreparedRows {
  std::vector<char> bytes;  ///< the points
  std::int64_t points = 0;  ///< how many
  /// Corners of the triangles between the rows, three by three, counted from the first point.
  std::vector<std::uint32_t> corners;
  std::int64_t facing = 0;  ///< how many triangles face +Z, less those that face away
};

/// What a file holds.
struct PointCounts {
  std::int64_t points = 0;     ///< with missing points where it holds them
  std::int64_t triangles = 0;  ///< of a mesh
};

/// Writes the points of a range image row by row, in its order. Where missing points are kept there
/// is one point per sample of the image. All binary numbers are little-endian.
///
///     PLY   binary; float x, y, z, and intensity, uchar for 8 bits and float for 16; triangles
///     PCD   binary; float x, y, z, and float intensity; organised where missing points are kept
///     TIFF  float32 layers: X and Z, or X, Y and Z where they are aligned
///     NPY   float32, rows x columns x 2 or 3: X and Z, or X, Y and Z where they are aligned
///     LAS   1.2, point format 0: multiples of a power of ten finer than the largest float, and
///           intensity as it is; no missing points
///     CSV   lines x,y,z and intensity below a heading; numbers that read back as the same floats;
///           no missing points
///     XYZ   the same with blanks and without heading
///
/// The triangles of a mesh join points of samples that are neighbours in the image: of each four,
/// two along the shorter diagonal, or one where a point is missing. None has an edge longer than
/// meshEdge. All turn the same way round, so that more of them face +Z, where the camera is, than
/// face away: seen from there their corners go counter-clockwise.
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
  /// @param prepared what writeRows() wants to have with the rows
  virtual void prepare(const PointRows& rows, PreparedRows& prepared) const = 0;
  /// Appends rows that were prepared. A Failure for more points than the file can count.
  virtual void writeRows(const PointRows& rows, const PreparedRows& prepared) = 0;
  /// Completes the file, after all rows.
  virtual void finish() {}

  /// What was written.
  const PointCounts& written() const { return written_; }

 protected:
  PointWriter() = default;
  /// @cond
  PointCounts written_;
  /// @endcond
};

}  // namespace planex::io
