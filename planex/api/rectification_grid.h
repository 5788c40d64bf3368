#pragma once

#include <cstdint>

#include "planex/api/records.h"
#include "planex/foundation/image_of.h"

namespace tavik::planex {

/// The 16-bit height map that rectification works in, before it becomes the caller's floats.
class RectificationGrid {
 public:
  /// Checks the grid's transform, then its size, then allocates. Throws the CalibrationException
  /// kInvalidScaleMessage for a scale that is negative or not finite, a count of 0 or beyond int,
  /// more pixels than an image can have or than there is memory for.
  ///
  /// The pixels are not cleared: rectification starts from an empty target.
  explicit RectificationGrid(const WorldRangeTraits& traits);

  /// xCount x yCount values without padding, MissingData, with the column and value coordinates of
  /// transformOf(traits).
  cmnalg::ImageOf<std::uint16_t>& values() { return values_; }

  /// The world range of every value:
  ///
  ///     out = fma(value, scaleZ, originZ)   in float, missingDataValue for 0
  ///
  /// @param out xCount x yCount floats, row by row
  void toWorldRange(float missingDataValue, float* out) const;

 private:
  cmnalg::ImageOf<std::uint16_t> values_;
};

}  // namespace tavik::planex
