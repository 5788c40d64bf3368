#pragma once

#include <cstdint>

#include "planex/foundation/interval.h"
#include "planex/foundation/vec.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/model/sensor_region.h"

namespace datafusion::planex {

/// The part of the laser plane that range images of a sensor region can show, and how far apart
/// neighbouring points lie in it.
struct WorldBounds {
  cmnalg::math::Interval x;  ///< along the laser line, in world units
  cmnalg::math::Interval z;  ///< the range, in world units
  /// The lateral distance of neighbouring points as a line over Z, lateralSpacing.x Z +
  /// lateralSpacing.y, as toRectified takes it.
  cmnalg::Vec<2, double> lateralSpacing{};
};

/// What became of the bounds, in the order of the checks.
enum class WorldBoundsResult : std::int32_t {
  Calculated = 0,
  OutsideSensor = 1,       ///< isOnSensor() is false
  InvalidRangeValues = 2,  ///< lastRangeValue() is not finite, or more than 2^24
  NotMappable = 3,         ///< mapPoints() refuses the model, with a warning that tells why
};

/// Computes the bounds of a sensor region in the laser plane, and the lateral spacing of its
/// points.
///
/// With w columns, rMax = lastRangeValue(region) and n = trunc(rMax), the samples are, as (column,
/// range value):
///
///     two rows        (0..w-1, 1) and (0..w-1, rMax)
///     three columns   (0, 1..n), (w-1, 1..n) and ((w-1) / 2, 1..n)
///
/// Each becomes the pixel point (scaleX column + originX, scaleZ value + originZ) and is mapped to
/// calibrated coordinates. The bounds are the smallest and largest of what is not NaN; without any
/// number the intervals are empty.
///
/// The spacing is the least-squares line d = lateralSpacing.x Z + lateralSpacing.y over the range
/// values 1..n: d is the distance between the samples of the first and the last column, divided by
/// w - 1, and Z that of the middle column. Without enough spread in Z it is 2 Z + (x.max - x.min) /
/// (w - 1).
///
/// @param columns of the range images, 2 or more for a spacing that is a number
/// @param bounds  written on success only
///
/// Memory does not depend on how many samples there are. Reentrant.
PLANEX_EXPORT WorldBoundsResult calculateWorldBounds(const CalibrationModel& model,
                                                     const SensorRegion& region, int columns,
                                                     WorldBounds& bounds);

}  // namespace datafusion::planex
