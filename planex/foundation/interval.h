#pragma once

#include <limits>

namespace cmnalg::math {

/// The smallest and the largest of some numbers.
///
/// Starts out empty, with min > max, or with given bounds. A NaN changes nothing, unless it is a
/// bound from the start: then it stays.
struct Interval {
  double min = std::numeric_limits<double>::infinity();   ///< the smallest
  double max = -std::numeric_limits<double>::infinity();  ///< the largest

  /// Widens the interval to `value`.
  void Include(double value) {
    if (value < min) min = value;
    if (value > max) max = value;
  }

  /// Whether no number was included.
  bool IsEmpty() const { return min > max; }
};

}  // namespace cmnalg::math
