#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/images/raster.h"

namespace planex_tools {

/// Where along the scan the rows of a range image lie: on a line, or at positions from a file.
struct YOptions {
  std::optional<double> scale, offset;
  std::string file;
};

/// Adds --y-scale and --y-offset, and --y-file where `withFile` is set.
void addYOptions(CLI::App& command, YOptions& options, bool withFile);

/// The Y of every row of an image.
class YPositions {
 public:
  /// Reads the file where there is one: a number a line, one for each of `rows` rows. A Failure
  /// for another count, and for lines that are no number.
  YPositions(const YOptions& options, int rows);

  double at(int row) const {
    return positions_.empty() ? line_.scale * row + line_.origin
                              : positions_[static_cast<std::size_t>(row)];
  }
  /// Nothing where the positions come from a file.
  std::optional<Axis> line() const;

 private:
  Axis line_;
  std::vector<double> positions_;
};

}  // namespace planex_tools
