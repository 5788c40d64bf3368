#pragma once

#include <stdexcept>
#include <string>

#include "planex/infra/export.h"

namespace planex::io {

/// Says why a file, or what it holds, cannot be used: what the functions of this library throw for
/// bad input.
///
/// The text is one sentence that names the file and says what to do about it: "scan.png: is cut off
/// after row 12; copy it again".
class PLANEX_EXPORT Failure : public std::runtime_error {
 public:
  /// The text as it stands.
  explicit Failure(const std::string& text);
  /// "FILE: TEXT"
  Failure(const std::string& file, const std::string& text);
  ~Failure() override;

  /// How texts call a file: by its name, and what "-" stands for by what it is.
  static std::string nameOf(const std::string& file);
};

/// The text as one line: names of files and members may hold line ends and what moves the cursor,
/// which become '?'.
PLANEX_EXPORT std::string inOneLine(std::string text);

}  // namespace planex::io
