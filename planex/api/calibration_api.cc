#include "planex/api/boundary.h"
#include "planex/api/planex.h"
#include "planex/api/registries.h"
#include "planex/api/sensor_traits_check.h"
#include "planex/api/world_bounds.h"
#include "planex/foundation/image_of.h"
#include "planex/processing/image_calibration.h"

namespace tavik::planex {
namespace {

using cmnalg::Image;

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

bool calibrate(const CalibrationFilter& filter, const datafusion::planex::CalibrationModel& model,
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
                                              datafusion::planex::RunMode{2});
}

}  // namespace
}  // namespace tavik::planex

using namespace tavik::planex;  // NOLINT(google-build-using-namespace): the bodies of this file

bool createCalibrationFilter(uint32_t modelHandle, SensorTraits sensorTraits, ImageSize imageSize,
                             uint32_t pixelFormat, uint32_t* filterHandle) {
  return guarded([&] {
    checkSensorTraitsConsistent(models().copyOf(modelHandle), sensorTraits, imageSize);
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
    calculateCalibrationBoundsModel(models().copyOf(modelHandle), sensorTraits, imageSize,
                                    *worldRangeTraits, *splatSettings);
    return true;
  });
}

RangeTransform rangeTraitsToTransform(WorldRangeTraits worldRangeTraits) {
  return transformOf(worldRangeTraits);
}
