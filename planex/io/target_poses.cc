#include "planex/io/target_poses.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <string_view>

#include "planex/io/failure.h"
#include "planex/io/text_table.h"

namespace planex::io {
namespace {

constexpr std::size_t kMostPoses = 4096;
constexpr std::size_t kCoordinates = 3;

enum Column { kX, kZ, kAngle, kSx, kSz, kSangle, kScan, kColumnCount };
constexpr std::array<std::string_view, kColumnCount> kNames = {"x",  "z",      "angle", "sx",
                                                               "sz", "sangle", "scan"};
/// Where the columns stand; the number of columns for one that is not there.
using Layout = std::vector<std::size_t>;

Layout layoutOf(TextTable& table) {
  table.takeHeading();
  const std::vector<std::string>& heading = table.heading();
  Layout layout = table.columnsNamed({kNames.begin(), kNames.end()});
  for (std::size_t column = 0; column < heading.size(); ++column) {
    if (std::find(layout.begin(), layout.end(), column) == layout.end()) {
      table.refuseColumn(column, "is none of scan, x, z, angle, sx, sz, sangle; correct it");
    }
  }
  if (layout[kScan] == heading.size()) {
    table.refuseLine(
        " names no column 'scan'; write a heading such as "
        "scan,x,z,angle,sx,sz,sangle above the poses");
  }
  return layout;
}

}  // namespace

std::vector<TargetPoseLine> readTargetPoses(const std::string& path) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  TextTable table(path);
  if (!table.next()) throw Failure(path, "is empty; give a file of poses");
  const Layout layout = layoutOf(table);
  const std::size_t columns = table.heading().size();
  std::vector<TargetPoseLine> poses;
  std::map<std::string, std::int64_t, std::less<>> lines;
  while (table.next()) {
    if (table.fields()[0].substr(0, 1) == "#") continue;
    table.requireFields(columns);
    if (poses.size() == kMostPoses) {
      throw Failure(path, fmt::format("has more than {} poses; take some away", kMostPoses));
    }
    std::array<double, 2 * kCoordinates> values;
    for (std::size_t i = 0; i < values.size(); ++i) {
      const std::size_t place = layout[i];
      const bool isEmpty = place == columns || table.fields()[place].empty();
      values[i] = isEmpty ? kNone : table.number(place);
      if (!isEmpty && !std::isfinite(values[i])) {
        table.refuseColumn(place, "is not finite; leave it empty where it is not known");
      }
      if (values[i] < 0 && i >= kCoordinates) table.refuseColumn(place, "is below 0");
    }
    for (std::size_t i = 0; i < kCoordinates; ++i) {
      double& deviation = values[kCoordinates + i];
      if (!std::isnan(values[i]) && std::isnan(deviation)) {
        table.refuseLine(fmt::format(" has {} without {}; say how well it is known, 0 if exactly",
                                     kNames[i], kNames[kCoordinates + i]));
      }
      if (std::isnan(values[i])) deviation = 0;
    }
    const std::string scan(table.fields()[layout[kScan]]);
    const auto [known, isNew] = lines.emplace(scan, table.line());
    if (!isNew) {
      table.refuseColumn(layout[kScan],
                         fmt::format("has a pose in line {} already", known->second));
    }
    poses.push_back({scan, values[kX], values[kZ], values[kAngle], values[kSx], values[kSz],
                     values[kSangle], table.line()});
  }
  return poses;
}

}  // namespace planex::io
