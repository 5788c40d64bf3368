#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

#include "planex/foundation/image_of.h"
#include "tests/support/byte_source.h"

namespace test {

/// A number in the type of a pixel or a coordinate. Beyond its limits an integer stays at the
/// limit (a NaN becomes 0), a floating type is infinite.
template <typename T>
T narrowed(double value) {
  constexpr double kLargest = static_cast<double>(std::numeric_limits<T>::max());
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(std::abs(value) > kLargest ? std::copysign(INFINITY, value) : value);
  } else {
    if (!(value > 0)) return T{0};
    return value < kLargest ? static_cast<T>(value) : std::numeric_limits<T>::max();
  }
}

/// Mostly a number of pixels or a small coordinate.
inline double drawNumber(ByteSource& source) {
  return source.Between(0, 7) == 0 ? source.Real() : source.Between(0, 255) / 4.0;
}

/// A scale of measured values: mostly a plain one.
inline double drawScale(ByteSource& source) {
  return source.Between(0, 15) == 0 ? source.Real() : source.Between(1, 40) / 10.0;
}

/// Any amount of numbers from a few bytes: eight drawn ones in a random order, each moved on by up
/// to fifteen steps.
class Samples {
 public:
  explicit Samples(ByteSource& source)
      : step_(source.OneOf(kSteps)), state_(source.Raw<std::uint8_t>()) {
    for (double& value : drawn_) value = drawNumber(source);
  }

  template <typename T>
  T Next() {
    state_ = state_ * 1664525U + 1013904223U;
    const std::uint32_t number = state_ >> 16;
    return narrowed<T>(drawn_[number % 8] + step_ * (number / 8 % 16));
  }

 private:
  static constexpr double kSteps[] = {0, 0.3, 1, 7, 100};
  double step_;
  std::uint32_t state_;
  double drawn_[8];
};

/// Calls body with a value of a drawn pixel type.
template <typename Body>
void withPixelType(ByteSource& source, Body&& body) {
  const int type = source.Between(0, 5);
  if (type == 0) body(std::uint8_t{});
  if (type == 1) body(std::uint16_t{});
  if (type == 2) body(std::uint32_t{});
  if (type == 3) body(std::uint64_t{});
  if (type == 4) body(float{});
  if (type == 5) body(double{});
}

/// An image in memory that ends with its last pixel.
template <typename Pixel>
struct Drawn {
  Drawn(ByteSource& source, int width, int height, int mostPadding = 2) {
    const int pitch = width + source.Between(0, mostPadding);
    pixels.resize(static_cast<std::size_t>(std::max(1, (height - 1) * pitch + width)));
    Samples samples(source);
    for (Pixel& pixel : pixels) pixel = samples.Next<Pixel>();
    image.Create(pixels.data(), width, height, pitch, false, cmnalg::Image::s_defaultImageAllocator,
                 false);
    const int kind = source.Between(0, 7);
    if (kind == 0) image.PixelSize.z += source.Between(-2, 2) * 6e-14;  // about as good as 1
    if (kind < 4) return;
    image.PixelSize = {drawScale(source), 3, drawScale(source)};
    image.Origin = {drawNumber(source), 4, drawNumber(source)};
  }
  std::vector<Pixel> pixels;
  cmnalg::ImageOf<Pixel> image;
};

}  // namespace test
