#include "planex/scan/y_positions.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "planex/io/failure.h"
#include "planex/io/input_file.h"
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

YPositions::YPositions(const std::string& path, int rows) : file_(path) {
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

YPositions resolveY(const RowSettings& settings, const ScanSidecar& sidecar, int rows) {
  const bool isLine = settings.positions.empty() && (settings.scale || sidecar.positions.empty());
  if (!isLine && settings.positions.empty() && settings.origin) {
    throw Failure(sidecar.path,
                  "rows.positions have no origin; give --y-scale, too, or no --y-offset");
  }
  const std::string& file = settings.positions.empty() ? sidecar.positions : settings.positions;
  if (!isLine && settings.positions.empty()) io::InputFile{file};
  const std::optional<double> scale = settings.scale ? settings.scale : sidecar.scaleY;
  const double origin = settings.origin.value_or(sidecar.originY.value_or(0));
  YPositions y =
      isLine ? YPositions({scale.value_or(1), origin}, scale.has_value()) : YPositions(file, rows);
  constexpr double kMost = std::numeric_limits<float>::max();
  for (int row = 0; row < rows; row += isLine ? std::max(rows - 1, 1) : 1) {
    if (std::abs(y.at(row)) <= kMost) continue;
    const std::string fault = "puts row " + std::to_string(row) + " beyond all numbers; correct it";
    if (isLine)
      throw Failure(settings.scale || !sidecar.scaleY ? "--y-scale" : sidecar.path, fault);
    throw Failure(file, fault);
  }
  return y;
}

}  // namespace planex::scan
