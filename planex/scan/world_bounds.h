#pragma once

#include <string>

#include "planex/api/records.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace planex::scan {

/// The part of the laser plane that range images of a sensor region can show, and how far apart
/// neighbouring points lie in it.
struct WorldBounds {
  double xMin, xMax, zMin, zMax;
  SplatSettings splat;
};

/// Samples the sensor region that `columns` columns of range values cover, and maps the samples to
/// calibrated coordinates.
///
/// Of each column the range values 1 and n = height / |scaleZ| - 1 are mapped, and of the first,
/// the middle and the last one all values from 1 to n; the bounds are those of all samples, NaN
/// left out. The splat settings are the least-squares line d = splatA Z + splatB over the values
/// from 1 to n: d is the distance of the samples in the first and the last column divided by
/// columns - 1, and Z that of the middle one. Without spread in Z, splatA is 2 and splatB the step
/// of the columns. These are the results of calculateCalibrationBounds of the C interface, for any
/// number of profiles.
///
/// @param modelName by which a Failure calls the model
/// A Failure when the region does not lie on the sensor, has more than 2^24 range values, or cannot
/// be mapped.
PLANEX_EXPORT WorldBounds worldBounds(const datafusion::planex::CalibrationModel& model,
                                      const SensorTraits& traits, int columns,
                                      const std::string& modelName);

/// A Failure unless the sensor region lies on the sensor of the model.
PLANEX_EXPORT void checkSensorRegion(const datafusion::planex::CalibrationModel& model,
                                     const SensorTraits& traits, const std::string& modelName);

/// What the 65535 values of a height map without 0, "nothing measured", stand for: value 1 for
/// zMin, 65535 for zMax.
///
///     Z = value * scale + origin,   scale = (zMax - zMin) / 65534,   origin = zMin - scale
struct ValueTransform {
  double scale, origin;
};
PLANEX_EXPORT ValueTransform valueTransformOf(double zMin, double zMax);

}  // namespace planex::scan
