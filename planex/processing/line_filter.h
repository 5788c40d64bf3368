#pragma once

#include <cstdint>

#include "planex/infra/containers.h"

namespace datafusion::planex {

/// The filters that find a line of some width, in rows; see extractLines().
struct LineFilter {
  /// @param lineWidth  of the line at half height, 1 to 60 rows
  explicit LineFilter(double lineWidth);

  int boxHalf;                     ///< a: rows of the box on either side of its middle
  etl::Vector<std::int32_t> taps;  ///< h_1 ... h_(K-1), at least one, that sum up to at most 128
  double chord;                    ///< q: what takes off the error of a crossing on the chord
  int windowHalf;                  ///< of the centre of gravity, on either side

  /// @{
  /// a, w and K of the formulas.
  int boxRows() const { return 2 * boxHalf + 1; }
  int reach() const { return static_cast<int>(taps.size()) + 1; }
  /// @}
};

}  // namespace datafusion::planex
