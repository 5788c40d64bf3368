#include "planex/io/measured_points.h"

#include <fmt/format.h>

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

constexpr std::size_t kMostPoints = std::size_t{1} << 22;

enum Column { kU, kV, kX, kZ, kSigma, kScan, kColumnCount };
constexpr std::array<std::string_view, kColumnCount> kNames = {"u", "v", "x", "z", "sigma", "scan"};

/// Where the columns stand; the number of columns for one that is not there.
using Layout = std::array<std::size_t, kColumnCount>;

Layout layoutOf(TextTable& table) {
  table.takeHeading();
  const std::vector<std::string>& heading = table.heading();
  Layout layout;
  layout.fill(heading.size());
  for (std::size_t column = 0; column < heading.size(); ++column) {
    for (std::size_t i = 0; i < layout.size(); ++i) {
      if (!isSameName(heading[column], kNames[i])) continue;
      if (layout[i] < heading.size()) {
        table.refuseColumn(
            column, fmt::format("names what column {} does; keep one of them", layout[i] + 1));
      }
      layout[i] = column;
    }
  }
  const bool havePlaces = layout[kX] < heading.size() || layout[kZ] < heading.size();
  for (const std::size_t wanted : {kU, kV, kX, kZ}) {
    if (layout[wanted] == heading.size() && (havePlaces || wanted < kX)) {
      table.refuseLine(" names no column " + shown(kNames[wanted]) +
                       "; write a heading such as u,v,x,z above the points");
    }
  }
  return layout;
}

}  // namespace

MeasuredPoints readMeasuredPoints(const std::string& path) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  TextTable table(path);
  if (!table.next()) throw Failure(path, "is empty; give a file of measured points");
  const Layout layout = layoutOf(table);
  const std::size_t columns = table.heading().size();
  MeasuredPoints result;
  result.havePlaces = layout[kX] != columns;
  std::map<std::string, int, std::less<>> places;
  const auto placeOf = [&](std::string_view name) {
    const auto known = places.find(name);
    if (known != places.end()) return known->second;
    const int place = static_cast<int>(result.scans.size());
    result.scans.emplace_back(name);
    places.emplace(name, place);
    return place;
  };
  while (table.next()) {
    if (table.fields()[0].substr(0, 1) == "#") continue;
    table.requireFields(columns);
    if (result.points.size() == kMostPoints) {
      throw Failure(path, fmt::format("has more than {} points; thin them out", kMostPoints));
    }
    const auto numberOf = [&](Column column) {
      const std::size_t place = layout[column];
      return place == columns || table.fields()[place].empty() ? kNone : table.number(place);
    };
    const std::size_t scan = layout[kScan];
    MeasuredPoint point{
        numberOf(kU),     numberOf(kV),
        numberOf(kX),     numberOf(kZ),
        numberOf(kSigma), placeOf(scan == columns ? std::string_view(path) : table.fields()[scan]),
        table.line()};
    for (const Column column : {kU, kV}) {
      if (!std::isfinite(numberOf(column))) table.refuseColumn(layout[column], "is not finite");
    }
    for (const Column column : {kX, kZ}) {
      if (result.havePlaces && !table.fields()[layout[column]].empty() &&
          !std::isfinite(numberOf(column))) {
        table.refuseColumn(layout[column], "is not finite; leave it empty where it is not known");
      }
    }
    if (result.havePlaces && std::isnan(point.x) && std::isnan(point.z)) {
      table.refuseLine(" has neither x nor z; leave it out");
    }
    if (layout[kSigma] != columns && !(point.sigma > 0 && std::isfinite(point.sigma))) {
      table.refuseColumn(layout[kSigma], "is not above 0");
    }
    result.points.push_back(point);
  }
  return result;
}

}  // namespace planex::io
