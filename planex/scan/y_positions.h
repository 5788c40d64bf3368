#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/raster.h"

namespace planex::scan {

/// The Y of every row of a range image: where along the scan it lies.
class PLANEX_EXPORT YPositions {
 public:
  /// On a line: Y = scale * row + origin.
  explicit YPositions(const io::Axis& line) : line_(line) {}
  /// From a file with a number a line, one for each of `rows` rows. A Failure for another count,
  /// and for lines that are no number.
  YPositions(const std::string& path, int rows);

  /// The Y of a row of the image.
  double at(int row) const {
    return positions_.empty() ? line_.scale * row + line_.origin
                              : positions_[static_cast<std::size_t>(row)];
  }
  /// Nothing where the positions come from a file.
  std::optional<io::Axis> line() const;

 private:
  io::Axis line_;
  std::vector<double> positions_;
};

}  // namespace planex::scan
