#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/api/records.h"
#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"
#include "planex/io/image_reader.h"
#include "planex/model/calibration_model.h"

namespace planex::scan {

/// The calibrated points of a range image, some rows at a time: what one call over the whole image
/// gives, because every point stands for itself.
class PLANEX_EXPORT CalibratedRows {
 public:
  /// A Failure for a model without calibration, and for an image that reaches beyond the sensor.
  /// Model and image must outlive the object.
  CalibratedRows(const datafusion::planex::CalibrationModel& model, const std::string& modelName,
                 io::ImageReader& range, const SensorTraits& traits);

  /// Reads and calibrates rows first ... first + count - 1.
  void load(int first, int count);

  /// @{
  /// World coordinates of the rows loaded last; NaN where nothing was measured.
  cmnalg::ImageOf<float>& x() { return x_; }
  cmnalg::ImageOf<float>& z() { return z_; }
  /// @}

  /// How many samples of all loaded rows were measurements.
  std::int64_t measured() const { return measured_; }
  /// How many of them lie outside the rows of the sensor: values of other traits.
  std::int64_t outside() const { return outside_; }

 private:
  template <typename Pixel>
  void count(std::size_t pixels);

  const datafusion::planex::CalibrationModel& model_;
  const std::string modelName_;
  io::ImageReader& range_;
  const SensorTraits traits_;
  std::vector<std::uint16_t> samples_;
  cmnalg::ImageOf<float> x_, z_;
  std::int64_t measured_ = 0, outside_ = 0;
};

}  // namespace planex::scan
