#include "planex/io/failure.h"

#include <algorithm>

namespace planex::io {

Failure::Failure(const std::string& text) : std::runtime_error(text) {}

Failure::Failure(const std::string& file, const std::string& text)
    : std::runtime_error(nameOf(file) + ": " + text) {}

Failure::~Failure() = default;

std::string Failure::nameOf(const std::string& file) {
  return file == "-" ? "standard input" : file;
}

std::string inOneLine(std::string text) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

}  // namespace planex::io
