#include "planex/report/plain_text.h"

#include <algorithm>
#include <cstddef>

#include "planex/io/utf8.h"

namespace planex::report {

std::string plainText(std::string_view text) {
  constexpr std::size_t kMostBytes = 256;
  const std::string good = io::asUtf8(text.substr(0, kMostBytes));
  std::string plain;
  for (std::size_t i = 0; i < good.size();) {
    std::size_t end = i + 1;
    while (end < good.size() && (static_cast<unsigned char>(good[end]) & 0xC0) == 0x80) ++end;
    const std::string_view letter = std::string_view(good).substr(i, end - i);
    const auto isBetween = [letter](std::string_view first, std::string_view last) {
      return letter.size() == first.size() && letter >= first && letter <= last;
    };
    using namespace std::string_view_literals;
    const bool shows = !isBetween("\0"sv, "\x1F"sv) && letter != "\x7F"sv &&
                       !isBetween("\xC2\x80"sv, "\xC2\x9F"sv) &&          // C1
                       !isBetween("\xE2\x80\x8B"sv, "\xE2\x80\x8F"sv) &&  // U+200B ... 200F
                       !isBetween("\xE2\x80\xA8"sv, "\xE2\x80\xAE"sv) &&  // U+2028 ... 202E
                       !isBetween("\xE2\x81\xA0"sv, "\xE2\x81\xAF"sv);    // U+2060 ... 206F
    plain += shows ? letter : "?"sv;
    i = end;
  }
  return plain;
}

std::string fitted(std::string_view text, double width, const TextStyle& style) {
  std::string plain = plainText(text);
  if (Canvas::textWidth(plain, style) <= width) return plain;
  const std::string ellipsis = "\xE2\x80\xA6";
  while (!plain.empty() && Canvas::textWidth(plain + ellipsis, style) > width) {
    while (!plain.empty() && (static_cast<unsigned char>(plain.back()) & 0xC0) == 0x80) {
      plain.pop_back();
    }
    if (!plain.empty()) plain.pop_back();
  }
  return plain + ellipsis;
}

}  // namespace planex::report
