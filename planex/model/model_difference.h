#pragma once

#include <cstdint>
#include <functional>

#include "planex/foundation/vec.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/model/coordinate_system.h"

namespace datafusion::planex {

/// How two models differ over pixels of their sensor: distances between the places to which they
/// map a pixel, in the length unit.
struct ModelDifference {
  std::int64_t points = 0;     ///< pixels that both models map to finite places
  std::int64_t unmatched = 0;  ///< that only one does
  double rms = 0;              ///< root of the mean square of the distances
  double largest = 0;          ///< of the distances
  /// @{
  /// Where it is largest: column and row, and the two places, X and Z.
  cmnalg::Vec<2, double> pixel, worldA, worldB;
  /// @}
};

/// Distance of the columns and rows of a sensor that are compared, so that there are about four
/// million pixels at most.
PLANEX_EXPORT int differenceStep(const cmnalg::Vec<2, std::int32_t>& sensorSize);

/// Compares every step-th column and row of the sensor, and the last ones.
///
/// @param system   Calibrated, or Aligned for the plane behind the pose
/// @param step     1 or more
/// @param advance  where given, is told how many pixels more were compared, row by row
/// @return false, `difference` untouched, with one warning on "Image.Planex.Model": the sensors
///         differ or have no size, or the warning of mapPoints() for a model that cannot map
///
/// May be called on several threads at once.
PLANEX_EXPORT bool compareModels(const CalibrationModel& a, const CalibrationModel& b,
                                 CoordinateSystem system, int step, ModelDifference& difference,
                                 const std::function<void(std::int64_t pixels)>& advance = {});

}  // namespace datafusion::planex
