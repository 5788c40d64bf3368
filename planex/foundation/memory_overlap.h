#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/foundation/image.h"

namespace cmnalg {

/// Some bytes in memory.
struct Bytes {
  const void* begin;
  std::size_t size;
};

/// @return whether two runs of bytes share one; an empty run strictly inside another counts, too
inline bool overlaps(const Bytes& a, const Bytes& b) {
  const auto beginA = reinterpret_cast<std::uintptr_t>(a.begin);
  const auto beginB = reinterpret_cast<std::uintptr_t>(b.begin);
  return beginA < beginB + b.size && beginB < beginA + a.size;
}

/// The bytes from the first pixel of an image to its last, (height - 1) pitch + width pixels:
/// padding between rows belongs to it, that behind its last row may be another's. Empty without a
/// pixel.
inline Bytes extentOf(const Image& image) {
  const auto width = static_cast<std::size_t>(image.GetWidth());
  const auto height = static_cast<std::size_t>(image.GetHeight());
  const auto pitch = static_cast<std::size_t>(image.GetPitch());
  const std::size_t pixels = width > 0 && height > 0 ? (height - 1) * pitch + width : 0;
  return {image.GetData(), pixels * bytesPerPixel(image.GetType())};
}

/// @return whether two images are one object or their extents share a byte. Images whose rows take
///         turns in one buffer do, too, although no pixel of one is a pixel of the other
inline bool sharesMemory(const Image& a, const Image& b) {
  const Bytes bytesA = extentOf(a);
  const Bytes bytesB = extentOf(b);
  return &a == &b || (bytesA.size > 0 && bytesB.size > 0 && overlaps(bytesA, bytesB));
}

}  // namespace cmnalg
