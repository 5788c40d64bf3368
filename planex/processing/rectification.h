#pragma once

#include <cstdint>

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/vec.h"
#include "planex/infra/export.h"
#include "planex/processing/height_grid.h"
#include "planex/processing/rectification_mode.h"

namespace datafusion::planex {

/// Resamples calibrated points onto the regular columns of a height map, row by row.
///
/// Every point of a source row is spread over the target columns [c - w, c + w] of the same row:
///
///     c = round((X - Origin.x) / PixelSize.x)        half away from zero
///     h = (Z - Origin.z) / PixelSize.z               MEAN; q = h truncated in the other modes
///     w = round(0.55 splatSize spacing(Z) / PixelSize.x), from 0 to 15
///
/// with PixelSize and Origin of the target, X and Z the physical values of the sources, and
/// spacing(Z) = lateralSpacing.x Z + lateralSpacing.y. The factor 0.55 makes neighbouring splats
/// overlap by a tenth. MEAN uses points with 0 < h <= 65535, the other modes with 1 <= q <= 65535.
/// A missing Z (0 in an integer image, NaN in a floating one), and a column that is NaN or beyond
/// 32 bits, drop the point.
///
/// A cell that several points cover is resolved by the mode; ties keep what came first, and a cell
/// that already holds a value takes part (`clearTarget` false):
///
///     MEAN       truncated average of all h; merged, an old value weighs as much as all points
///     LOWEST     smallest q; an empty cell (0) takes any
///     HIGHEST    largest q
///
/// @param x, z           calibrated sources of equal size, each UINT8, UINT16, UINT32, UINT64,
///                       FLOAT32 or FLOAT64
/// @param lateralSpacing lateral distance of neighbouring points as a line over Z, in world units
/// @param splatSize      factor on the spacing, not negative
/// @param mode           MEAN, LOWEST or HIGHEST
/// @param target         the height map, of the sources' height, with MissingData; its PixelSize
///                       and Origin define the grid
/// @param clearTarget    start from empty cells; false: merge into what the target holds
/// @return true when the rows were rectified; false with one warning on
///         "Image.Calibration.Planex" and untouched targets: "One or more input images are
///         invalid. Please check your input.", "Target image must be a valid image.", "X and Z
///         inputs must be of the same size.", "Target image must have the same height as the
///         source image.", "Splat size should be larger than 0.0.", "Target image must allow
///         missing data.", "Cannot reuse source image as target image." (images that share
///         memory). For a source type without measurements false without a message, for a mode
///         that needs intensity "Intensity must be provided to use rectification modes BRIGHTEST
///         or DARKEST."; the target has been cleared by then if asked for.
///
/// Throws std::bad_alloc when there is no memory for scratch (some rows per thread). Different
/// targets may be rectified on different threads at once.
PLANEX_EXPORT bool toRectified(const cmnalg::Image& x, const cmnalg::Image& z,
                               const cmnalg::Vec<2, double>& lateralSpacing,
                               const double& splatSize, RectificationMode mode,
                               cmnalg::ImageOf<std::uint16_t>& target, bool clearTarget);

/// The same with an intensity for every point, which goes to the cells that the point wins; MEAN
/// averages it, rounded half up. Two more modes choose by it:
///
///     DARKEST    smallest intensity; an empty cell takes any
///     BRIGHTEST  intensity above the stored one: a point of intensity 0 never fills a cell
///
/// In a merged MEAN the old intensity weighs as much as all points together wherever the new
/// height is not 0, whether or not the cell held a height before.
///
/// @param intensity       UINT8, of the sources' size
/// @param targetIntensity of the target's height and at least its width
/// @return as above; the texts here are "One or more input images are invalid. Please check your
///         input.", "Target images must be valid.", "X, Z and I inputs must be of the same size.",
///         "Target images must have the same height as the source images.", "Intensity image must
///         be of UINT8 type.", "Splat size should be larger than 0.", "Target image must allow
///         missing data.", "Cannot reuse source image as target image.", "The intensity target
///         must be at least as wide as the target image.", and after clearing "Unsupported
///         rectification mode."
PLANEX_EXPORT bool toRectified(const cmnalg::Image& x, const cmnalg::Image& z,
                               const cmnalg::Image& intensity,
                               const cmnalg::Vec<2, double>& lateralSpacing,
                               const double& splatSize, RectificationMode mode,
                               cmnalg::ImageOf<std::uint16_t>& target,
                               cmnalg::ImageOf<std::uint8_t>& targetIntensity, bool clearTarget);

/// How wide points are spread: the arguments of the same meaning of toRectified.
struct SplatShape {
  cmnalg::Vec<2, double> lateralSpacing;  ///< as calculateWorldBounds() gives it
  double size = 1.0;                      ///< factor on the spacing, not negative
};

/// Resamples calibrated points straight to world heights: toRectified with a cleared target on the
/// grid, and toWorldHeights with its levels, row by row. The 16-bit map never exists as a whole, so
/// that its memory need not be touched for maps far beyond the caches.
///
/// @param x, z, mode     as in toRectified
/// @param grid           the cells, as high as the sources
/// @param missing        value of cells that no point fell into
/// @param targetHeights  in the size of the grid. May share memory with the sources: it is then
///                       filled at the end, from a copy. Its PixelSize and Origin stay as they were
/// @return as toRectified; the texts are "One or more input images are invalid. Please check your
///         input.", "X and Z inputs must be of the same size.", "Target image must have the same
///         height as the source image.", "Splat size should be larger than 0.0.", "The height
///         target must be as large as the grid.", "Intensity must be provided to use rectification
///         modes BRIGHTEST or DARKEST."
///
/// Throws std::bad_alloc when there is no memory for scratch or a copy.
PLANEX_EXPORT bool toRectifiedWorld(const cmnalg::Image& x, const cmnalg::Image& z,
                                    const SplatShape& splat, RectificationMode mode,
                                    const HeightGrid& grid, float missing,
                                    cmnalg::ImageOf<float>& targetHeights);

/// The same with an intensity for every point, see toRectified.
///
/// @param targetHeights   null where only the intensity is wanted; must not share memory with
///                        `targetIntensity`
/// @param targetIntensity of the grid's height and at least its width; must not share memory with a
///                        source
/// @return as toRectified with an intensity, and "The height target must be as large as the grid."
PLANEX_EXPORT bool toRectifiedWorld(const cmnalg::Image& x, const cmnalg::Image& z,
                                    const cmnalg::Image& intensity, const SplatShape& splat,
                                    RectificationMode mode, const HeightGrid& grid, float missing,
                                    cmnalg::ImageOf<float>* targetHeights,
                                    cmnalg::ImageOf<std::uint8_t>& targetIntensity);

}  // namespace datafusion::planex
