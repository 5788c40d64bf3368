#pragma once

#include <cstdint>

#include "planex/foundation/vec.h"
#include "planex/infra/export.h"

namespace datafusion::planex {

/// World coordinates of the indices or values along one axis of a grid.
///
///     world = scale index + origin
struct GridAxis {
  double scale = 1.0;   ///< step of the index
  double origin = 0.0;  ///< world coordinate of index 0
};

/// The axis of `count` samples, the first of which stands for `first` and the last for `last`.
///
///     scale = (last - first) / (count - 1),   origin = first
///
/// Never fails: a count of 1 gives infinity or NaN.
PLANEX_EXPORT GridAxis sampleAxis(double first, double last, std::int64_t count);

/// The axis of the values 0 to levels - 1 of a height map, in which 0 is kept for missing data: 1
/// stands for `first` and levels - 1 for `last`.
///
///     scale = (last - first) / (levels - 2),   origin = first - scale
///
/// Never fails: 2 levels give infinity or NaN.
PLANEX_EXPORT GridAxis levelAxis(double first, double last, std::int64_t levels);

/// The cells of a height map: its size, and what its columns and levels stand for.
struct HeightGrid {
  int width = 0;    ///< columns
  int height = 0;   ///< rows, one a profile
  GridAxis x;       ///< of the columns
  GridAxis levels;  ///< of the 16-bit values

  /// Whether an image can be of this size and these scales: 1 to 2^31 - 1 cells, finite numbers,
  /// scales not negative.
  PLANEX_EXPORT bool IsConsistent() const;
};

}  // namespace datafusion::planex
