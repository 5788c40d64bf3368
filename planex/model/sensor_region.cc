#include "planex/model/sensor_region.h"

#include <cmath>

#include "planex/infra/float_environment.h"

namespace datafusion::planex {
namespace {

/// From `origin` over `size` pixels in the direction of `scale`; NaN is nowhere.
bool isInside(double origin, int size, double scale, double limit) {
  const double direction = scale > 0.0 ? 1.0 : scale < 0.0 ? -1.0 : 0.0;
  const double end = origin + size * direction;
  return origin >= 0.0 && origin <= limit && end >= 0.0 && end <= limit;
}

}  // namespace

bool isOnSensor(const CalibrationModel& model, const SensorRegion& region) {
  const base::DefaultFloatEnvironment environment;
  return isInside(region.originX, region.width, region.scaleX, model.SensorSize.x) &&
         isInside(region.originZ, region.height, region.scaleZ, model.SensorSize.y);
}

double lastRangeValue(const SensorRegion& region) {
  const base::DefaultFloatEnvironment environment;
  return region.height / std::abs(region.scaleZ) - 1;
}

}  // namespace datafusion::planex
