#pragma once

#include <cstddef>

#include "planex/foundation/image.h"

namespace datafusion::planex {

/// The columns [columnBegin, columnEnd) of the rows [rowBegin, rowEnd).
struct PixelBlock {
  int columnBegin;
  int columnEnd;
  int rowBegin;
  int rowEnd;

  bool IsEmpty() const { return columnBegin >= columnEnd || rowBegin >= rowEnd; }
  /// Of a block that is inside an image, so that the difference has a 32-bit value.
  int Columns() const { return columnEnd - columnBegin; }
  bool HasColumnsInside(const cmnalg::Image& image) const {
    return columnBegin >= 0 && columnEnd <= image.GetWidth();
  }
  bool IsInside(const cmnalg::Image& image) const {
    return HasColumnsInside(image) && rowBegin >= 0 && rowEnd <= image.GetHeight();
  }
};

/// Address of pixel (column, row) of an image of any type; indices are not checked.
inline const std::byte* pixelAddress(const cmnalg::Image& image, int column, int row) {
  const std::ptrdiff_t pixel = static_cast<std::ptrdiff_t>(row) * image.GetPitch() + column;
  return static_cast<const std::byte*>(image.GetData()) +
         pixel * static_cast<std::ptrdiff_t>(cmnalg::bytesPerPixel(image.GetType()));
}

}  // namespace datafusion::planex
