#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/raster.h"
#include "planex/scan/sidecar.h"

namespace planex::scan {

/// What a caller says of where the rows lie; either a line or a file.
struct RowSettings {
  std::optional<double> scale;   ///< distance of neighbouring rows; not 0. Y may fall with the rows
  std::optional<double> origin;  ///< Y of row 0
  std::string positions;         ///< a file with the Y of every row; empty without
};

/// The Y of every row of a range image: where along the scan it lies.
class PLANEX_EXPORT YPositions {
 public:
  /// On a line: Y = scale * row + origin. Where nobody knows how far rows are apart, Y counts them:
  /// it is no length.
  explicit YPositions(const io::Axis& line, bool known = true) : line_(line), known_(known) {}
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
  /// The file of the positions; empty for a line.
  const std::string& file() const { return file_; }
  /// Whether Y is a length.
  bool isKnown() const { return known_; }

 private:
  io::Axis line_;
  bool known_ = true;
  std::string file_;
  std::vector<double> positions_;
};

/// The Y of the rows: as the settings say, else the sidecar, else rows are counted. A line takes
/// what the settings leave open from the sidecar.
///
/// @param rows of the image
/// A Failure for a file of positions that is faulty, for an origin beside positions of the sidecar,
/// and for a Y that no float can hold.
PLANEX_EXPORT YPositions resolveY(const RowSettings& settings, const ScanSidecar& sidecar,
                                  int rows);

}  // namespace planex::scan
