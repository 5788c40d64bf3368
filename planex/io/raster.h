#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "planex/processing/height_grid.h"

namespace planex::io {

/// The samples of a raster.
enum class SampleType { kUint8, kUint16, kFloat32 };

/// Bytes of one sample.
constexpr std::size_t bytesOf(SampleType type) {
  return type == SampleType::kUint8 ? 1 : type == SampleType::kUint16 ? 2 : 4;
}

/// A line from indices, or stored values, to the world: world = scale * index + origin.
using Axis = datafusion::planex::GridAxis;

/// What a raster file says about itself.
struct RasterDescription {
  int width = 0;                           ///< columns
  int height = 0;                          ///< rows; 0: as many as are written
  SampleType sample = SampleType::kUint8;  ///< of all layers
  std::vector<std::string> layers;         ///< their names; one or more
  /// Where columns lie, at the centres of the cells; nothing where there is no such grid.
  std::optional<Axis> columns;
  std::optional<Axis> rows;       ///< where rows lie
  std::optional<Axis> values;     ///< what stored values mean, where that is a length
  std::optional<double> missing;  ///< the stored value of cells without measurement; may be NaN
  std::string unit;               ///< of all lengths
  std::string rowUnit;            ///< of Y where it is no length: "rows"

  /// Bytes of one row of one layer.
  std::size_t rowBytes() const { return static_cast<std::size_t>(width) * bytesOf(sample); }
};

/// The ending of a file name in lower case, ".png"; empty where it has none.
inline std::string endingOf(const std::string& path) {
  const std::size_t dot = path.find_last_of("./");
  if (dot == std::string::npos || path[dot] != '.') return {};
  std::string ending = path.substr(dot);
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return ending;
}

}  // namespace planex::io
