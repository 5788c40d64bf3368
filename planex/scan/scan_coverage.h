#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/ordered_work.h"
#include "planex/scan/calibrated_rows.h"
#include "planex/scan/model_summary.h"

namespace planex::scan {

/// How much of a range image was measured, and whether where the model was calibrated.
struct ScanCoverage {
  std::int64_t values = 0;    ///< pixels of the image
  std::int64_t measured = 0;  ///< values that are measurements
  std::int64_t outside = 0;   ///< measurements beyond the rows of the sensor
  std::int64_t points = 0;    ///< measurements with a place in the laser plane
  std::int64_t inRegion = 0;  ///< points in cells of the calibrated region that have some, too
  /// @{
  /// The extent of the points in the length unit of the model; NaN without points.
  double xMin, xMax, zMin, zMax;
  /// @}
  int columns = 0;             ///< of a map of the image, at most kMostCells each way
  int rows = 0;                ///< of the map
  std::vector<double> shares;  ///< points in each cell of the map over its pixels; row by row

  /// Cells of the map along a side.
  static constexpr int kMostCells = 128;

  /// The part of the points that lies in the calibrated region; 0 without points.
  double shareInRegion() const {
    return points > 0 ? static_cast<double>(inRegion) / static_cast<double>(points) : 0;
  }
};

/// Reads the whole image. The result does not depend on the workers.
/// @param region    of the model; without one no point is in it
/// @param progress  takes the number of further values that are done
PLANEX_EXPORT ScanCoverage calculateCoverage(const RangeScan& scan,
                                             const std::optional<RegionSummary>& region,
                                             io::WorkerPool& pool,
                                             const std::function<void(std::int64_t)>& progress);

}  // namespace planex::scan
