#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/infra/export.h"

namespace datafusion::planex {

/// The smallest and the largest of 16-bit intensities; empty at first.
struct IntensityLimits {
  std::uint16_t min = 65535;  ///< the smallest
  std::uint16_t max = 0;      ///< the largest

  /// Extends the limits to those of another part of the image.
  void Include(const IntensityLimits& other) {
    if (other.min < min) min = other.min;
    if (other.max > max) max = other.max;
  }
};

/// @param values `count` values, any count; 0 is a value like any other
/// @return their limits
PLANEX_EXPORT IntensityLimits findIntensityLimits(const std::uint16_t* values, std::size_t count);

/// Spreads 16-bit intensities over 8 bits:
///
///     out = round((v - min) 255 / (max - min))
///
/// rounded half away from zero; all 0 where max = min. Given the limits of a whole image, its parts
/// may be reduced one by one.
///
/// @param values `count` values, any count; those outside the limits count as the nearest limit
/// @param out    `count` bytes; must not overlap `values`
///
/// Reentrant.
PLANEX_EXPORT void reduceIntensities(const std::uint16_t* values, std::size_t count,
                                     const IntensityLimits& limits, std::uint8_t* out);

}  // namespace datafusion::planex
