#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/infra/export.h"

namespace planex::io {

/// Takes pixels apart that follow each other without gaps, the lower bits first, as Mono10p and
/// Mono12p of the Pixel Format Naming Convention.
/// @param bits   of a pixel: 10 or 12
/// @param packed (count bits + 7) / 8 bytes
/// @param pixels `count`
PLANEX_EXPORT void unpackPixels(int bits, const void* packed, std::size_t count,
                                std::uint16_t* pixels);

}  // namespace planex::io
