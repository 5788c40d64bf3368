#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/infra/export.h"
#include "planex/processing/height_grid.h"

namespace datafusion::planex {

/// Turns values of a 16-bit height map into world heights:
///
///     out = fma(value, scale, origin)   in float, with one rounding; `missing` for 0
///
/// with the scale and origin of the axis rounded to float first.
///
/// @param values `count` values, any count
/// @param levels what the values stand for, see levelAxis()
/// @param out    `count` floats; must not overlap `values`
///
/// Reentrant.
PLANEX_EXPORT void toWorldHeights(const std::uint16_t* values, std::size_t count,
                                  const GridAxis& levels, float missing, float* out);

}  // namespace datafusion::planex
