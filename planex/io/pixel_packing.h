#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "planex/infra/export.h"

namespace planex::io {

/// How many bits of a pixel carry its value, by the name of its format in the Pixel Format Naming
/// Convention: Mono8, Mono10, Mono12, Mono16, Mono10p or Mono12p; nothing for others.
PLANEX_EXPORT std::optional<int> usedBits(std::string_view pixelFormat);

/// Takes pixels apart that follow each other without gaps, the lower bits first, as Mono10p and
/// Mono12p of the Pixel Format Naming Convention.
/// @param bits   of a pixel: 10 or 12
/// @param packed (count bits + 7) / 8 bytes
/// @param pixels `count`
PLANEX_EXPORT void unpackPixels(int bits, const void* packed, std::size_t count,
                                std::uint16_t* pixels);

}  // namespace planex::io
