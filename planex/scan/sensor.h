#pragma once

#include <optional>
#include <string>

#include "planex/foundation/pixel_type.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/model/sensor_region.h"
#include "planex/model/world_bounds.h"
#include "planex/scan/sidecar.h"

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

/// The sensor region of a range image, and what of it rests on no statement.
struct ResolvedSensor : datafusion::planex::SensorRegion {
  bool scaleZStated = false;  ///< by a setting or the sidecar
};

/// The sensor region of a range image.
///
/// Settings come first, then what the sidecar says of the sensor, then the full sensor of the model
/// in sixteenths of a pixel: scaleX 1, originX 0, scaleZ 1/16, originZ 0, and sizes up to the edge
/// of the sensor. Values of 8 bits would not reach beyond 16 rows then, and floats have fractions
/// of their own: they are rows, scaleZ 1.
///
/// @param modelName  the file of the model, for what a Failure says of it
/// @param type       of the range values
/// A Failure for a sensor that ends before the origin.
PLANEX_EXPORT ResolvedSensor resolveSensor(const SensorSettings& settings,
                                           const ScanSidecar& sidecar,
                                           const datafusion::planex::CalibrationModel& model,
                                           const std::string& modelName,
                                           cmnalg::ImageType type = cmnalg::IMAGE_TYPE_UINT16);

/// The same with the sidecar that readScanSidecar() finds.
/// @param image  the range image; empty: none
PLANEX_EXPORT ResolvedSensor resolveSensor(const SensorSettings& settings, const std::string& image,
                                           const datafusion::planex::CalibrationModel& model,
                                           const std::string& modelName,
                                           cmnalg::ImageType type = cmnalg::IMAGE_TYPE_UINT16);

/// The columns or the rows of a region, and how many of them the sensor does not have.
struct SensorExtent {
  double first;   ///< the smallest
  double last;    ///< the largest
  double beyond;  ///< how many lie outside, a whole number
};

/// @{
/// Of a region on the sensor of a model.
PLANEX_EXPORT SensorExtent columnsOf(const datafusion::planex::CalibrationModel& model,
                                     const datafusion::planex::SensorRegion& region);
PLANEX_EXPORT SensorExtent rowsOf(const datafusion::planex::CalibrationModel& model,
                                  const datafusion::planex::SensorRegion& region);
/// @}

/// The part of a region for which isOnSensor() holds: the region itself, or one that begins whole
/// steps of the scales later and ends at the edge of the sensor. A Failure where nothing is left.
PLANEX_EXPORT datafusion::planex::SensorRegion partOnSensor(
    const datafusion::planex::CalibrationModel& model,
    const datafusion::planex::SensorRegion& region, const std::string& modelName);

/// What calculateWorldBounds() gives for a region on the sensor; a Failure where it gives none.
/// @param columns of range images of the region
PLANEX_EXPORT datafusion::planex::WorldBounds worldBounds(
    const datafusion::planex::CalibrationModel& model,
    const datafusion::planex::SensorRegion& region, int columns, const std::string& modelName);

}  // namespace planex::scan
