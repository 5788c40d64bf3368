#include "planex/scan/y_positions.h"

#include <algorithm>

#include "planex/io/failure.h"
#include "planex/io/model_file.h"
#include "planex/io/number_text.h"

namespace planex::scan {
namespace {

using io::Failure;

/// A line without the blanks around it.
std::string trimmed(const std::string& line) {
  const char* const blanks = " \t\r,;";
  const std::size_t first = line.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  return line.substr(first, line.find_last_not_of(blanks) - first + 1);
}

}  // namespace

YPositions::YPositions(const std::string& path, int rows) {
  const std::string text = io::readTextFile(path);
  std::size_t number = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = trimmed(text.substr(begin, end - begin));
    begin = end + 1;
    ++number;
    if (line.empty()) continue;
    const std::optional<double> position = io::parseNumber(line);
    if (!position)
      throw Failure(path, "line " + std::to_string(number) + " is no number; correct it");
    positions_.push_back(*position);
  }
  if (positions_.size() != static_cast<std::size_t>(rows)) {
    throw Failure(path, "holds " + std::to_string(positions_.size()) + " positions for the " +
                            std::to_string(rows) + " rows of the image; give one for each");
  }
}

std::optional<io::Axis> YPositions::line() const {
  return positions_.empty() ? std::optional<io::Axis>(line_) : std::nullopt;
}

}  // namespace planex::scan
