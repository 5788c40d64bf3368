#pragma once

#include <vector>

#include "planex/infra/export.h"
#include "planex/io/raster.h"
#include "planex/scan/row_blocks.h"
#include "planex/scan/y_positions.h"

namespace planex::scan {

/// The rows of a map, which lie on a line, from rows of an image, which may lie anywhere along it.
///
/// The map has as many rows as the image, from the Y of the first to that of the last:
///
///     Y(i) = first + i (last - first) / (rows - 1)
///
/// Row i shows the row of the image whose Y is nearest, the earlier one of two, and is empty where
/// none is nearer than one spacing of the map. So nothing is made up between rows; rows of the
/// image that lie closer than the rows of the map may be left out.
class PLANEX_EXPORT RowResampling {
 public:
  /// @param rows of the image that go into the map
  /// A Failure, which names the file of the positions, for a Y that turns back or stands still all
  /// the time.
  RowResampling(const YPositions& y, const RowBlocks& rows);

  /// The Y of the rows of the map, counted from 0.
  const io::Axis& line() const { return line_; }
  /// The row of the image that a row of the map shows; -1 for an empty one. Never falls, but for
  /// empty rows.
  int sourceOf(int row) const {
    return sources_.empty() ? first_ + row : sources_[static_cast<std::size_t>(row)];
  }
  /// @{
  /// Rows of the image that no row of the map shows, and rows of the map that show none.
  int leftOut() const { return leftOut_; }
  int emptyRows() const { return emptyRows_; }
  /// @}

 private:
  int first_;
  io::Axis line_;
  std::vector<int> sources_;  // empty where every row of the image is one of the map
  int leftOut_ = 0, emptyRows_ = 0;
};

}  // namespace planex::scan
