#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/image_reader.h"
#include "planex/io/json.h"
#include "planex/io/raster.h"

namespace planex::scan {

/// A rectangle in the world.
struct WorldRectangle {
  /// @{
  /// Its sides.
  double xMin, yMin, xMax, yMax;
  /// @}
};

/// Columns firstColumn ... endColumn - 1 of rows firstRow ... endRow - 1 of a map.
struct CellRange {
  /// @{
  /// Its sides; those at the end do not belong to it.
  int firstColumn, endColumn, firstRow, endRow;
  /// @}

  /// @{
  /// How many there are.
  int columns() const { return endColumn - firstColumn; }
  int rows() const { return endRow - firstRow; }
  /// @}
};

/// A height map in a file: levels of 16 bits, or float32 in a TIFF or NPY. What its
/// numbers mean says the JSON file beside it, MAP.json:
///
///     X = scaleX column + originX,   Y = scaleY row + originY,   Z = scaleZ value + originZ
///
/// Its "unit" is that of X and Z, and of Y but for a map whose "transform" has another "unitY".
///
/// A Failure for an image that cannot be read; for a file beside it that is missing, no description
/// of a height map or of one of another size; and for members that are missing, of another type, no
/// finite numbers, 0 where they are scales of X and Y, or not above 0 as the scale of Z.
class PLANEX_EXPORT HeightMap {
 public:
  /// Opens a map, and reads the file beside it.
  /// @param layer  whose numbers are read, counted from 0; the first has the heights
  explicit HeightMap(const std::string& path, std::size_t layer = 0);

  /// The name of the file, as it was given.
  const std::string& path() const { return image_->path(); }
  /// @{
  /// Cells along X and along Y.
  int columns() const { return image_->shape().width; }
  int rows() const { return image_->shape().height; }
  /// @}
  /// @{
  /// Where the centres of the cells lie, and what stored values mean.
  const io::Axis& x() const { return x_; }
  const io::Axis& y() const { return y_; }
  const io::Axis& z() const { return z_; }
  /// @}
  /// Of X and Z, and of Y where it is a length.
  const std::string& unit() const { return unit_; }
  /// Of Y; another one, such as "rows", where nobody said how far rows are apart.
  const std::string& yUnit() const { return yUnit_; }
  /// Whether Y is a length.
  bool isYLength() const { return yUnit_ == unit_; }

  /// Whether the coordinates are aligned ones, and not calibrated.
  bool isAligned() const { return aligned_; }
  /// Of stored values: 8 or 16 bits, or float32.
  cmnalg::ImageType type() const { return image_->shape().type; }
  /// The stored value of cells without height; may be NaN.
  double missing() const { return missing_; }
  /// @{
  /// How wide points were spread, splatA, splatB and splatC, and what levels were made for heights
  /// in floats; nothing where the file beside the map does not tell.
  const std::optional<std::array<double, 3>>& splat() const { return splat_; }
  const std::optional<io::Axis>& levels() const { return levels_; }
  /// @}

  /// The names of the layers of the file, printable; none where the file beside it has no list.
  const std::vector<std::string>& layers() const { return layers_; }

  /// Opens the image of the same cells that has such a suffix, MAP_mask; null where there is none,
  /// or its own file beside it tells of other cells.
  std::unique_ptr<io::ImageReader> openCompanion(const std::string& suffix) const;

  /// All cells.
  CellRange allCells() const { return {0, columns(), 0, rows()}; }
  /// The cells whose centres lie in the rectangle, or on its border; nothing where there is none.
  std::optional<CellRange> cellsIn(const WorldRectangle& rectangle) const;

  /// From the centre of a cell in one corner of the range to that in the other.
  WorldRectangle centresOf(const CellRange& range) const;

  /// Reads stored values, row by row without padding; NaN where there is no height. A float has
  /// place for every value of 16 bits.
  /// @param values count * columns() numbers
  void readRows(int first, int count, float* values);
  /// The same as they are stored.
  /// @param samples count * columns() of type()
  void readStored(int first, int count, void* samples);

 private:
  std::unique_ptr<io::ImageReader> image_;
  io::Axis x_, y_, z_;
  double missing_ = 0;
  bool aligned_ = false;
  std::optional<std::array<double, 3>> splat_;
  std::optional<io::Axis> levels_;
  std::string unit_, yUnit_;
  std::vector<std::string> layers_;
  std::vector<char> samples_;
};

/// Tells what a raster of a map is, as HeightMap reads it: unit, system, columns, rows, firstRow,
/// transform, missing and layers.
/// @param json    of the file beside the raster
/// @param raster  with places of columns and rows
/// @param firstRow  of the scan in the map
PLANEX_EXPORT void describeMap(const io::JsonObject& json, const io::RasterDescription& raster,
                               bool aligned, int firstRow);

}  // namespace planex::scan
