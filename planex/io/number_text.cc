#include "planex/io/number_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <system_error>

namespace planex::io {
namespace {

std::optional<double> parseDecimal(std::string_view text) {
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<double> parseNumber(const std::string& text) {
  const std::string_view all = text;
  const std::size_t slash = all.find('/');
  std::optional<double> value = parseDecimal(all.substr(0, slash));
  if (value && slash != std::string_view::npos) {
    const std::optional<double> divisor = parseDecimal(all.substr(slash + 1));
    value = divisor ? std::optional<double>(*value / *divisor) : std::nullopt;
  }
  return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<std::vector<double>> parseNumberList(const std::string& text) {
  std::vector<double> numbers;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::optional<double> number = parseNumber(text.substr(begin, end - begin));
    if (!number) return std::nullopt;
    numbers.push_back(*number);
    begin = end + 1;
  }
  return numbers;
}

}  // namespace planex::io
