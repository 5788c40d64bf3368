#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

#include "planex/foundation/pixel_type.h"

namespace cmnalg {

/// A pixel of any type as a double; RGB gives the mean of its channels.
template <typename T>
double pixelToDouble(T value) {
  return static_cast<double>(value);
}
inline double pixelToDouble(PixelRGB value) {
  return (static_cast<double>(value.r) + value.g + value.b) / 3.0;
}

/// v truncated toward zero and clamped to the range of I; 0 for NaN.
template <typename I>
I clampedTo(double v) {
  constexpr double kLow = static_cast<double>(std::numeric_limits<I>::min());
  // One past the largest value: a power of two, so exact also for 64 bits.
  constexpr double kEnd = static_cast<double>(I{1} << (std::numeric_limits<I>::digits - 1)) * 2.0;
  if (!(v == v)) return 0;
  if (v >= kEnd) return std::numeric_limits<I>::max();
  if (v <= kLow) return std::numeric_limits<I>::min();
  return static_cast<I>(v);
}

/// v as a pixel of type T: floating types store it, integers of up to 32 bits keep the low bits of
/// v clamped to the 32-bit integer of their signedness, RGB has the low byte in every channel.
template <typename T>
T pixelFromDouble(double v) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(v);
  } else if constexpr (std::is_same_v<T, PixelRGB>) {
    const auto level = pixelFromDouble<std::uint8_t>(v);
    return PixelRGB{level, level, level};
  } else {
    using Narrow = std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>;
    return static_cast<T>(clampedTo<std::conditional_t<(sizeof(T) > 4), T, Narrow>>(v));
  }
}

}  // namespace cmnalg
