#include "planex/io/point_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <string_view>
#include <system_error>

#include "planex/io/failure.h"

namespace planex::io {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kLongestLine = 65536;

constexpr std::size_t kMostOthers = 1 << 22;  // bytes of other columns that are held
constexpr int kOther = -1;                    // in a layout: no coordinate

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// Reads a number that is all of the text.
std::errc parseField(std::string_view text, double& value) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ptr == text.data() + text.size() ? result.ec : std::errc::invalid_argument;
}

/// Also one that is too large.
bool isNumber(std::string_view text) {
  double value = 0;
  return parseField(text, value) != std::errc::invalid_argument;
}

bool isSameName(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

std::string shown(std::string_view text) {
  return fmt::format("'{:.40}'", inOneLine(std::string(text)));
}

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
    : path_(path), names_(names), file_(path == "-" ? stdin : std::fopen(path.c_str(), "rb")) {
  if (file_ == nullptr) {
    throw Failure(path_, std::string("cannot be opened (") + std::strerror(errno) +
                             "); check its name and permissions");
  }
}

PointReader::~PointReader() {
  if (file_ != stdin) std::fclose(file_);
}

bool PointReader::nextLine(std::string& line) {
  line.clear();
  errno = 0;
  int c = 0;
  while ((c = getc_unlocked(file_)) != EOF && c != '\n') {
    line += static_cast<char>(c);
    if (line.size() > kLongestLine) {
      throw Failure(
          path_, fmt::format("line {} is too long for a point; give a file of points", line_ + 1));
    }
  }
  if (std::ferror(file_) != 0) {
    throw Failure(path_, std::string("cannot be read (") + std::strerror(errno) +
                             "); check that it is a file on a working disk");
  }
  if (c == EOF && line.empty()) return false;
  if (++line_ == 1 && line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    line.erase(0, kByteOrderMark.size());
  }
  return true;
}

void PointReader::refuseLine(const std::string& problem) const {
  throw Failure(path_, fmt::format("line {}{}", line_, problem));
}

void PointReader::refuseColumn(std::size_t column, const std::string& problem) const {
  const bool named = column < heading_.size();
  refuseLine(fmt::format(", column {}{}: {} {}", column + 1,
                         named ? " (" + inOneLine(heading_[column]) + ")" : std::string(),
                         shown(fields_[column]), problem));
}

void PointReader::split(std::string_view line) {
  fields_.clear();
  const bool commas = line.find(',') != std::string_view::npos;
  const bool semicolons = line.find(';') != std::string_view::npos;
  if (commas && semicolons) {
    refuseLine(", " + shown(trimmed(line)) +
               ", has commas and semicolons; separate by one of them and write decimal points");
  }
  if (commas || semicolons) {
    const char separator = commas ? ',' : ';';
    std::size_t end = 0;
    while ((end = line.find(separator)) != std::string_view::npos) {
      fields_.push_back(trimmed(line.substr(0, end)));
      line.remove_prefix(end + 1);
    }
    fields_.push_back(trimmed(line));
    return;
  }
  for (line = trimmed(line); !line.empty();) {
    const std::size_t end = std::min(line.find_first_of(kBlanks), line.size());
    fields_.push_back(line.substr(0, end));
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks, end), line.size()));
  }
}

void PointReader::begin() {
  if (std::any_of(fields_.begin(), fields_.end(), isNumber)) {
    if (fields_.size() < 2) {
      refuseLine(", " + shown(fields_[0]) + ", is no point of 2 or 3 numbers; correct it");
    }
    dimensions_ = fields_.size() == 2 ? 2 : 3;
    layout_.assign(fields_.size(), kOther);
    for (int i = 0; i < dimensions_; ++i) layout_[static_cast<std::size_t>(i)] = i;
    return;
  }
  if (fields_[0].substr(0, 1) == "#") {
    fields_[0] = trimmed(fields_[0].substr(1));
    if (fields_[0].empty()) fields_.erase(fields_.begin());
  }
  findNames();
}

void PointReader::findNames() {
  std::array<std::size_t, 3> columns;
  columns.fill(fields_.size());
  for (std::size_t column = 0; column < fields_.size(); ++column) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (!isSameName(fields_[column], names_.names[i]) &&
          !isSameName(fields_[column], names_.others[i])) {
        continue;
      }
      if (columns[i] < fields_.size()) {
        refuseColumn(column,
                     fmt::format("names what column {} does; keep one of them", columns[i] + 1));
      }
      columns[i] = column;
    }
  }
  dimensions_ = columns[1] < fields_.size() ? 3 : 2;
  layout_.assign(fields_.size(), kOther);
  for (int i = 0; i < dimensions_; ++i) {
    const std::size_t coordinate = indexOf(i, dimensions_);
    if (columns[coordinate] == fields_.size()) {
      refuseLine(" names no column " + shownNames(names_, coordinate) +
                 "; name it, or leave out the line for the order of columns");
    }
    layout_[columns[coordinate]] = i;
  }
  heading_.assign(fields_.begin(), fields_.end());
}

void PointReader::takePoint(std::vector<TextPoint>& points) {
  if (fields_.size() != layout_.size()) {
    refuseLine(fmt::format(" has {} column{}, not {} as the first; correct it", fields_.size(),
                           fields_.size() == 1 ? "" : "s", layout_.size()));
  }
  const bool withOthers = columns() > dimensions_;
  if (withOthers) othersOfPoint_.push_back(others_.size());
  TextPoint point{};
  for (std::size_t column = 0; column < fields_.size(); ++column) {
    if (layout_[column] == kOther) {
      others_.append(fields_[column]);
      others_ += ',';
    } else if (parseField(fields_[column], point[static_cast<std::size_t>(layout_[column])]) !=
               std::errc()) {
      refuseColumn(column, "is no number; correct it");
    }
  }
  points.push_back(point);
}

bool PointReader::read(std::size_t count, std::vector<TextPoint>& points) {
  points.clear();
  others_.clear();
  othersOfPoint_.clear();
  std::string line;
  while (points.size() < count && others_.size() < kMostOthers && nextLine(line)) {
    split(line);
    if (fields_.empty()) continue;
    const auto quoted = std::find_if(fields_.begin(), fields_.end(), [](std::string_view field) {
      return field.find('"') != std::string_view::npos;
    });
    if (quoted != fields_.end()) {
      refuseColumn(static_cast<std::size_t>(quoted - fields_.begin()),
                   "is quoted; write it without quotes");
    }
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
    text += layout_[column] == kOther ? std::string_view(heading_[column])
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
