#include "planex/scan/sensor.h"

#include <algorithm>
#include <cmath>

#include "planex/io/failure.h"
#include "planex/io/library_warnings.h"

namespace planex::scan {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::SensorRegion;
using datafusion::planex::WorldBounds;
using datafusion::planex::WorldBoundsResult;
using io::Failure;

/// What a value stands for where nothing tells.
double rowsPerStep(cmnalg::ImageType type) {
  return type == cmnalg::IMAGE_TYPE_UINT8 || type == cmnalg::IMAGE_TYPE_FLOAT32 ? 1 : 1.0 / 16;
}

/// What is left of a sensor of that size from the origin on, in the direction of the scale.
double remaining(double scale, double origin, int sensorSize) {
  return std::floor(scale < 0 ? origin : sensorSize - origin);
}

/// A size from the settings, from the sidecar, or what is left of the sensor.
int regionSize(const std::optional<double>& setting, const std::optional<double>& member,
               const std::string& name, double left, const std::string& model) {
  const double size = setting ? *setting : member.value_or(left);
  if (size >= 1 && size <= 65535 && std::floor(size) == size) return static_cast<int>(size);
  throw Failure(model, "its sensor has no " + std::string(name == "width" ? "columns" : "rows") +
                           " from the origin on; correct --origin-" +
                           (name == "width" ? "x" : "z") + " or give --sensor-" + name);
}

SensorExtent extentOf(double first, int count, int sensorSize) {
  const double last = first + count - 1;
  const double before = std::max(0.0, std::ceil(-first));
  const double behind = std::max(0.0, std::ceil(last - (sensorSize - 1)));
  return {first, last, std::min<double>(before + behind, count)};
}

/// Moves the origin by whole steps onto the sensor, and the end to its edge.
/// @return whether anything is left
bool cut(double scale, int sensorSize, double& origin, int& size) {
  const double direction = scale < 0 ? -1 : 1;
  const double end = origin + direction * size;
  const double edge = scale < 0 ? sensorSize : 0;
  const double steps = std::max(0.0, std::ceil((edge - origin) / scale));
  origin += steps * scale;
  const double left = std::min(direction * (end - origin), remaining(scale, origin, sensorSize));
  size = left >= 1 && left <= size ? static_cast<int>(left) : 0;
  return size > 0;
}

}  // namespace

ResolvedSensor resolveSensor(const SensorSettings& settings, const std::string& image,
                             const CalibrationModel& model, const std::string& modelName,
                             cmnalg::ImageType type) {
  return resolveSensor(settings, readScanSidecar(settings.sidecar, image), model, modelName, type);
}

ResolvedSensor resolveSensor(const SensorSettings& settings, const ScanSidecar& sidecar,
                             const CalibrationModel& model, const std::string& modelName,
                             cmnalg::ImageType type) {
  const auto either = [](const std::optional<double>& setting, const std::optional<double>& member,
                         double otherwise) {
    return setting ? *setting : member.value_or(otherwise);
  };
  ResolvedSensor region;
  region.scaleX = either(settings.scaleX, sidecar.scaleX, 1);
  region.originX = either(settings.originX, sidecar.originX, 0);
  region.scaleZ = either(settings.scaleZ, sidecar.scaleZ, rowsPerStep(type));
  region.originZ = either(settings.originZ, sidecar.originZ, 0);
  region.scaleZStated = settings.scaleZ || sidecar.scaleZ;
  const double columns = remaining(region.scaleX, region.originX, model.SensorSize.x);
  const double rows = remaining(region.scaleZ, region.originZ, model.SensorSize.y);
  region.width = regionSize(settings.width, sidecar.width, "width", columns, modelName);
  region.height = regionSize(settings.height, sidecar.height, "height", rows, modelName);
  return region;
}

SensorExtent columnsOf(const CalibrationModel& model, const SensorRegion& region) {
  // Mirrored columns count from the last one.
  const double first = region.scaleX < 0 ? region.originX - region.width + 1 : region.originX;
  return extentOf(first, region.width, model.SensorSize.x);
}

SensorExtent rowsOf(const CalibrationModel& model, const SensorRegion& region) {
  // Rows in reverse count from the first one behind the region.
  const double first = region.scaleZ < 0 ? region.originZ - region.height : region.originZ;
  return extentOf(first, region.height, model.SensorSize.y);
}

SensorRegion partOnSensor(const CalibrationModel& model, const SensorRegion& region,
                          const std::string& modelName) {
  if (isOnSensor(model, region)) return region;
  SensorRegion part = region;
  if (cut(region.scaleX, model.SensorSize.x, part.originX, part.width) &&
      cut(region.scaleZ, model.SensorSize.y, part.originZ, part.height) &&
      isOnSensor(model, part)) {
    return part;
  }
  throw Failure(modelName,
                "its sensor of " + std::to_string(model.SensorSize.x) + " x " +
                    std::to_string(model.SensorSize.y) +
                    " pixels holds nothing of the sensor region; correct --origin-x, --origin-z, "
                    "--sensor-width and --sensor-height");
}

WorldBounds worldBounds(const CalibrationModel& model, const SensorRegion& region, int columns,
                        const std::string& modelName) {
  WorldBounds bounds;
  switch (calculateWorldBounds(model, region, columns, bounds)) {
    case WorldBoundsResult::OutsideSensor:
      partOnSensor(model, region, modelName);
      throw Failure(modelName, "its sensor does not hold the sensor region");
    case WorldBoundsResult::InvalidRangeValues:
      throw Failure(modelName, "its sensor region has too many range values; correct --scale-z");
    case WorldBoundsResult::NotMappable:
      io::failWithLibraryWarnings(modelName, "does not map pixels to the laser plane",
                                  "see planex check");
    case WorldBoundsResult::Calculated:
      break;
  }
  return bounds;
}

}  // namespace planex::scan
