#pragma once

#include "planex/api/records.h"
#include "planex/model/calibration_model.h"

namespace tavik::planex {

/// The refusal of every size or scale that the world bounds and rectification cannot work with.
inline constexpr const char* kInvalidScaleMessage = "Invalid data in sensor traits scale X / Z";

/// The world box that a sensor region covers, and how far apart its points lie.
///
/// With w x h the size of the images and n = trunc(height / |scaleZ| - 1) range values, the samples
/// are, as (column, row, range value):
///
///     four outlines  (0..w-1, y, r)  for (y, r) = (0, 1), (0, rMax), (h-1, 1), (h-1, rMax)
///     five columns   (c, y, 1..n)    for (c, y) = (0, 0), (0, h-1), (w-1, 0), (w-1, h-1),
///                                                 ((w-1) / 2, 0)
///
/// with rMax = height / |scaleZ| - 1 not truncated. Each becomes the pixel point (scaleX column +
/// originX, row, scaleZ value + originZ) and is mapped to calibrated coordinates with Y = row. The
/// box is the minimum and maximum of what is not NaN (+inf and -inf where there is nothing).
///
/// The splat settings are the least-squares line d = splatA Z + splatB: d is the distance in the
/// laser plane between the samples of the first and the last column of row 0 at one range value,
/// divided by w - 1, and Z that of the middle column. Without enough spread in Z, splatA is 2 and
/// splatB the column step of the box. splatC is 1.
///
/// @param size                  w and h, which are the xCount and yCount of the result too
/// @param bounds, splatSettings written on success only
///
/// Throws the CalibrationExceptions of checkSensorTraitsConsistent(), "Invalid data in sensor
/// traits scale X / Z" when n is not finite or exceeds 2^24, and "The sensor region could not be
/// mapped to world coordinates" when the mapping refuses the model (with a WARNING of its own).
/// Memory and results do not depend on how many samples are mapped at a time.
void calculateCalibrationBoundsModel(const datafusion::planex::CalibrationModel& model,
                                     SensorTraits traits, ImageSize size, WorldRangeTraits& bounds,
                                     SplatSettings& splatSettings);

/// World coordinates of the indices and values of a height map: see rangeTraitsToTransform().
RangeTransform transformOf(const WorldRangeTraits& traits);

}  // namespace tavik::planex
