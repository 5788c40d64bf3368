#include "planex/io/failure.h"

#include <algorithm>
#include <cstddef>

#include "planex/io/utf8.h"

namespace planex::io {

Failure::Failure(const std::string& text) : std::runtime_error(text) {}

Failure::Failure(const std::string& file, const std::string& text)
    : std::runtime_error(nameOf(file) + ": " + text) {}

Failure::~Failure() = default;

std::string Failure::nameOf(const std::string& file) {
  return file == "-" ? "standard input" : file;
}

std::string inOneLine(std::string text) {
  text = asUtf8(text);
  // U+0080 to U+009F, which terminals obey like the others, are C2 80 to C2 9F.
  for (std::size_t at = 0; (at = text.find('\xC2', at)) != std::string::npos; ++at) {
    if (static_cast<unsigned char>(text[at + 1]) < 0xA0) text.replace(at, 2, "?");
  }
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

}  // namespace planex::io
