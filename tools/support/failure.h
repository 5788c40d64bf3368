#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>

namespace planex_tools {

/// Ends a command: exit status 1, and this text as one sentence on standard error.
///
/// The text names the file and says what to do about it: "scan.png: is cut off after row 12; copy
/// it again". Mistakes on the command line are CLI::ValidationError instead, exit status 2.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  /// "FILE: TEXT"
  Failure(const std::string& file, const std::string& text)
      : std::runtime_error(nameOf(file) + ": " + text) {}

  /// How texts call a file: by its name, and what "-" stands for by what it is.
  static std::string nameOf(const std::string& file) {
    return file == "-" ? "standard input" : file;
  }
};

/// The text as one line: names of files and members may hold line ends and what moves the cursor,
/// which become '?'.
inline std::string inOneLine(std::string text) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

}  // namespace planex_tools
