#include "planex/processing/line_filter.h"

#include <cmath>
#include <cstddef>

namespace datafusion::planex {
namespace {

constexpr double kWidthPerSigma = 2.3548200450309493;  // 2 sqrt(2 log 2)
// With 8 bits, sums over the filter then fit in 16.
constexpr std::int64_t kTapSum = 128;

int rounded(double value) { return static_cast<int>(std::floor(value + 0.5)); }

/// k (K^2 - k^2)^2, made whole numbers that sum up to as much as rounding leaves of kTapSum.
etl::Vector<std::int32_t> derivativeTaps(std::int64_t reach) {
  const auto shape = [reach](std::int64_t k) {
    const std::int64_t fall = reach * reach - k * k;
    return k * fall * fall;
  };
  std::int64_t total = 0;
  for (std::int64_t k = 1; k < reach; ++k) total += shape(k);
  etl::Vector<std::int32_t> taps(static_cast<std::size_t>(reach - 1));
  for (std::int64_t wanted = kTapSum;; --wanted) {
    std::int64_t sum = 0;
    for (std::int64_t k = 1; k < reach; ++k) {
      const std::int64_t tap = (2 * shape(k) * wanted + total) / (2 * total);
      taps[static_cast<std::size_t>(k - 1)] = static_cast<std::int32_t>(tap);
      sum += tap;
    }
    if (sum <= kTapSum) return taps;
  }
}

}  // namespace

LineFilter::LineFilter(double lineWidth)
    : boxHalf(rounded(0.64 * lineWidth)), taps(derivativeTaps(rounded(1.7 * lineWidth))) {
  const double sigma = lineWidth / kWidthPerSigma;
  const double k = reach();
  chord = 1.0 / (2.0 * (sigma * sigma + k * k / 9.0));
  windowHalf = rounded(2.5 * sigma);
}

}  // namespace datafusion::planex
