#include "planex/scan/profile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

namespace planex::scan {
namespace {

std::int64_t countNumbers(const std::vector<float>& values) {
  return std::count_if(values.begin(), values.end(),
                       [](float value) { return !std::isnan(value); });
}

template <typename Sample>
std::vector<std::uint16_t> intensitiesOf(const void* samples, std::size_t count) {
  const auto* const first = static_cast<const Sample*>(samples);
  return {first, first + count};
}

}  // namespace

std::string Profile::toCsv(bool dropMissing) const {
  std::string text = intensity.empty() ? "x,z\n" : "x,z,intensity\n";
  const auto out = std::back_inserter(text);
  const auto add = [&](float value) {
    if (!std::isnan(value)) fmt::format_to(out, "{}", value);
  };
  for (std::size_t i = 0; i < z.size(); ++i) {
    if (dropMissing && std::isnan(z[i])) continue;
    add(x[i]);
    text += ',';
    add(z[i]);
    if (!intensity.empty()) fmt::format_to(out, ",{}", intensity[i]);
    text += '\n';
  }
  return text;
}

Profile readProfile(const RangeScan& scan, const IntensityImage* intensity, int row) {
  const auto width = static_cast<std::size_t>(scan.range.shape().width);
  CalibratedRows rows(scan);
  rows.readRows(row, 1);
  rows.process();
  Profile profile;
  profile.x.assign(rows.x().GetRowPtr(0), rows.x().GetRowPtr(0) + width);
  profile.z.assign(rows.z().GetRowPtr(0), rows.z().GetRowPtr(0) + width);
  profile.measured = countNumbers(profile.z);
  profile.outside = rows.outside();
  if (intensity == nullptr) return profile;
  IntensityRows intensities(*intensity);
  intensities.read(row, 1);
  profile.intensity = intensity->isBytes()
                          ? intensitiesOf<std::uint8_t>(intensities.values(), width)
                          : intensitiesOf<std::uint16_t>(intensities.values(), width);
  return profile;
}

Profile readProfile(HeightMap& map, int row) {
  Profile profile;
  profile.z.resize(static_cast<std::size_t>(map.columns()));
  map.readRows(row, 1, profile.z.data());
  for (float& z : profile.z) z = static_cast<float>(map.z().scale * z + map.z().origin);
  for (int column = 0; column < map.columns(); ++column) {
    profile.x.push_back(static_cast<float>(map.x().scale * column + map.x().origin));
  }
  profile.measured = countNumbers(profile.z);
  return profile;
}

int nearestRow(const YPositions& positions, int rows, double y) {
  int nearest = 0;
  double least = positions.at(0), most = least;
  for (int row = 1; row < rows; ++row) {
    const double at = positions.at(row);
    least = std::min(least, at);
    most = std::max(most, at);
    if (std::abs(at - y) < std::abs(positions.at(nearest) - y)) nearest = row;
  }
  const double step = rows > 1 ? (most - least) / (rows - 1)
                               : std::abs(positions.line().value_or(io::Axis{0, 0}).scale);
  return y >= least - step / 2 && y <= most + step / 2 ? nearest : -1;
}

}  // namespace planex::scan
