#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "planex/foundation/pixel_type.h"

namespace planex::acquisition {

/// How a camera sends pixels, by the names of the Pixel Format Naming Convention.
struct PixelFormat {
  int bits = 8;                                       ///< of a pixel, gaps included
  cmnalg::ImageType type = cmnalg::IMAGE_TYPE_UINT8;  ///< of what is made of it

  /// Mono8, Mono10, Mono12, Mono16, Mono10p, Mono12p and Coord3D_C16; nothing for others.
  static std::optional<PixelFormat> named(const std::string& name);

  /// Bytes of so many pixels.
  std::size_t bytes(std::size_t pixels) const {
    return (pixels * static_cast<std::size_t>(bits) + 7) / 8;
  }
};

/// Writes pixels out that follow each other without gaps, the lower bits first.
/// @param packed format.bytes(count) bytes
/// @param pixels `count` of format.type
void unpack(const PixelFormat& format, const void* packed, std::size_t count, void* pixels);

}  // namespace planex::acquisition
