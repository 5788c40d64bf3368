#pragma once

/// @file
/// Height maps in floats, from points that fall wherever they fall: columns over X, rows over Y.
///
/// toRectified() keeps profiles as rows and heights as 16-bit levels, and is made for speed. Points
/// behind a pose, with positions of their own or with figures about each cell take this way: they
/// are placed, on any number of threads, and then added to the cells in the order of the scan. A
/// cell is what its points say in that order, so that results depend on nothing else.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "planex/foundation/interval.h"
#include "planex/infra/export.h"
#include "planex/processing/height_grid.h"
#include "planex/processing/rectification.h"
#include "planex/processing/rectification_mode.h"

namespace datafusion::planex {

/// Where points go in a grid of `width` columns.
struct PointPlacement {
  int width = 0;             ///< columns of the grid
  int height = 0;            ///< rows of the grid
  GridAxis x;                ///< of the columns
  GridAxis y;                ///< of the rows; its scale may be negative
  SplatShape splat;          ///< of a point along its row, see toRectified()
  double splatScale = 1.0;   ///< factor of the way from calibrated lengths to those of the grid
  cmnalg::math::Interval z;  ///< heights of points that are used; empty: all
};

/// Points on their way into a grid, `count` elements each.
struct PlacedGridPoints {
  /// The column of a point that is not used.
  static constexpr std::int32_t kNone = -1000;

  std::vector<std::int32_t> column;     ///< of the grid
  std::vector<std::int32_t> row;        ///< likewise
  std::vector<std::uint8_t> halfWidth;  ///< columns on either side that a point reaches
  std::int64_t points = 0;              ///< those that are numbers
  std::int64_t inGrid = 0;              ///< those of them that lie in a column and a row
  std::int64_t outsideHeights = 0;      ///< those of these that are dropped for their height
};

/// Places points:
///
///     column = round((X - x.origin) / x.scale),   row = round((Y - y.origin) / y.scale)
///     w      = round(0.55 splat.size splatScale (spacing.x S + spacing.y) / x.scale), 0 to 15
///
/// half away from zero. Points whose Z is NaN are dropped, as are those that reach no column, lie
/// in no row or outside the heights.
///
/// @param x, y, z  coordinates of `count` points, in the system of the grid; y null: all in row 0
/// @param splatZ   calibrated Z, for the spacing; may be z
/// @param placed   receives the places; its lists are resized to count
PLANEX_EXPORT void placePoints(const PointPlacement& placement, int count, const float* x,
                               const float* y, const float* z, const float* splatZ,
                               PlacedGridPoints& placed);

/// What becomes of a row of cells; `width` elements each, null where it is not wanted.
struct GridRow {
  float* height = nullptr;            ///< NaN where no point fell
  float* count = nullptr;             ///< points that fell into the cell
  float* spread = nullptr;            ///< the greatest less the smallest of them; NaN without
  float* deviation = nullptr;         ///< their standard deviation, of n - 1; NaN below two
  std::vector<float*> channels = {};  ///< what points carry along; 0 where no point fell
};

/// The cells of a grid that points have fallen into and that have not been taken yet. Rows need
/// memory between their first point and their taking only.
///
/// A cell's height, with the points in the order of their adding:
///
///     MEAN                first + sum(Z - first) / n, in double, rounded once
///     LOWEST, HIGHEST     the smallest, greatest Z
///     DARKEST, BRIGHTEST  Z of the point whose last channel is smallest, or greatest and above 0
///
/// Channels are the mean of those of all points in MEAN, those of the point that gave the height
/// otherwise; the earlier one where points are equal.
class PLANEX_EXPORT PointGrid {
 public:
  /// @param channels numbers that every point carries along; DARKEST and BRIGHTEST need one
  PointGrid(int width, int height, RectificationMode mode, int channels);
  ~PointGrid();
  /// @{
  /// Cells change their owner; the other one is only fit for destruction.
  PointGrid(PointGrid&&) noexcept;
  PointGrid& operator=(PointGrid&&) noexcept;
  /// @}

  /// Adds points to the columns within their half-width, in the rows within `rowHalfWidth`. Rows
  /// that have been taken are passed over.
  /// @param first, count which of the placed points
  /// @param z, channels  of all placed points, each
  /// @return points that were meant for rows that have been taken
  std::int64_t Add(const PlacedGridPoints& placed, std::size_t first, std::size_t count,
                   const float* z, const std::vector<const float*>& channels, int rowHalfWidth);

  /// Writes a row and forgets it, and every row before it. Rows are taken in ascending order, each
  /// once.
  void TakeRow(int row, const GridRow& out);

 private:
  struct Cells;
  template <typename Rule>
  std::int64_t AddBy(const Rule& rule, const PlacedGridPoints& placed, std::size_t first,
                     std::size_t count, const float* z, const std::vector<const float*>& channels,
                     int rowHalfWidth);
  Cells& RowAt(int row);

  int width_, height_, channels_;
  RectificationMode mode_;
  int next_ = 0;  // the first row that was not taken
  std::vector<std::unique_ptr<Cells>> rows_;
};

/// Interpolates holes of at most `most` cells in a row of heights, linearly between the cells at
/// both sides of the hole.
///
/// @param heights `width` heights, NaN for none
/// @param mask    receives 0 for a cell without height, 1 for a measured and 2 for an interpolated
///                one
PLANEX_EXPORT void fillHoles(int width, int most, float* heights, std::uint8_t* mask);

}  // namespace datafusion::planex
