#include "planex/io/point_text.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <string_view>

namespace planex::io {
namespace {

constexpr std::size_t kMostOthers = 1 << 22;  // bytes of other columns that are held
constexpr int kOther = -1;                    // in a layout: no coordinate

/// The names of a coordinate, "'row' or 'v'".
std::string shownNames(const CoordinateNames& names, std::size_t coordinate) {
  std::string text = shown(names.names[coordinate]);
  if (names.others[coordinate] != names.names[coordinate]) {
    text += " or " + shown(names.others[coordinate]);
  }
  return text;
}

/// Which of the three a coordinate of a point is.
std::size_t indexOf(int coordinate, int dimensions) {
  return static_cast<std::size_t>(dimensions == 2 ? 2 * coordinate : coordinate);
}

void appendNumber(std::string& text, double value) {
  if (std::isnan(value)) {
    text += "nan";
  } else {
    fmt::format_to(std::back_inserter(text), "{}", value);
  }
}

}  // namespace

PointReader::PointReader(const std::string& path, const CoordinateNames& names)
    : table_(path), names_(names) {}

void PointReader::begin() {
  if (table_.isHeading()) return findNames();
  const std::vector<std::string_view>& fields = table_.fields();
  if (fields.size() < 2) {
    table_.refuseLine(", " + shown(fields[0]) + ", is no point of 2 or 3 numbers; correct it");
  }
  dimensions_ = fields.size() == 2 ? 2 : 3;
  layout_.assign(fields.size(), kOther);
  for (int i = 0; i < dimensions_; ++i) layout_[static_cast<std::size_t>(i)] = i;
}

void PointReader::findNames() {
  table_.takeHeading();
  const std::vector<std::string_view>& fields = table_.fields();
  std::array<std::size_t, 3> columns;
  columns.fill(fields.size());
  for (std::size_t column = 0; column < fields.size(); ++column) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (!isSameName(fields[column], names_.names[i]) &&
          !isSameName(fields[column], names_.others[i])) {
        continue;
      }
      if (columns[i] < fields.size()) {
        table_.refuseColumn(
            column, fmt::format("names what column {} does; keep one of them", columns[i] + 1));
      }
      columns[i] = column;
    }
  }
  dimensions_ = columns[1] < fields.size() ? 3 : 2;
  layout_.assign(fields.size(), kOther);
  for (int i = 0; i < dimensions_; ++i) {
    const std::size_t coordinate = indexOf(i, dimensions_);
    if (columns[coordinate] == fields.size()) {
      table_.refuseLine(" names no column " + shownNames(names_, coordinate) +
                        "; name it, or leave out the line for the order of columns");
    }
    layout_[columns[coordinate]] = i;
  }
}

void PointReader::takePoint(std::vector<TextPoint>& points) {
  table_.requireFields(layout_.size());
  const bool withOthers = columns() > dimensions_;
  if (withOthers) othersOfPoint_.push_back(others_.size());
  TextPoint point{};
  for (std::size_t column = 0; column < layout_.size(); ++column) {
    if (layout_[column] == kOther) {
      others_.append(table_.fields()[column]);
      others_ += ',';
    } else {
      point[static_cast<std::size_t>(layout_[column])] = table_.number(column);
    }
  }
  points.push_back(point);
}

bool PointReader::read(std::size_t count, std::vector<TextPoint>& points) {
  points.clear();
  others_.clear();
  othersOfPoint_.clear();
  while (points.size() < count && others_.size() < kMostOthers && table_.next()) {
    if (dimensions_ == 0) {
      begin();
      if (hasHeading()) continue;
    }
    takePoint(points);
  }
  return !points.empty();
}

std::string PointReader::heading(const CoordinateNames& names) const {
  std::string text;
  for (std::size_t column = 0; column < layout_.size(); ++column) {
    text += layout_[column] == kOther ? std::string_view(table_.heading()[column])
                                      : names.names[indexOf(layout_[column], dimensions_)];
    text += column + 1 < layout_.size() ? ',' : '\n';
  }
  return text;
}

void PointReader::append(std::string& text, std::size_t i, const TextPoint& point) const {
  std::size_t other = othersOfPoint_.empty() ? 0 : othersOfPoint_[i];
  for (std::size_t column = 0; column < layout_.size(); ++column) {
    if (layout_[column] == kOther) {
      const std::size_t end = others_.find(',', other);
      text.append(others_, other, end - other);
      other = end + 1;
    } else {
      appendNumber(text, point[static_cast<std::size_t>(layout_[column])]);
    }
    text += column + 1 < layout_.size() ? ',' : '\n';
  }
}

void appendPoint(std::string& text, const TextPoint& point, int dimensions) {
  for (int i = 0; i < dimensions; ++i) {
    appendNumber(text, point[static_cast<std::size_t>(i)]);
    text += i + 1 < dimensions ? ',' : '\n';
  }
}

}  // namespace planex::io
