#include "planex/processing/frame_preparation.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "planex/foundation/memory_overlap.h"
#include "planex/infra/refusal.h"
#include "planex/processing/pixel_block.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;

constexpr int kTile = 32;  // columns and rows that are exchanged at a time, within a cache

bool refuse(const char* reason) { return base::refuse("Image.Extraction.Planex", reason); }

bool isFrame(const Image& frame) {
  return frame.GetType() == cmnalg::IMAGE_TYPE_UINT8 ||
         frame.GetType() == cmnalg::IMAGE_TYPE_UINT16;
}

template <typename Pixel>
const Pixel* rowOf(const Image& image, int row) {
  return reinterpret_cast<const Pixel*>(pixelAddress(image, 0, row));
}

template <typename Pixel>
void subtract(const Image& dark, Image& frame) {
  for (int v = 0; v < frame.GetHeight(); ++v) {
    const Pixel* __restrict less = rowOf<Pixel>(dark, v);
    Pixel* __restrict row = const_cast<Pixel*>(rowOf<Pixel>(frame, v));
    const int columns = frame.GetWidth();
#pragma omp simd
    for (int u = 0; u < columns; ++u) {
      row[u] = static_cast<Pixel>(row[u] - (less[u] < row[u] ? less[u] : row[u]));
    }
  }
}

template <typename Pixel>
void exchange(const Image& frame, Image& transposed) {
  const int columns = frame.GetWidth();
  const int rows = frame.GetHeight();
  for (int top = 0; top < rows; top += kTile) {
    for (int left = 0; left < columns; left += kTile) {
      for (int v = top; v < std::min(top + kTile, rows); ++v) {
        const Pixel* const from = rowOf<Pixel>(frame, v);
        for (int u = left; u < std::min(left + kTile, columns); ++u) {
          const_cast<Pixel*>(rowOf<Pixel>(transposed, u))[v] = from[u];
        }
      }
    }
  }
}

}  // namespace

bool subtractDark(const Image& dark, Image& frame) {
  if (!isFrame(frame) || dark.GetType() != frame.GetType() || dark.GetWidth() != frame.GetWidth() ||
      dark.GetHeight() != frame.GetHeight()) {
    return refuse("The dark frame must have the size and the type of the frames.");
  }
  if (frame.GetType() == cmnalg::IMAGE_TYPE_UINT8) {
    subtract<std::uint8_t>(dark, frame);
  } else {
    subtract<std::uint16_t>(dark, frame);
  }
  return true;
}

bool transpose(const Image& frame, Image& transposed) {
  if (!isFrame(frame)) return refuse("Frames must have pixels of 8 or 16 bits.");
  const bool fits = transposed.GetType() == frame.GetType() &&
                    transposed.GetWidth() == frame.GetHeight() &&
                    transposed.GetHeight() == frame.GetWidth();
  if (!fits && !transposed.Create(frame.GetType(), frame.GetHeight(), frame.GetWidth(), 0,
                                  Image::s_defaultImageAllocator)) {
    return false;
  }
  if (cmnalg::sharesMemory(frame, transposed)) {
    return refuse("Cannot reuse source image as target image.");
  }
  if (frame.GetType() == cmnalg::IMAGE_TYPE_UINT8) {
    exchange<std::uint8_t>(frame, transposed);
  } else {
    exchange<std::uint16_t>(frame, transposed);
  }
  transposed.PixelSize = {frame.PixelSize.y, frame.PixelSize.x, frame.PixelSize.z};
  transposed.Origin = {frame.Origin.y, frame.Origin.x, frame.Origin.z};
  return true;
}

}  // namespace datafusion::planex
