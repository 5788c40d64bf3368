#include "planex/api/boundary.h"
#include "planex/api/conversions.h"
#include "planex/api/planex.h"
#include "planex/api/registries.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/interval.h"
#include "planex/model/world_bounds.h"
#include "planex/processing/image_calibration.h"

namespace tavik::planex {
namespace {

using cmnalg::Image;
using datafusion::planex::CalibrationModel;
using datafusion::planex::WorldBounds;
using datafusion::planex::WorldBoundsResult;

constexpr const char* kOutsideSensorMessage = "Sensor traits does not match the model";

cmnalg::ImageType rangeTypeOf(std::uint32_t pixelFormat) {
  switch (pixelFormat) {
    case PLANEX_PIXEL_FORMAT_MONO8:
      return cmnalg::IMAGE_TYPE_UINT8;
    case PLANEX_PIXEL_FORMAT_MONO16:
    case PLANEX_PIXEL_FORMAT_COORD3D_C16:
      return cmnalg::IMAGE_TYPE_UINT16;
    default:
      throw CalibrationException("Unknown PixelFormat");
  }
}

/// Puts the caller's buffer into `range`, which is never written through. False, after the image's
/// own warning, for more pixels than an image can have.
bool wrapRange(const void* buffer, cmnalg::ImageType type, ImageSize size, SensorTraits traits,
               Image& range) {
  if (!range.Create(const_cast<void*>(buffer), type, size.width, size.height, 0, false,
                    Image::s_defaultImageAllocator, false)) {
    return false;
  }
  range.PixelSize.x = traits.scaleX;
  range.Origin.x = traits.originX;
  range.PixelSize.z = traits.scaleZ;
  range.Origin.z = traits.originZ;
  return true;
}

bool calibrate(const CalibrationFilter& filter, const CalibrationModel& model,
               const void* rangeBuffer, float* xBuffer, float* zBuffer) {
  const ImageSize size = filter.imageSize;
  Image range;
  if (!wrapRange(rangeBuffer, rangeTypeOf(filter.pixelFormat), size, filter.sensorTraits, range)) {
    return false;
  }
  cmnalg::ImageOf<float> x(xBuffer, size.width, size.height, 0, false,
                           Image::s_defaultImageAllocator, false);
  cmnalg::ImageOf<float> z(zBuffer, size.width, size.height, 0, false,
                           Image::s_defaultImageAllocator, false);
  return datafusion::planex::applyCalibration(model, false, range, x, z,
                                              datafusion::planex::RunMode::Default);
}

/// Throws where there are none.
WorldBounds boundsOf(const CalibrationModel& model, SensorTraits traits, ImageSize size) {
  WorldBounds bounds;
  switch (calculateWorldBounds(model, regionOf(traits), size.width, bounds)) {
    case WorldBoundsResult::Calculated:
      return bounds;
    case WorldBoundsResult::OutsideSensor:
      throw CalibrationException(kOutsideSensorMessage);
    case WorldBoundsResult::InvalidRangeValues:
      throw CalibrationException(kInvalidScaleMessage);
    default:
      throw CalibrationException("The sensor region could not be mapped to world coordinates");
  }
}

/// Rows count as Y, where there is a sample of them at all.
cmnalg::math::Interval rowBounds(SensorTraits traits, ImageSize size) {
  cmnalg::math::Interval rows;
  if (size.width == 0 && lastRangeValue(regionOf(traits)) < 1.0) return rows;
  rows.Include(0.0);
  rows.Include(size.height - 1.0);
  return rows;
}

}  // namespace
}  // namespace tavik::planex

using namespace tavik::planex;  // NOLINT(google-build-using-namespace): the bodies of this file

bool createCalibrationFilter(uint32_t modelHandle, SensorTraits sensorTraits, ImageSize imageSize,
                             uint32_t pixelFormat, uint32_t* filterHandle) {
  return guarded([&] {
    CalibrationException::throwUnless(
        isOnSensor(models().copyOf(modelHandle), regionOf(sensorTraits)), kOutsideSensorMessage);
    CalibrationException::throwUnless(filterHandle != nullptr, "Handle is NULL");
    *filterHandle = 0;
    *filterHandle =
        calibrationFilters().insert({modelHandle, sensorTraits, imageSize, pixelFormat});
    return true;
  });
}

bool destroyCalibrationFilter(uint32_t* filterHandle) {
  return guarded([&] { return destroyByHandle(calibrationFilters(), filterHandle); });
}

void destroyAllCalibrationFilters() { calibrationFilters().clear(); }

bool applyCalibration(uint32_t filterHandle, const void* inputBufferRange, float* outputBufferX,
                      float* outputBufferZ) {
  return guarded([&] {
    CalibrationException::throwUnless(inputBufferRange != nullptr,
                                      "Argument inputBufferRange is NULL");
    CalibrationException::throwUnless(outputBufferX != nullptr, "Argument outputBufferX is NULL");
    CalibrationException::throwUnless(outputBufferZ != nullptr, "Argument outputBufferZ is NULL");
    const CalibrationFilter filter = calibrationFilters().copyOf(filterHandle);
    const auto model = models().copyOf(filter.modelHandle);
    return calibrate(filter, model, inputBufferRange, outputBufferX, outputBufferZ);
  });
}

bool calculateCalibrationBounds(uint32_t modelHandle, SensorTraits sensorTraits,
                                ImageSize imageSize, WorldRangeTraits* worldRangeTraits,
                                SplatSettings* splatSettings) {
  return guarded([&] {
    CalibrationException::throwUnless(worldRangeTraits != nullptr,
                                      "Argument worldRangeTraits is NULL");
    CalibrationException::throwUnless(splatSettings != nullptr, "Argument splatSettings is NULL");
    const WorldBounds bounds = boundsOf(models().copyOf(modelHandle), sensorTraits, imageSize);
    const cmnalg::math::Interval rows = rowBounds(sensorTraits, imageSize);
    *worldRangeTraits = {bounds.x.min,     bounds.x.max, imageSize.width, rows.min, rows.max,
                         imageSize.height, bounds.z.min, bounds.z.max,    65536};
    *splatSettings = {bounds.lateralSpacing.x, bounds.lateralSpacing.y, 1.0};
    return true;
  });
}

RangeTransform rangeTraitsToTransform(WorldRangeTraits worldRangeTraits) {
  const auto columns = columnsOf(worldRangeTraits);
  const auto rows = rowsOf(worldRangeTraits);
  const auto levels = levelsOf(worldRangeTraits);
  return {columns.scale, columns.origin, rows.scale, rows.origin, levels.scale, levels.origin};
}
