#pragma once

#include <cstddef>
#include <cstdint>

namespace tavik::planex {

/// Spreads 16-bit intensities over 8 bits:
///
///     out = round((v - m) 255 / (M - m)),   m and M the smallest and largest of all values
///
/// rounded half away from zero; all 0 where M = m. The value 0 is a value like any other.
///
/// @param values `count` values, any count
/// @param out    `count` bytes; must not overlap `values`
void reduceTo8Bit(const std::uint16_t* values, std::size_t count, std::uint8_t* out);

}  // namespace tavik::planex
