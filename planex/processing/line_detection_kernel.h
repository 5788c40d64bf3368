#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "planex/foundation/multiversion.h"
#include "planex/processing/line_settings.h"

namespace datafusion::planex::kernel {

/// The numbers that the sums over a box of pixels need: those of 8 bits fit in 16, those of 16 bits
/// in 32, for boxes of up to 77 rows.
template <typename Pixel>
using LineSum = std::conditional_t<sizeof(Pixel) == 1, std::int16_t, std::int32_t>;

/// What a column of a frame has come to, row by row; arrays of one number a column.
template <typename Sum>
struct DetectionState {
  Sum* above;         ///< S(i) - S(i - w)
  Sum* below;         ///< S(i) - S(i + w)
  Sum* chosen;        ///< the strength of the chosen line; 0 without
  Sum* place;         ///< the row of it
  Sum* other;         ///< the greatest strength of the other lines; 0 without
  Sum* current;       ///< the strength of the line that the row belongs to; 0 outside of lines
  Sum* currentPlace;  ///< the row of it
};

/// How lines are told from each other.
struct DetectionRule {
  LineChoice choice;
  std::int32_t nearestRow;
  std::int32_t leastStrength;  ///< of a line, at least 1
  /// Whether the strength of other lines is wanted. Without, STRONGEST needs no lines, only the
  /// largest v: chosen may be below leastStrength then, and the state has four numbers.
  bool withOther;
};

/// How many rows a call takes at most.
constexpr int kDetectedRows = 4;

/// The rows of a frame whose pixels come in or go out when the box moves to the next row.
struct DetectionRows {
  const void* next;   ///< f(i + a)
  const void* last;   ///< f(i - 1 - a)
  const void* above;  ///< f(i - 3 a - 2)
  const void* below;  ///< f(i + 3 a + 1)
};

/// Moves the box over the next rows and looks for lines.
/// @param rows  kDetectedRows for the rows from `row` on
/// @param state points to a DetectionState of the sums of the pixel type
using DetectRows = void (*)(const DetectionRows* rows, int row, int columns,
                            const DetectionRule& rule, const void* state);

/// The kernel that takes kDetectedRows rows, or one.
/// @param wide pixels have 16 bits, not 8
DetectRows detectRows(bool wide, const DetectionRule& rule, bool one, cmnalg::InstructionSet set);

}  // namespace datafusion::planex::kernel
