#include "planex/model/model_recovery.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

#include "planex/model/model_file.h"

namespace datafusion::planex {
namespace {

constexpr std::string_view kKeyword = "SensorSize";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// The first run of digits at or behind `begin`; empty, at the end of the text, when there is none.
std::string_view digitsFrom(std::string_view text, std::size_t begin) {
  const auto first =
      std::find_if(text.begin() + static_cast<std::ptrdiff_t>(begin), text.end(), isDigit);
  const auto last = std::find_if_not(first, text.end(), isDigit);
  return text.substr(static_cast<std::size_t>(first - text.begin()),
                     static_cast<std::size_t>(last - first));
}

std::size_t endOf(std::string_view part, std::string_view text) {
  return static_cast<std::size_t>(part.data() - text.data()) + part.size();
}

/// The first match at or behind `begin`.
///
/// Where the leftmost keyword finds no two numbers, no later one does: it sees the same digits or
/// fewer. So nothing is scanned twice.
std::optional<SensorSizeMention> nextMention(std::string_view text, std::size_t begin) {
  const std::size_t keyword = text.find(kKeyword, begin);
  if (keyword == std::string_view::npos) return std::nullopt;
  const std::string_view first = digitsFrom(text, keyword + kKeyword.size());
  if (first.empty()) return std::nullopt;
  const std::string_view second = digitsFrom(text, endOf(first, text));
  if (!second.empty()) return SensorSizeMention{first, second};
  if (first.size() == 1) return std::nullopt;
  return SensorSizeMention{first.substr(0, first.size() - 1), first.substr(first.size() - 1)};
}

/// Whether the digits say `value`; a number beyond int says nothing.
bool agrees(std::string_view digits, int value) {
  int number = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return result.ec == std::errc() && number == value;
}

}  // namespace

std::optional<SensorSizeMention> findOnlySensorSize(std::string_view text) {
  const std::optional<SensorSizeMention> mention = nextMention(text, 0);
  if (mention && nextMention(text, endOf(mention->height, text))) return std::nullopt;
  return mention;
}

bool sensorSizeConfirms(std::string_view text, const CalibrationModel& partlyRead) {
  const std::optional<SensorSizeMention> mention = findOnlySensorSize(text);
  return mention && agrees(mention->width, partlyRead.SensorSize.x) &&
         agrees(mention->height, partlyRead.SensorSize.y);
}

}  // namespace datafusion::planex
