#include "planex/api/sensor_traits_check.h"

#include "planex/api/calibration_exception.h"

namespace tavik::planex {

void checkSensorTraitsConsistent(const datafusion::planex::CalibrationModel& model,
                                 SensorTraits traits, ImageSize /*size*/) {
  const double sensorWidth = model.SensorSize.x;
  const double sensorHeight = model.SensorSize.y;
  const double endX = traits.originX + traits.width * signOf(traits.scaleX);
  const double endZ = traits.originZ + traits.height * signOf(traits.scaleZ);

  const bool inside = endZ <= sensorHeight && sensorHeight >= traits.originZ &&
                      endX <= sensorWidth && traits.originX <= sensorWidth &&  //
                      endZ >= 0 && traits.originZ >= 0 && endX >= 0 && traits.originX >= 0;
  CalibrationException::throwUnless(inside, "Sensor traits does not match the model");
}

}  // namespace tavik::planex
