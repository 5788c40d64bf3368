#pragma once

#include <optional>
#include <string>

#include "planex/api/records.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace planex::scan {

/// Where on the sensor a range image lies, as far as it is given.
struct SensorSettings {
  std::optional<double> scaleX, originX, scaleZ, originZ;  ///< the scales are not 0
  std::optional<double> width, height;                     ///< whole numbers of 1 to 65535
  std::string sidecar;  ///< a JSON file; empty: IMAGE.json where that exists
};

/// The traits of a range image.
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
PLANEX_EXPORT SensorTraits resolveSensor(const SensorSettings& settings, const std::string& image,
                                         const datafusion::planex::CalibrationModel& model,
                                         const std::string& modelName);

}  // namespace planex::scan
