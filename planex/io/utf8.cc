#include "planex/io/utf8.h"

#include <algorithm>
#include <cstddef>

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

}  // namespace

std::string asUtf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    result += length > 0 ? text.substr(0, length) : std::string_view("?");
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

}  // namespace planex::io
