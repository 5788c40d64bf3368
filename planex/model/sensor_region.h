#pragma once

#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace datafusion::planex {

/// Where on the sensor the columns and values of a range image lie.
///
///     u = scaleX column + originX,   v = scaleZ value + originZ
///
/// in pixels, (0, 0) the centre of the first one. A value of 0 means that nothing was measured. A
/// negative scale says that the region extends towards smaller sensor coordinates.
struct SensorRegion {
  double scaleX = 1.0;   ///< column step of the range image, in sensor columns
  double originX = 0.0;  ///< sensor column of the first column of the range image
  double scaleZ = 1.0;   ///< step of the range values, in sensor rows
  double originZ = 0.0;  ///< sensor row of range value 0
  int width = 0;         ///< of the region, in sensor columns
  int height = 0;        ///< of the region, in sensor rows
};

/// Tells whether a region lies within the sensor of a model.
///
///     endX = originX + width sign(scaleX),    0 <= originX, endX <= sensor width
///     endZ = originZ + height sign(scaleZ),   0 <= originZ, endZ <= sensor height
///
/// in double. A scale of zero or NaN leaves its origin alone to be tested. A NaN origin is outside.
PLANEX_EXPORT bool isOnSensor(const CalibrationModel& model, const SensorRegion& region);

/// The largest range value of a region, height / |scaleZ| - 1: not a whole number in general, and
/// not finite for a scale of 0 or NaN.
PLANEX_EXPORT double lastRangeValue(const SensorRegion& region);

}  // namespace datafusion::planex
