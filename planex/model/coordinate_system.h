#pragma once

#include <cstdint>

namespace datafusion::planex {

/// What the coordinates of a point mean.
enum class CoordinateSystem : std::int32_t {
  Pixel = 0,       ///< sensor column and row in pixels; in 3D the middle one is the profile index
  Calibrated = 1,  ///< X and Z in the laser plane; in 3D Y along the scan
  Aligned = 2,     ///< behind the pose; any other value means the same
};

}  // namespace datafusion::planex
