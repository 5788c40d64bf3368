#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/infra/export.h"
#include "planex/scan/calibrated_rows.h"
#include "planex/scan/height_map.h"
#include "planex/scan/intensity_rows.h"
#include "planex/scan/y_positions.h"

namespace planex::scan {

/// One row of a scan or of a height map, with a point for each column.
struct Profile {
  std::vector<float> x;                  ///< NaN where a scan has no point
  std::vector<float> z;                  ///< NaN where nothing was measured
  std::vector<std::uint16_t> intensity;  ///< empty without
  std::int64_t measured = 0;             ///< points that have a Z
  std::int64_t outside = 0;              ///< values outside the sensor, as CalibratedRows has them

  /// "x,z\n1.5,2\n" or "x,z,intensity\n1.5,2,87\n": a heading, then a point a line, with as many
  /// digits as reading floats back needs. Numbers that are missing are empty.
  /// @param dropMissing leaves points without Z out
  PLANEX_EXPORT std::string toCsv(bool dropMissing) const;
};

/// The calibrated points of a row of a range image. @param intensity  of the points; null without
PLANEX_EXPORT Profile readProfile(const RangeScan& scan, const IntensityImage* intensity, int row);

/// A row of a height map, at the centres of its cells.
PLANEX_EXPORT Profile readProfile(HeightMap& map, int row);

/// The row of an image whose Y is the nearest, the first one where two are as near; -1 where `y` is
/// further outside of all rows than half of the mean distance of neighbouring ones.
PLANEX_EXPORT int nearestRow(const YPositions& positions, int rows, double y);

}  // namespace planex::scan
