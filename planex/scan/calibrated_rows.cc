#include "planex/scan/calibrated_rows.h"

#include "planex/io/failure.h"
#include "planex/io/library_warnings.h"
#include "planex/model/model_state.h"
#include "planex/processing/image_calibration.h"
#include "planex/scan/world_bounds.h"

namespace planex::scan {
namespace {

using cmnalg::Image;
using datafusion::planex::CalibrationModel;
using datafusion::planex::ModelState;

bool isCalibrated(const CalibrationModel& model) {
  return model.CurrentState == ModelState::CALIBRATED ||
         model.CurrentState == ModelState::CALIBRATED_ALIGNED_2D ||
         model.CurrentState == ModelState::CALIBRATED_ALIGNED_3D;
}

/// The columns of the image must lie on the sensor, or the traits are those of another image.
void checkColumns(const CalibrationModel& model, const io::ImageReader& range,
                  const SensorTraits& traits) {
  const double last = traits.originX + traits.scaleX * (range.shape().width - 1);
  if (last > -1 && last < model.SensorSize.x) return;
  throw io::Failure(range.path(), "its " + std::to_string(range.shape().width) +
                                      " columns reach beyond the " +
                                      std::to_string(model.SensorSize.x) +
                                      " columns of the sensor; correct --scale-x and --origin-x");
}

}  // namespace

CalibratedRows::CalibratedRows(const CalibrationModel& model, const std::string& modelName,
                               io::ImageReader& range, const SensorTraits& traits)
    : model_(model), modelName_(modelName), range_(range), traits_(traits) {
  if (!isCalibrated(model)) {
    throw io::Failure(modelName, "the model is not calibrated; use one that is");
  }
  checkSensorRegion(model, traits, modelName);
  checkColumns(model, range, traits);
}

template <typename Pixel>
void CalibratedRows::count(std::size_t pixels) {
  const auto* samples = reinterpret_cast<const Pixel*>(samples_.data());
  const double first = traits_.originZ;
  for (std::size_t i = 0; i < pixels; ++i) {
    if (samples[i] == 0) continue;
    const double row = first + traits_.scaleZ * samples[i];
    ++measured_;
    outside_ += row < 0 || row > model_.SensorSize.y ? 1 : 0;
  }
}

void CalibratedRows::load(int first, int count) {
  const io::ImageShape& shape = range_.shape();
  const std::size_t pixels =
      static_cast<std::size_t>(shape.width) * static_cast<std::size_t>(count);
  samples_.resize(pixels);  // 8-bit samples need the half of it
  range_.readRows(first, count, samples_.data());
  Image image;
  const bool wrapped = image.Create(samples_.data(), shape.type, shape.width, count, 0, false,
                                    Image::s_defaultImageAllocator, false);
  image.PixelSize = {traits_.scaleX, 1, traits_.scaleZ};
  image.Origin = {traits_.originX, 0, traits_.originZ};
  if (!wrapped || !datafusion::planex::applyCalibration(model_, false, image, x_, z_,
                                                        datafusion::planex::RunMode::Default)) {
    io::failWithLibraryWarnings(modelName_, "cannot calibrate " + range_.path(),
                                "see planex check, or hold fewer rows with --block");
  }
  if (shape.type == cmnalg::IMAGE_TYPE_UINT8) {
    this->count<std::uint8_t>(pixels);
  } else {
    this->count<std::uint16_t>(pixels);
  }
}

}  // namespace planex::scan
