#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "planex/foundation/multiversion.h"
#include "planex/processing/line_filter.h"
#include "planex/processing/line_settings.h"

namespace datafusion::planex::kernel {

/// The part of a column around a line is this many columns wide, so that every step is a loop.
constexpr int kLanes = 32;

/// A derivative filter, and the rows that it takes.
struct LocationFilter {
  /// @param rows how far from where it begins the crossing may lie
  LocationFilter(const LineFilter& filter, int rows);

  etl::Vector<std::int32_t> taps;  ///< h_1 ..., with zeros up to a multiple of four
  std::int32_t squareSum;          ///< 2 sum h_k^2
  double chord;                    ///< LineFilter::chord
  int searched;                    ///< how far from where it begins the crossing may lie, in rows
  int reach;                       ///< rows to either side that are looked at

  /// Rows that are looked at.
  int blockRows() const { return 2 * reach + 1; }
  /// Numbers of a block and its d.
  std::size_t scratchSize(int lanes) const {
    return static_cast<std::size_t>(blockRows() + lanes + 2 * searched + 2) *
           static_cast<std::size_t>(lanes);
  }
};

/// A filter for lines that are not as told.
struct FittingFilter : LocationFilter {
  std::int32_t leastWidth, mostWidth;  ///< of lines that it is for, in 1/64 rows
  double mostMove;                     ///< rows by which it may move a line
  int unclipped;                       ///< 1 for all lines, 0 for clipped ones alone

  /// 1 or 0: without a branch.
  int isFor(std::int32_t width, int clipped) const {
    return static_cast<int>(width >= leastWidth) & static_cast<int>(width <= mostWidth) &
           (clipped | unclipped);
  }
};

/// What is the same for all frames of a call.
struct LocationConstants {
  LocationConstants(const LineSettings& settings, const LineFilter& filter, int frameRows,
                    double placesPerRow, double fullScale);

  const LineFilter& filter;
  LocationFilter told;  ///< of the line width that is told; begins at the largest v
  std::array<FittingFilter, 3> fitting;  ///< of half, once and twice that; begin where the line is
  int rows;                              ///< of a frame
  double firstMiddle, lastMiddle;        ///< of the searched rows: lines lie between them
  double placesPerRow;
  double fullScale;  ///< lines that reach it are clipped
  std::int32_t minimumWidth, maximumWidth;
  double gain;
  double floorVariance;     ///< that of dark pixels, and of their rounding
  double roundingVariance;  ///< of places

  /// Numbers of the type LineSum that locateLines() works with.
  std::size_t scratchSize() const {
    std::size_t most = 0;
    for (const FittingFilter& other : fitting) most = std::max(most, other.scratchSize(kLanes));
    return told.scratchSize(kLanes) + most;
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
