#include "planex/scan/resting_profile.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace planex::scan {
namespace {

constexpr int kMostRows = 256;

/// A sample of a row of any type; 0 and NaN are missing.
double sampleAt(const std::vector<char>& row, cmnalg::ImageType type, std::size_t column) {
  const auto as = [&](auto value) {
    std::memcpy(&value, row.data() + column * sizeof value, sizeof value);
    return static_cast<double>(value);
  };
  switch (type) {
    case cmnalg::IMAGE_TYPE_UINT8:
      return as(std::uint8_t{});
    case cmnalg::IMAGE_TYPE_UINT16:
      return as(std::uint16_t{});
    case cmnalg::IMAGE_TYPE_UINT32:
      return as(std::uint32_t{});
    default:
      return as(float{});
  }
}

double medianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

}  // namespace

RestingProfile readRestingProfile(io::ImageReader& image,
                                  const datafusion::planex::SensorRegion& region,
                                  cmnalg::Vec<2, int> size) {
  const io::ImageShape& shape = image.shape();
  const int rows = std::min(shape.height, kMostRows);
  std::vector<std::vector<double>> columns(static_cast<std::size_t>(shape.width));
  std::vector<std::size_t> early(columns.size());
  std::vector<char> row(shape.rowBytes());
  for (int i = 0; i < rows; ++i) {
    image.readRows(static_cast<int>(std::int64_t{shape.height} * i / rows), 1, row.data());
    for (std::size_t column = 0; column < columns.size(); ++column) {
      const double value = sampleAt(row, shape.type, column);
      if (value != 0 && !std::isnan(value)) columns[column].push_back(value);
      if (2 * (i + 1) <= rows) early[column] = columns[column].size();
    }
  }
  RestingProfile profile;
  std::vector<double> drifts;
  for (std::size_t column = 0; column < columns.size(); ++column) {
    const std::vector<double>& values = columns[column];
    if (values.empty() || 2 * values.size() < static_cast<std::size_t>(rows)) continue;
    const double u = region.originX + region.scaleX * static_cast<double>(column);
    const double v = region.originZ + region.scaleZ * medianOf(values);
    if (!(u > -0.5 && u < size.x - 0.5 && v > -0.5 && v < size.y - 0.5)) continue;
    profile.pixels.push_back({u, v});
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(early[column]);
    if (middle == values.begin() || middle == values.end()) continue;
    drifts.push_back(region.scaleZ *
                     (medianOf({middle, values.end()}) - medianOf({values.begin(), middle})));
  }
  if (!drifts.empty()) profile.drift = medianOf(std::move(drifts));
  return profile;
}

}  // namespace planex::scan
