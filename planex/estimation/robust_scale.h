#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace planex::estimation {

/// The upper one of the middle values. Some are required.
inline double upperMedian(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// The standard deviation of normal numbers around 0 from the median of their sizes, which large
/// ones among them do not move.
///
/// Source: Rousseeuw and Croux, Alternatives to the median absolute deviation, Journal of the
/// American Statistical Association 88(424), 1993.
inline double normalDeviation(std::vector<double> sizes) {
  constexpr double kNormalMedian = 1.4826;
  return kNormalMedian * upperMedian(std::move(sizes));
}

}  // namespace planex::estimation
