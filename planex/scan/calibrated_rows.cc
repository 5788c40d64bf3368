#include "planex/scan/calibrated_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "planex/io/failure.h"
#include "planex/io/library_warnings.h"
#include "planex/model/model_state.h"
#include "planex/processing/image_calibration.h"
#include "planex/scan/sensor.h"

namespace planex::scan {
namespace {

using cmnalg::Image;
using datafusion::planex::CalibrationModel;

}  // namespace

RangeScan::RangeScan(const CalibrationModel& model_, const std::string& modelName_,
                     io::ImageReader& range_, const datafusion::planex::SensorRegion& region_)
    : model(model_), modelName(modelName_), range(range_), region(region_) {
  if (!isCalibrated(model.CurrentState)) {
    throw io::Failure(modelName, "the model is not calibrated; use one that is");
  }
  partOnSensor(model, region, modelName);
  findColumns();
  for (int value = 1; value <= std::numeric_limits<std::uint16_t>::max(); ++value) {
    const double row = region.originZ + region.scaleZ * value;
    if (row < 0 || row > model.SensorSize.y) continue;
    if (mostInside == 0) leastInside = value;
    mostInside = value;
  }
}

void RangeScan::findColumns() {
  const int width = range.shape().width;
  for (int column = 0; column < width; ++column) {
    const double position = region.originX + region.scaleX * column;
    if (!(position > -1 && position < model.SensorSize.x)) continue;
    if (columnsInside++ == 0) firstColumn = column;
  }
  if (columnsInside > 0) return;
  throw io::Failure(range.path(),
                    "none of its " + std::to_string(width) + " columns lies on the sensor of " +
                        std::to_string(model.SensorSize.x) + "; correct --scale-x and --origin-x");
}

datafusion::planex::WorldBounds RangeScan::bounds() const {
  datafusion::planex::SensorRegion seen = region;
  seen.originX += seen.scaleX * firstColumn;
  return worldBounds(model, partOnSensor(model, seen, modelName), columnsInside, modelName);
}

void CalibratedRows::read() {
  const io::ImageShape& shape = scan_.range.shape();
  samples_.resize(shape.rowBytes() * static_cast<std::size_t>(count()));
  scan_.range.readRows(first(), count(), samples_.data());
  if (shape.type != cmnalg::IMAGE_TYPE_FLOAT32) return;
  // An infinite value measures nothing either.
  auto* const values = reinterpret_cast<float*>(samples_.data());
  std::replace_if(
      values, values + samples_.size() / sizeof(float),
      [](float value) { return !std::isfinite(value); }, 0.0F);
}

void CalibratedRows::process() {
  const io::ImageShape& shape = scan_.range.shape();
  Image image;
  const bool wrapped = image.Create(samples_.data(), shape.type, shape.width, count(), 0, false,
                                    Image::s_defaultImageAllocator, false);
  image.PixelSize = {scan_.region.scaleX, 1, scan_.region.scaleZ};
  image.Origin = {scan_.region.originX, 0, scan_.region.originZ};
  if (!wrapped || !datafusion::planex::applyCalibration(scan_.model, false, image, x_, z_,
                                                        datafusion::planex::RunMode::Default)) {
    io::failWithLibraryWarnings(scan_.modelName, "cannot calibrate " + scan_.range.path(),
                                "see planex check, or hold fewer rows with --block");
  }
  switch (shape.type) {
    case cmnalg::IMAGE_TYPE_UINT8:
      return countSamples<std::uint8_t>();
    case cmnalg::IMAGE_TYPE_UINT16:
      return countSamples<std::uint16_t>();
    case cmnalg::IMAGE_TYPE_UINT32:
      return countWideSamples<std::uint32_t>();
    default:
      return countWideSamples<float>();
  }
}

void CalibratedRows::findSensorRows(std::vector<double>& rows) const {
  switch (scan_.range.shape().type) {
    case cmnalg::IMAGE_TYPE_UINT8:
      return placeSamples<std::uint8_t>(rows);
    case cmnalg::IMAGE_TYPE_UINT16:
      return placeSamples<std::uint16_t>(rows);
    case cmnalg::IMAGE_TYPE_UINT32:
      return placeSamples<std::uint32_t>(rows);
    default:
      return placeSamples<float>(rows);
  }
}

template <typename Pixel>
void CalibratedRows::placeSamples(std::vector<double>& rows) const {
  const auto* const samples = reinterpret_cast<const Pixel*>(samples_.data());
  const double scale = scan_.region.scaleZ, origin = scan_.region.originZ;
  rows.resize(samples_.size() / sizeof(Pixel));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    rows[i] = origin + scale * static_cast<double>(samples[i]);
  }
}

template <typename Pixel>
void CalibratedRows::countWideSamples() {
  const auto* const samples = reinterpret_cast<const Pixel*>(samples_.data());
  const double scale = scan_.region.scaleZ, origin = scan_.region.originZ;
  const double rows = scan_.model.SensorSize.y;
  measured_ = 0;
  outside_ = 0;
  for (std::size_t i = 0; i < samples_.size() / sizeof(Pixel); ++i) {
    if (!(samples[i] > Pixel{0})) continue;
    const double row = origin + scale * static_cast<double>(samples[i]);
    ++measured_;
    if (row < 0 || row > rows) ++outside_;
  }
}

template <typename Pixel>
void CalibratedRows::countSamples() {
  const auto* samples = reinterpret_cast<const Pixel*>(samples_.data());
  const int least = scan_.leastInside, most = scan_.mostInside;
  measured_ = 0;
  outside_ = 0;
  const std::size_t count = samples_.size() / sizeof(Pixel);
  for (std::size_t i = 0; i < count;) {
    // Counts of few samples fit the type in which the loop is vectorised.
    const std::size_t end = std::min(count, i + 4096);
    unsigned measured = 0, outside = 0;
#pragma omp simd reduction(+ : measured, outside)
    for (std::size_t k = i; k < end; ++k) {
      const int value = samples[k];
      measured += value != 0 ? 1U : 0U;
      outside += value != 0 && (value < least || value > most) ? 1U : 0U;
    }
    i = end;
    measured_ += measured;
    outside_ += outside;
  }
}

}  // namespace planex::scan
