#include "tools/support/y_positions.h"

#include <algorithm>
#include <cstddef>

#include "tools/support/failure.h"
#include "tools/support/model_file.h"
#include "tools/support/options.h"

namespace planex_tools {
namespace {

/// A line without the blanks around it.
std::string trimmed(const std::string& line) {
  const char* const blanks = " \t\r,;";
  const std::size_t first = line.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  return line.substr(first, line.find_last_not_of(blanks) - first + 1);
}

std::vector<double> readPositions(const std::string& path, int rows) {
  const std::string text = readTextFile(path);
  std::vector<double> positions;
  std::size_t number = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = trimmed(text.substr(begin, end - begin));
    begin = end + 1;
    ++number;
    if (line.empty()) continue;
    const std::optional<double> position = parseNumber(line);
    if (!position)
      throw Failure(path, "line " + std::to_string(number) + " is no number; correct it");
    positions.push_back(*position);
  }
  if (positions.size() != static_cast<std::size_t>(rows)) {
    throw Failure(path, "holds " + std::to_string(positions.size()) + " positions for the " +
                            std::to_string(rows) + " rows of the image; give one for each");
  }
  return positions;
}

}  // namespace

void addYOptions(CLI::App& command, YOptions& options, bool withFile) {
  CLI::Option* scale =
      addNumberOption(command, "--y-scale", options.scale, "Distance of neighbouring rows [1]");
  CLI::Option* offset = addNumberOption(command, "--y-offset", options.offset, "Y of row 0 [0]");
  if (!withFile) return;
  command
      .add_option("--y-file", options.file, "File with the Y of every row of the image, one a line")
      ->type_name("FILE")
      ->excludes(scale)
      ->excludes(offset);
}

YPositions::YPositions(const YOptions& options, int rows)
    : line_{options.scale.value_or(1), options.offset.value_or(0)} {
  if (!options.file.empty()) positions_ = readPositions(options.file, rows);
}

std::optional<Axis> YPositions::line() const {
  return positions_.empty() ? std::optional<Axis>(line_) : std::nullopt;
}

}  // namespace planex_tools
