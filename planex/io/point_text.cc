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
#include <utility>

#include "planex/io/failure.h"

namespace planex::io {
namespace {

constexpr std::string_view kSeparators = ",; \t\r\n";
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kLongestLine = 65536;

/// Takes a number and the separator behind it off the text: one of , ; or any blanks.
bool takeNumber(std::string_view& text, double& value) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return false;
  text.remove_prefix(begin);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
  if (text.empty()) return true;
  if (kSeparators.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  if (!text.empty() && (text.front() == ',' || text.front() == ';')) {
    text.remove_prefix(1);
    return text.find_first_not_of(kBlanks) != std::string_view::npos;  // a number must follow
  }
  return true;
}

/// Whether a line names its columns: it is text that does not start with a number, not even one too
/// large.
bool isHeading(const std::string& line) {
  if (line.find('\0') != std::string::npos) return false;
  double value = 0;
  const std::size_t begin = std::min(line.find_first_not_of(" \t+"), line.size());
  const auto result = std::from_chars(line.data() + begin, line.data() + line.size(), value);
  return result.ec == std::errc::invalid_argument;
}

}  // namespace

PointReader::PointReader(const std::string& path)
    : path_(path), file_(path == "-" ? stdin : std::fopen(path.c_str(), "rb")) {
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

std::optional<TextPoint> PointReader::parse(const std::string& line) {
  if (line.find(',') != std::string::npos && line.find(';') != std::string::npos) {
    return std::nullopt;
  }
  std::string_view rest = line;
  TextPoint point{};
  int count = 0;
  while (rest.find_first_not_of(kBlanks) != std::string_view::npos) {
    double value = 0;
    if (count == 3 || !takeNumber(rest, value)) return std::nullopt;
    point[static_cast<std::size_t>(count++)] = value;
  }
  if (dimensions_ == 0 && (count == 2 || count == 3)) dimensions_ = count;
  return count == dimensions_ && count > 0 ? std::optional(point) : std::nullopt;
}

bool PointReader::read(std::size_t count, std::vector<TextPoint>& points) {
  points.clear();
  std::string line;
  while (points.size() < count && nextLine(line)) {
    if (line.find_first_not_of(kBlanks) == std::string::npos) continue;
    const bool first = !std::exchange(begun_, true);
    if (const std::optional<TextPoint> point = parse(line)) {
      points.push_back(*point);
    } else if (first && isHeading(line)) {
      hasHeading_ = true;
    } else {
      line.erase(line.find_last_not_of(kBlanks) + 1);
      throw Failure(path_, fmt::format("line {}, '{:.40}', is no point of {} numbers; correct it",
                                       line_, inOneLine(line),
                                       dimensions_ == 0 ? "2 or 3" : fmt::to_string(dimensions_)));
    }
  }
  return !points.empty();
}

void appendPoint(std::string& text, const TextPoint& point, int dimensions) {
  for (int i = 0; i < dimensions; ++i) {
    const double value = point[static_cast<std::size_t>(i)];
    if (std::isnan(value)) {
      text += "nan";
    } else {
      fmt::format_to(std::back_inserter(text), "{}", value);
    }
    text += i + 1 < dimensions ? ',' : '\n';
  }
}

}  // namespace planex::io
