#pragma once

#include <cstdint>

#include "planex/foundation/image.h"

namespace datafusion::planex {

/// @return whether two images are one object or their pixel buffers share a byte
inline bool sharesMemory(const cmnalg::Image& a, const cmnalg::Image& b) {
  if (&a == &b) return true;
  if (a.GetRawBufferSize() == 0 || b.GetRawBufferSize() == 0) return false;
  const auto beginA = reinterpret_cast<std::uintptr_t>(a.GetData());
  const auto beginB = reinterpret_cast<std::uintptr_t>(b.GetData());
  return beginA < beginB + b.GetRawBufferSize() && beginB < beginA + a.GetRawBufferSize();
}

}  // namespace datafusion::planex
