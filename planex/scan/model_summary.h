#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "planex/foundation/image.h"
#include "planex/foundation/polyline.h"
#include "planex/foundation/rectangle.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace planex::scan {

/// What the sensor resolves in one of its outermost rows.
struct Resolution {
  double z;        ///< of the middle column, in length units
  double lateral;  ///< distance of neighbouring columns, the mean of the row
  double height;   ///< distance of this row and the next one in the middle column
};

/// What the whole sensor sees of the laser plane, in the length unit of the model. The extremes are
/// exact but for rounding, for a model in which checkModel() finds no fold and no horizon.
struct FieldOfView {
  double xMin;      ///< the least X
  double xMax;      ///< the greatest X
  double zMin;      ///< the least Z
  double zMax;      ///< the greatest Z
  Resolution near;  ///< the outermost row that resolves more laterally: nearer to the camera
  Resolution far;   ///< the other one
  cmnalg::shape::Polyline outline;  ///< the border of the sensor, closed
};

/// @return nothing when the model cannot be mapped with, or its sensor has no two rows and columns;
///         `reason` then says why
PLANEX_EXPORT std::optional<FieldOfView> fieldOfView(
    const datafusion::planex::CalibrationModel& model, std::string& reason);

/// Residuals of one direction over the calibrated region, in the length unit of the model.
struct ResidualSummary {
  double mean;     ///< of all calibration points
  double rms;      ///< of the cells' means, each as often as it has points
  double maximum;  ///< of all calibration points
};

/// The calibrated region of a model.
struct RegionSummary {
  cmnalg::shape::Rectangle area;  ///< in the laser plane
  int columns;                    ///< of its grid
  int rows;                       ///< of its grid
  std::int64_t points = 0;        ///< of the calibration
  int filledCells = 0;            ///< with at least one point
  ResidualSummary x{};            ///< in X
  ResidualSummary z{};            ///< in Z
  cmnalg::Image count;            ///< points of each cell
  cmnalg::Image averageX;         ///< residuals of each cell
  cmnalg::Image averageZ;         ///< as averageX
  cmnalg::Image maximumX;         ///< as averageX, largest
  cmnalg::Image maximumZ;         ///< as averageX, largest
};

/// @return nothing when the model has no region, or not all of its images
PLANEX_EXPORT std::optional<RegionSummary> summarizeRegion(
    const datafusion::planex::CalibrationModel& model);

}  // namespace planex::scan
