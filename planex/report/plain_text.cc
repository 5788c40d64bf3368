#include "planex/report/plain_text.h"

#include <algorithm>
#include <cstddef>

#include "planex/io/utf8.h"

namespace planex::report {
namespace {

const char* const kEllipsis = "\xE2\x80\xA6";

bool continuesLetter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

/// Where the letter that begins at `begin` ends.
std::size_t endOfLetter(std::string_view text, std::size_t begin) {
  std::size_t end = begin + 1;
  while (end < text.size() && continuesLetter(text[end])) ++end;
  return end;
}

}  // namespace

std::string plainText(std::string_view text) {
  constexpr std::size_t kMostBytes = 256;
  const std::string good = io::asUtf8(text.substr(0, kMostBytes));
  std::string plain;
  for (std::size_t i = 0; i < good.size();) {
    const std::size_t end = endOfLetter(good, i);
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

std::string plainLine(std::string_view text, std::size_t most) {
  constexpr std::size_t kPiece = 252;  // of what plainText() takes, with a letter across the end
  std::string plain;
  std::size_t size = std::min(most, text.size());
  while (size > 0 && size < text.size() && continuesLetter(text[size])) --size;
  std::string_view rest = text.substr(0, size);
  while (!rest.empty()) {
    std::size_t end = std::min(kPiece, rest.size());
    for (int i = 0; i < 3 && end < rest.size() && continuesLetter(rest[end]); ++i) ++end;
    plain += plainText(rest.substr(0, end));
    rest.remove_prefix(end);
  }
  return size < text.size() ? plain + kEllipsis : plain;
}

std::string fitted(std::string_view text, double width, const TextStyle& style) {
  std::string plain = plainText(text);
  if (Canvas::textWidth(plain, style) <= width) return plain;
  while (!plain.empty() && Canvas::textWidth(plain + kEllipsis, style) > width) {
    while (!plain.empty() && continuesLetter(plain.back())) plain.pop_back();
    if (!plain.empty()) plain.pop_back();
  }
  return plain + kEllipsis;
}

std::vector<std::string> wrapped(std::string_view text, double width, const TextStyle& style,
                                 double indent) {
  constexpr std::size_t kMostBytes = 240;  // of what is drawn at once
  const std::string plain = plainLine(text);
  std::vector<std::string> lines(1);
  double room = width - indent;
  const auto fits = [&](const std::string& line) {
    return line.size() <= kMostBytes && Canvas::textWidth(line, style) <= room;
  };
  const auto nextLine = [&] {
    lines.emplace_back();
    room = width;
  };
  for (std::size_t begin = 0; begin < plain.size();) {
    std::size_t end = std::min(plain.find(' ', begin), plain.size());
    if (plain.compare(end, 2, " %") == 0) end = std::min(plain.find(' ', end + 1), plain.size());
    const std::string word = plain.substr(begin, end - begin);
    begin = end + 1;
    std::string longer = lines.back();
    if (!longer.empty()) longer += ' ';
    longer += word;
    if (fits(longer)) {
      lines.back() = longer;
      continue;
    }
    if (!lines.back().empty() || room < width) nextLine();
    for (std::size_t i = 0; i < word.size();) {
      const std::size_t next = endOfLetter(word, i);
      const std::string letter = word.substr(i, next - i);
      if (!lines.back().empty() && !fits(lines.back() + letter)) nextLine();
      lines.back() += letter;
      i = next;
    }
  }
  return lines;
}

}  // namespace planex::report
