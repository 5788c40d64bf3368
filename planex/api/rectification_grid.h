#pragma once

#include <cstdint>

#include "planex/api/records.h"
#include "planex/foundation/multiversion.h"
#include "planex/processing/rectification_rows.h"

namespace tavik::planex {

/// The cells that a rectification fills, as toRectifiedRows takes them: xCount x yCount, with the
/// column and value coordinates of transformOf(traits).
///
/// Throws the CalibrationException kInvalidScaleMessage for a scale that is negative or not finite,
/// a count of 0, and more pixels than an image can have. Nothing is allocated.
datafusion::planex::HeightGrid heightGridOf(const WorldRangeTraits& traits);

/// Turns rows of the 16-bit height map into the caller's world range:
///
///     out = fma(value, scaleZ, originZ)   in float, missingDataValue for 0
class WorldRangeWriter {
 public:
  /// @param out xCount x yCount floats, row by row
  WorldRangeWriter(const datafusion::planex::HeightGrid& grid, float missingDataValue, float* out);

  /// Writes one row; different rows may be written on different threads at once.
  void WriteRow(int row, const std::uint16_t* heights) const;

 private:
  using ConvertRow = void (*)(const std::uint16_t* values, int columns, float scale, float origin,
                              float missing, float* out);

  ConvertRow convertRow_;
  int width_;
  float scale_, origin_, missing_;
  float* out_;
};

}  // namespace tavik::planex
