#include "planex/io/text_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

#include "planex/io/failure.h"

namespace planex::io {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kLongestLine = 65536;

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

}  // namespace

std::string shown(std::string_view text) {
  return fmt::format("'{:.40}'", inOneLine(std::string(text)));
}

bool isSameName(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

TextTable::TextTable(const std::string& path)
    : path_(path), file_(path == "-" ? stdin : std::fopen(path.c_str(), "rb")) {
  if (file_ == nullptr) {
    throw Failure(path_, std::string("cannot be opened (") + std::strerror(errno) +
                             "); check its name and permissions");
  }
}

TextTable::~TextTable() {
  if (file_ != stdin) std::fclose(file_);
}

bool TextTable::nextLine() {
  text_.clear();
  errno = 0;
  int c = 0;
  while ((c = getc_unlocked(file_)) != EOF && c != '\n') {
    text_ += static_cast<char>(c);
    if (text_.size() > kLongestLine) {
      throw Failure(
          path_, fmt::format("line {} is too long for a point; give a file of points", line_ + 1));
    }
  }
  if (std::ferror(file_) != 0) {
    throw Failure(path_, std::string("cannot be read (") + std::strerror(errno) +
                             "); check that it is a file on a working disk");
  }
  if (c == EOF && text_.empty()) return false;
  if (++line_ == 1 && text_.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    text_.erase(0, kByteOrderMark.size());
  }
  return true;
}

void TextTable::refuseLine(const std::string& problem) const {
  throw Failure(path_, fmt::format("line {}{}", line_, problem));
}

void TextTable::refuseColumn(std::size_t column, const std::string& problem) const {
  const bool named = column < heading_.size() && heading_[column] != fields_[column];
  refuseLine(fmt::format(", column {}{}: {} {}", column + 1,
                         named ? " (" + inOneLine(heading_[column]) + ")" : std::string(),
                         shown(fields_[column]), problem));
}

void TextTable::split(std::string_view line) {
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

bool TextTable::next() {
  do {
    if (!nextLine()) return false;
    split(text_);
  } while (fields_.empty());
  const auto quoted = std::find_if(fields_.begin(), fields_.end(), [](std::string_view field) {
    return field.find('"') != std::string_view::npos;
  });
  if (quoted != fields_.end()) {
    refuseColumn(static_cast<std::size_t>(quoted - fields_.begin()),
                 "is quoted; write it without quotes");
  }
  return true;
}

bool TextTable::isHeading() const { return std::none_of(fields_.begin(), fields_.end(), isNumber); }

void TextTable::takeHeading() {
  if (fields_[0].substr(0, 1) == "#") {
    fields_[0] = trimmed(fields_[0].substr(1));
    if (fields_[0].empty()) fields_.erase(fields_.begin());
  }
  heading_.assign(fields_.begin(), fields_.end());
}

std::vector<std::size_t> TextTable::columnsNamed(const std::vector<std::string_view>& names) const {
  std::vector<std::size_t> places(names.size(), heading_.size());
  for (std::size_t column = 0; column < heading_.size(); ++column) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (!isSameName(heading_[column], names[i])) continue;
      if (places[i] < heading_.size()) {
        refuseColumn(column,
                     fmt::format("names what column {} does; keep one of them", places[i] + 1));
      }
      places[i] = column;
    }
  }
  return places;
}

double TextTable::number(std::size_t column) const {
  double value = 0;
  if (parseField(fields_[column], value) != std::errc()) {
    refuseColumn(column, "is no number; correct it");
  }
  return value;
}

void TextTable::requireFields(std::size_t count) const {
  if (fields_.size() == count) return;
  refuseLine(fmt::format(" has {} column{}, not {} as the first; correct it", fields_.size(),
                         fields_.size() == 1 ? "" : "s", count));
}

}  // namespace planex::io
