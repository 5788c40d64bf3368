#pragma once

#include <cstdint>

namespace datafusion::planex {

/// Arithmetic of an image calibration: an odd value selects double precision, every other value
/// (negative ones included) single precision. Only this parity has an effect.
enum class RunMode : std::int32_t {
  SinglePrecision = 0,
  DoublePrecision = 1,
  Default = 2,  ///< single precision; what the C interface uses
};

/// @return whether the mode, modulo 2, equals 1
constexpr bool usesDoublePrecision(RunMode mode) {
  return static_cast<std::int32_t>(mode) % 2 == 1;
}

}  // namespace datafusion::planex
