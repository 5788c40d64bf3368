#pragma once

#include "planex/foundation/image.h"
#include "planex/infra/export.h"

namespace datafusion::planex {

/// Takes from a frame the light that is there without the laser, so that neither ramps nor hot
/// pixels are left: f - dark, 0 where that is below 0.
///
/// @param dark   of the size and type of the frame, UINT8 or UINT16
/// @param frame  changed in place
/// @return false, with one WARNING on "Image.Extraction.Planex" and the frame as it was, for others
///
/// Reentrant.
PLANEX_EXPORT bool subtractDark(const cmnalg::Image& dark, cmnalg::Image& frame);

/// Exchanges columns and rows of a frame, for lines that run along its columns; PixelSize and
/// Origin exchange x and y.
///
/// @param frame      UINT8 or UINT16
/// @param transposed created with rows without padding, unless it has the size and type already;
///                   another image than the frame
/// @return false, with one WARNING on "Image.Extraction.Planex", for other types and without memory
///
/// Reentrant.
PLANEX_EXPORT bool transpose(const cmnalg::Image& frame, cmnalg::Image& transposed);

}  // namespace datafusion::planex
