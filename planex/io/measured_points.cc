#include "planex/io/measured_points.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <map>
#include <string_view>

#include "planex/io/failure.h"
#include "planex/io/input_file.h"
#include "planex/io/npy_header.h"
#include "planex/io/raster.h"
#include "planex/io/text_table.h"

namespace planex::io {
namespace {

constexpr std::size_t kMostPoints = std::size_t{1} << 22;

enum Column { kU, kV, kX, kZ, kSigma, kScan, kColumnCount };
constexpr std::array<std::string_view, kColumnCount> kNames = {"u", "v", "x", "z", "sigma", "scan"};

/// Where the columns stand; the number of columns for one that is not there.
using Layout = std::vector<std::size_t>;

Layout layoutOf(TextTable& table) {
  table.takeHeading();
  const std::vector<std::string>& heading = table.heading();
  Layout layout = table.columnsNamed({kNames.begin(), kNames.end()});
  const bool havePlaces = layout[kX] < heading.size() || layout[kZ] < heading.size();
  for (const std::size_t wanted : {kU, kV, kX, kZ}) {
    if (layout[wanted] == heading.size() && (havePlaces || wanted < kX)) {
      table.refuseLine(" names no column " + shown(kNames[wanted]) +
                       "; write a heading such as u,v,x,z above the points");
    }
  }
  return layout;
}

[[noreturn]] void refuseMore(const std::string& path) {
  throw Failure(path, fmt::format("has more than {} points; thin them out", kMostPoints));
}

constexpr std::size_t kArrayColumns = 4;

bool isPointArray(const NpyHeader& header) {
  const bool isFourWide = header.shape.size() == 2 && header.shape[1] == kArrayColumns;
  return header.type == "f8" || (header.type == "f4" && isFourWide);
}

/// Values in the order of the host as float64.
template <typename Real>
void convert(const NpyHeader& header, const std::vector<char>& bytes, std::vector<double>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::array<char, sizeof(Real)> one{};
    std::memcpy(one.data(), bytes.data() + i * one.size(), one.size());
    if (header.isSwapped) std::reverse(one.begin(), one.end());
    Real value;
    std::memcpy(&value, one.data(), one.size());
    values[i] = static_cast<double>(value);
  }
}

void requirePoint(const std::string& path, const MeasuredPoint& point) {
  const auto refuse = [&](const char* what) {
    throw Failure(path, fmt::format("row {} {}", point.line, what));
  };
  if (!std::isfinite(point.u) || !std::isfinite(point.v)) {
    refuse("has a u or v that is not finite; leave it out");
  }
  if (std::isinf(point.x) || std::isinf(point.z)) {
    refuse("has an x or z that is infinite; write NaN where it is not known");
  }
  if (std::isnan(point.x) && std::isnan(point.z)) refuse("has neither x nor z; leave it out");
}

/// u, v, x and z in the rows of an array.
MeasuredPoints readArray(const std::string& path) {
  const InputFile file(path);
  const NpyHeader header = readNpyHeader(file, path);
  if (!isPointArray(header) || header.shape.size() != 2 || header.shape[1] != kArrayColumns ||
      !header.isRowMajor) {
    throw Failure(path,
                  "is no array of points; save rows of u, v, x and z as float32 or float64, in C "
                  "order");
  }
  if (header.shape[0] > kMostPoints) refuseMore(path);
  const std::size_t rowBytes = kArrayColumns * (header.type == "f4" ? 4 : 8);
  const auto count = static_cast<std::size_t>(header.shape[0]);
  requireNpyBytes(file, path, header, count * rowBytes);

  constexpr std::size_t kRowsAtOnce = 4096;
  MeasuredPoints result;
  result.isArray = true;
  result.scans = {path};
  result.points.reserve(count);
  std::vector<char> bytes;
  std::vector<double> values;
  for (std::size_t first = 0; first < count; first += kRowsAtOnce) {
    const std::size_t rows = std::min(kRowsAtOnce, count - first);
    bytes.resize(rows * rowBytes);
    values.resize(rows * kArrayColumns);
    if (file.readAt(header.begin + first * rowBytes, bytes.data(), bytes.size()) != bytes.size()) {
      throw Failure(path, fmt::format("ends within the rows from {} on; copy it again", first));
    }
    (header.type == "f4" ? convert<float> : convert<double>)(header, bytes, values);
    for (std::size_t i = 0; i < rows; ++i) {
      const double* const at = values.data() + i * kArrayColumns;
      result.points.push_back({at[0], at[1], at[2], at[3], std::numeric_limits<double>::quiet_NaN(),
                               0, static_cast<std::int64_t>(first + i)});
      requirePoint(path, result.points.back());
    }
  }
  return result;
}

}  // namespace

bool holdsPointArray(const std::string& path) {
  if (endingOf(path) != ".npy") return false;  // a pipe can be opened once
  try {
    return isPointArray(readNpyHeader(InputFile(path), path));
  } catch (const Failure&) {
    return false;
  }
}

MeasuredPoints readMeasuredPoints(const std::string& path) {
  if (holdsPointArray(path)) return readArray(path);
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
    if (result.points.size() == kMostPoints) refuseMore(path);
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
