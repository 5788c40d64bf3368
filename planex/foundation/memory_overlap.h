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

/// @return whether two images are one object or their pixel buffers share a byte
inline bool sharesMemory(const Image& a, const Image& b) {
  const Bytes bytesA{a.GetData(), a.GetRawBufferSize()};
  const Bytes bytesB{b.GetData(), b.GetRawBufferSize()};
  return &a == &b || (bytesA.size > 0 && bytesB.size > 0 && overlaps(bytesA, bytesB));
}

}  // namespace cmnalg
