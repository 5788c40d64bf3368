#include "planex/io/utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace planex::io {
namespace {

/// The least and the greatest second byte behind a first one, and the length of the sequence.
struct Sequence {
  unsigned char first, last, least, greatest;
  std::size_t length;
};

constexpr Sequence kSequences[] = {
    {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

bool isBetween(char c, unsigned char least, unsigned char greatest) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= least && byte <= greatest;
}

/// The length of the sequence that the text, which is not empty, begins with; 0 for none.
std::size_t sequenceLength(std::string_view text) {
  for (const Sequence& s : kSequences) {
    if (!isBetween(text[0], s.first, s.last)) continue;
    if (text.size() < s.length) return 0;
    if (s.length > 1 && !isBetween(text[1], s.least, s.greatest)) return 0;
    const std::string_view rest =
        text.substr(0, s.length).substr(std::min<std::size_t>(s.length, 2));
    const bool good =
        std::all_of(rest.begin(), rest.end(), [](char c) { return isBetween(c, 0x80, 0xBF); });
    return good ? s.length : 0;
  }
  return 0;
}

/// The text with another one for every byte that is not part of a well-formed sequence.
template <typename Replace>
std::string converted(std::string_view text, Replace&& replaced) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    if (length > 0) {
      result += text.substr(0, length);
    } else {
      result += replaced(text[0]);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

}  // namespace

std::string asUtf8(std::string_view text) {
  return converted(text, [](char) { return std::string("?"); });
}

std::string escapedUtf8(std::string_view text) {
  std::string doubled;
  for (const char c : text) doubled.append(c == '\\' ? 2 : 1, c);
  return converted(doubled, [](char c) {
    return fmt::format("\\x{:02X}", static_cast<unsigned>(static_cast<unsigned char>(c)));
  });
}

std::string unescapedUtf8(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view rest = text.substr(i);
    unsigned char byte = 0;
    if (rest.size() >= 4 && rest[0] == '\\' && rest[1] == 'x' &&
        std::from_chars(rest.data() + 2, rest.data() + 4, byte, 16).ec == std::errc()) {
      result += static_cast<char>(byte);
      i += 3;
    } else {
      result += rest[0];
      if (rest[0] == '\\') ++i;
    }
  }
  return result;
}

}  // namespace planex::io
