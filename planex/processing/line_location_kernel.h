#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/foundation/multiversion.h"
#include "planex/processing/line_filter.h"
#include "planex/processing/line_settings.h"

namespace datafusion::planex::kernel {

/// The part of a column around a line is this many columns wide, so that every step is a loop.
constexpr int kLanes = 32;

/// What is the same for all frames of a call.
struct LocationConstants {
  LocationConstants(const LineSettings& settings, const LineFilter& filter, int frameRows,
                    double placesPerRow);

  const LineFilter& filter;
  etl::Vector<std::int32_t> taps;  ///< h_1 ..., with zeros up to a multiple of four
  std::int32_t squareSum;          ///< 2 sum h_k^2
  int rows;                        ///< of a frame
  int searched;                    ///< how far from the largest v the crossing may lie, in rows: K
  int reach;                       ///< rows to either side of the largest v that are looked at
  double firstMiddle, lastMiddle;  ///< of the searched rows: lines lie between them
  double placesPerRow;
  std::int32_t minimumWidth, maximumWidth;
  double gain;
  double floorVariance;     ///< that of dark pixels, and of their rounding
  double roundingVariance;  ///< of places

  /// Rows that are looked at.
  int blockRows() const { return 2 * reach + 1; }
  /// Numbers of the type LineSum that locateLines() works with.
  std::size_t scratchSize() const {
    return static_cast<std::size_t>(blockRows() + kLanes + 2 * searched + 2) * kLanes;
  }
};

/// A frame, and what was detected in it.
struct LocationSource {
  const void* pixels;
  std::ptrdiff_t pitch;  ///< pixels from row to row
  int columns;
  const void* strengths;  ///< of a line in every column, LineSum; 0 without
  const void* places;     ///< the row of it
};

/// What becomes of a frame, a number a column; null where it is not wanted, but for `range`.
struct LocationTarget {
  std::uint16_t* range;
  void* intensity;
  std::uint16_t* width;
  std::uint8_t* reason;  ///< LineReason; 0 for points
  std::uint16_t* deviation;
};

/// Finds the places of the lines that were detected.
/// @param scratch scratchSize() numbers of the type LineSum
using LocateLines = void (*)(const LocationConstants& constants, const LocationSource& source,
                             void* scratch, const LocationTarget& target);

/// @param wide pixels have 16 bits, not 8
LocateLines locateLines(bool wide, LineMethod method, cmnalg::InstructionSet set);

}  // namespace datafusion::planex::kernel
