#pragma once

#include "planex/api/records.h"
#include "planex/model/calibration_model.h"

namespace tavik::planex {

/// -1, 0 or +1; 0 for NaN.
inline double signOf(double value) { return value > 0.0 ? 1.0 : value < 0.0 ? -1.0 : 0.0; }

/// Tests that a sensor region lies within the sensor of the model.
///
///     endX = originX + width sign(scaleX),    0 <= originX, endX <= sensor width
///     endZ = originZ + height sign(scaleZ),   0 <= originZ, endZ <= sensor height
///
/// in double. A negative scale lets the region extend towards smaller coordinates, a scale of zero
/// or NaN leaves the origin alone to be tested. A NaN origin is refused.
///
/// @param size not looked at
///
/// Throws the CalibrationException "Sensor traits does not match the model".
void checkSensorTraitsConsistent(const datafusion::planex::CalibrationModel& model,
                                 SensorTraits traits, ImageSize size);

}  // namespace tavik::planex
