#pragma once

#include <cstdint>
#include <functional>

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/vec.h"
#include "planex/processing/rectification_mode.h"

namespace datafusion::planex {

/// The cells of a height map: size, and PixelSize and Origin of an image of it.
struct HeightGrid {
  int width;
  int height;
  cmnalg::Vec<3, double> pixelSize;
  cmnalg::Vec<3, double> origin;
};

/// How wide points are spread: the arguments of the same names of toRectified.
struct SplatShape {
  cmnalg::Vec<2, double> lateralSpacing;
  double size;
};

/// Takes one finished row of `grid.width` heights, valid during the call. Rows come from the
/// threads of the team, those of one thread in increasing order; must not throw.
using HeightRowSink = std::function<void(int row, const std::uint16_t* heights)>;

// toRectified with cleared targets, row by row: the height map never exists as a whole, so that
// its memory need not be touched for maps far beyond the caches. Checks, warnings and values are
// those of toRectified with a valid target that allows missing data; nothing reaches the sink
// when the result is false.

bool toRectifiedRows(const cmnalg::Image& x, const cmnalg::Image& z, const SplatShape& splat,
                     RectificationMode mode, const HeightGrid& grid, const HeightRowSink& sink);

bool toRectifiedRows(const cmnalg::Image& x, const cmnalg::Image& z, const cmnalg::Image& intensity,
                     const SplatShape& splat, RectificationMode mode, const HeightGrid& grid,
                     cmnalg::ImageOf<std::uint8_t>& targetIntensity, const HeightRowSink& sink);

}  // namespace datafusion::planex
