#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// A point of two or three coordinates; of two the third is 0.
using TextPoint = std::array<double, 3>;

/// Reads points from text: one a line, its numbers separated by commas, semicolons, blanks or tabs.
///
/// The first line may be a heading, which does not start with a number; empty lines and the byte
/// order mark of UTF-8 are left out. The first point says how many coordinates all have. Numbers
/// are written as in C, with a point whatever the locale, and may be nan or inf. A line with commas
/// and semicolons is refused: the commas may be meant as decimal ones. Memory holds one line.
class PLANEX_EXPORT PointReader {
 public:
  /// @param path "-": standard input. A Failure when the file cannot be opened
  explicit PointReader(const std::string& path);
  ~PointReader();
  PointReader(const PointReader&) = delete;
  PointReader& operator=(const PointReader&) = delete;

  /// Reads up to `count` more points into the list, which is emptied first.
  /// @return false when there are none left. A Failure names the line that is no point
  bool read(std::size_t count, std::vector<TextPoint>& points);

  /// 2 or 3; 0 before the first point was read.
  int dimensions() const { return dimensions_; }
  /// Whether the first line was a heading.
  bool hasHeading() const { return hasHeading_; }

 private:
  std::optional<TextPoint> parse(const std::string& line);
  bool nextLine(std::string& line);

  std::string path_;
  std::FILE* file_;
  std::int64_t line_ = 0;
  bool begun_ = false;  // a line that is not empty was read
  int dimensions_ = 0;
  bool hasHeading_ = false;
};

/// Appends "1.5,2,nan\n". Numbers have as many digits as reading back needs.
PLANEX_EXPORT void appendPoint(std::string& text, const TextPoint& point, int dimensions);

}  // namespace planex::io
