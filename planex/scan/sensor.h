#pragma once

#include <optional>
#include <string>

#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/model/sensor_region.h"
#include "planex/model/world_bounds.h"

namespace planex::scan {

/// Where on the sensor a range image lies, as far as it is given.
struct SensorSettings {
  std::optional<double> scaleX;   ///< sensor columns per image column; not 0
  std::optional<double> originX;  ///< sensor column of image column 0
  std::optional<double> scaleZ;   ///< sensor rows per step of the values; not 0
  std::optional<double> originZ;  ///< sensor row of value 0
  std::optional<double> width;    ///< columns of the region, a whole number of 1 to 65535
  std::optional<double> height;   ///< rows of the region, likewise
  std::string sidecar;            ///< a JSON file; empty: IMAGE.json where that exists
};

/// The sensor region of a range image.
///
/// Settings come first, then the members of the object "sensor" (scaleX, originX, scaleZ, originZ,
/// width, height) of the sidecar, a JSON file, then the full sensor of the model in sixteenths of a
/// pixel: scaleX 1, originX 0, scaleZ 1/16, originZ 0, and sizes up to the edge of the sensor.
/// Members may be missing.
///
/// @param image      the range image, whose sidecar is its name with ".json" behind it; empty: none
/// @param modelName  the file of the model, for what a Failure says of it
/// A Failure for a sidecar that was named and cannot be read or has no such object, for one that is
/// not JSON, for members that are spelt otherwise, no finite numbers or out of range, and for a
/// sensor that ends before the origin.
PLANEX_EXPORT datafusion::planex::SensorRegion resolveSensor(
    const SensorSettings& settings, const std::string& image,
    const datafusion::planex::CalibrationModel& model, const std::string& modelName);

/// A Failure unless the region lies on the sensor of the model.
PLANEX_EXPORT void checkSensorRegion(const datafusion::planex::CalibrationModel& model,
                                     const datafusion::planex::SensorRegion& region,
                                     const std::string& modelName);

/// What calculateWorldBounds() gives; a Failure where it gives none.
/// @param columns of range images of the region
PLANEX_EXPORT datafusion::planex::WorldBounds worldBounds(
    const datafusion::planex::CalibrationModel& model,
    const datafusion::planex::SensorRegion& region, int columns, const std::string& modelName);

}  // namespace planex::scan
