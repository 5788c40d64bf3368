// What a page shows, in a form that is small and needs no parsing: cells in 16 bits, in tiles of
// several resolutions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "planex/io/raster.h"

namespace planex::report {

/// Numbers of the cells of a map, in steps: number = values.scale * step + values.origin.
struct ViewLayer {
  std::string name;                  ///< "height"
  std::string unit;                  ///< empty for what is no length
  std::string colors = "viridis";    ///< a ColorMap
  io::Axis values;                   ///< what a step means
  std::vector<std::uint16_t> steps;  ///< row by row; 0 is none

  /// A layer of such numbers; NaN is none. Whole numbers that 65535 steps of 1 can tell apart stay
  /// as they are, others are rounded to the nearest of 65535 steps from the least to the greatest.
  /// @param meaning what the numbers mean, in the unit
  static ViewLayer of(const std::vector<float>& numbers, const io::Axis& meaning);

  /// The numbers between which colours spread: all but a few at both ends, as in pictures. Both NaN
  /// where no cell has a number.
  std::pair<double, double> colorEnds() const;
  /// The least and the greatest number; likewise.
  std::pair<double, double> ends() const;
  /// How many cells have a number.
  std::int64_t filled() const;
};

/// Fewer cells than a file holds: of each block of factor x factor cells that number which is the
/// farthest from the mean of the block, so that single peaks and pits are still seen.
class CellBlocks {
 public:
  CellBlocks(int columns, int rows, int factor);

  /// Takes the next rows; NaN is none.
  void addRows(int count, const float* numbers);
  /// The numbers of the blocks, after the last row.
  std::vector<float> take() { return std::move(blocks_); }

  /// How many blocks `cells` cells in a line make.
  static int blocksOf(int cells, int factor) { return (cells + factor - 1) / factor; }
  /// The least factor that makes at most so many blocks of a map.
  static int factorFor(int columns, int rows, std::int64_t most);

 private:
  void reduce();

  const int columns_, rows_, factor_;
  int seen_ = 0;
  std::vector<float> pending_, blocks_;
};

/// A layer at its resolution, at half of it and so on, down to one that fits into a tile, each in
/// tiles. Coarser cells are blocks of 2 x 2, see CellBlocks.
///
/// Tile (row, column) of a level begins at its cell (row, column) * kSide, and has one row and one
/// column of those behind it, so that surfaces join. It is stored as differences to the cell on the
/// left, of the first column to the cell above, modulo 65536; first all low bytes, then all high
/// ones; deflated, with the heading and check sum of zlib.
class ViewTiles {
 public:
  static constexpr int kSide = 256;

  /// Takes the bytes of a tile; a tile without any number is left out.
  using Sink = std::function<void(int level, int row, int column, std::string_view bytes)>;

  /// How many levels a map of that size has.
  static int levelsOf(int columns, int rows);
  /// Calls the sink for all tiles of all levels.
  static void write(const ViewLayer& layer, int columns, int rows, const Sink& sink);
};

/// A cloud, thinned: of each cell of a grid over X and Y the lowest and the highest of its points
/// stay, so that no peak and no pit is lost. All points stay where they are few.
class CloudCells {
 public:
  static constexpr std::int64_t kMostPoints = 1 << 20;

  /// @param count of points that are numbers, 1 or more
  /// @param least, most  X and Y of them, at both ends
  CloudCells(std::int64_t count, std::array<double, 2> least, std::array<double, 2> most);

  /// A point between the ends; each once.
  void add(double x, double y, double z, double intensity);

  /// @{
  /// The grid.
  int columns() const { return columns_; }
  int rows() const { return rows_; }
  const io::Axis& x() const { return x_; }
  const io::Axis& y() const { return y_; }
  /// @}
  /// @{
  /// Numbers of the highest point of each cell, and Z of the lowest; NaN without points.
  std::vector<float> highest() const { return column(&Cell::high, 2); }
  std::vector<float> lowest() const { return column(&Cell::low, 2); }
  std::vector<float> intensities() const { return column(&Cell::high, 3); }
  /// @}
  /// How many points fell into each cell; NaN for none.
  std::vector<float> counts() const;
  /// X Y Z of the points that stay.
  std::vector<float> points() const;

 private:
  using Point = std::array<float, 4>;
  struct Cell {
    Point low{}, high{};
    float count = 0;
  };
  std::vector<float> column(Point Cell::*point, std::size_t number) const;

  io::Axis x_, y_;
  int columns_ = 1, rows_ = 1;
  bool keepsAll_;
  std::vector<Cell> cells_;
  std::vector<float> all_;  // where all stay
};

/// Points in space, X Y Z X Y Z ..., as the bytes of the numbers: all lowest bytes, then those next
/// to them, and so on; deflated.
std::string packedPoints(const std::vector<float>& coordinates);

}  // namespace planex::report
