#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"
#include "planex/io/image_reader.h"
#include "planex/model/calibration_model.h"
#include "planex/model/sensor_region.h"
#include "planex/model/world_bounds.h"
#include "planex/scan/row_stream.h"

namespace planex::scan {

/// A range image with the model that tells what it measures.
struct PLANEX_EXPORT RangeScan {
  /// A Failure for a model without calibration, and for an image off the sensor.
  RangeScan(const datafusion::planex::CalibrationModel& model, const std::string& modelName,
            io::ImageReader& range, const datafusion::planex::SensorRegion& region);

  /// What the part of the region and of the columns can show that lies on the sensor.
  datafusion::planex::WorldBounds bounds() const;

  const datafusion::planex::CalibrationModel& model;  ///< outlives the object, as the image does
  const std::string modelName;                        ///< by which a Failure calls it
  io::ImageReader& range;                             ///< the image
  const datafusion::planex::SensorRegion region;      ///< where it lies on the sensor
  int firstColumn = 0;                                ///< of the image that lies on the sensor
  int columnsInside = 0;                              ///< how many do from there on, at least 1
  int leastInside = 1;  ///< the least value of 16 bits that lies on the sensor
  int mostInside = 0;   ///< the greatest; below the least where none does

 private:
  void findColumns();
};

/// The calibrated points of some rows of a range image: what one call over the whole image gives,
/// because every point stands for itself.
class PLANEX_EXPORT CalibratedRows : public RowBlock {
 public:
  /// @param scan outlives the object
  explicit CalibratedRows(const RangeScan& scan) : scan_(scan) {}

  void process() override;

  /// @{
  /// World coordinates; NaN where nothing was measured.
  cmnalg::ImageOf<float>& x() { return x_; }
  cmnalg::ImageOf<float>& z() { return z_; }
  /// @}

  /// The rows of the sensor where the samples lie, with fractions; of what is no measurement, any.
  void findSensorRows(std::vector<double>& rows) const;

  /// How many samples were measurements.
  std::int64_t measured() const { return measured_; }
  /// How many of them lie outside the rows of the sensor: values of another region.
  std::int64_t outside() const { return outside_; }

 protected:
  /// @cond
  void read() override;
  /// @endcond

 private:
  template <typename Pixel>
  void countSamples();
  template <typename Pixel>
  void countWideSamples();
  template <typename Pixel>
  void placeSamples(std::vector<double>& rows) const;

  const RangeScan& scan_;
  std::vector<char> samples_;
  cmnalg::ImageOf<float> x_, z_;
  std::int64_t measured_ = 0, outside_ = 0;
};

}  // namespace planex::scan
