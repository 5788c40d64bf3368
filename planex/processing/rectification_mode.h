#pragma once

#include <cstdint>

namespace datafusion::planex {

/// How a cell of the height map that several points cover is resolved.
enum class RectificationMode : std::uint32_t {
  MEAN = 0,       ///< average of all covering points
  LOWEST = 1,     ///< smallest quantised height
  HIGHEST = 2,    ///< largest quantised height
  DARKEST = 3,    ///< point of the smallest intensity
  BRIGHTEST = 4,  ///< point of the largest intensity
};

}  // namespace datafusion::planex
