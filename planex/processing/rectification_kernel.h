#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/foundation/multiversion.h"
#include "planex/foundation/pixel_type.h"
#include "planex/infra/containers.h"
#include "planex/processing/rectification_mode.h"

namespace datafusion::planex::kernel {

/// Widest splat to either side, in target columns.
constexpr int kMaximumHalfWidth = 15;
/// Cells before column 0 and after the last one that splats may reach in the scratch of a row.
constexpr int kMargin = 64;
constexpr std::size_t kMargins = std::size_t{2} * kMargin;
/// Column of a point that is not used: its splat lies in the margin, out of reach of every other.
constexpr int kDroppedColumn = kMaximumHalfWidth + 1 - kMargin;

/// From stored source values to target columns, target heights and half-widths.
struct SplatCoefficients {
  double columnScale;
  double columnOffset;
  double heightScale;
  double heightOffset;
  double widthSlope;  ///< of the half-width over the target height
  double widthIntercept;
  double columnLimit;  ///< rounded columns from here on cannot reach the target
};

/// The points of one source row in terms of the target.
struct PlacedPoints {
  std::int32_t* column;     ///< centre column, or kDroppedColumn
  std::int32_t* halfWidth;  ///< 0 ... kMaximumHalfWidth
  std::int32_t* quantised;  ///< height 1 ... 65535; not written for means
  double* height;           ///< unquantised height; written for means only
  int count;
};

/// The half-widths among the used points of a row; narrowest > widest when there is none.
struct WidthRange {
  int narrowest;
  int widest;
};

/// Places the points of one row.
using PlaceRow = WidthRange (*)(const void* x, const void* z, const SplatCoefficients& coefficients,
                                const PlacedPoints& points);
/// The loop for two pixel types; null when one of them holds no measurements.
PlaceRow placeRow(cmnalg::ImageType x, cmnalg::ImageType z, bool mean, cmnalg::InstructionSet set);

/// The largest half-width that heights 1 to 65535 can give.
int largestHalfWidth(const SplatCoefficients& coefficients);

/// One row of the targets; `intensity` is null when only heights are rectified.
struct TargetRow {
  std::uint16_t* height;
  std::uint8_t* intensity;
  int width;
};

/// Resolves the cells of one row.
/// @param widths    what placing the points returned
/// @param intensity of each point; null when only heights are rectified
/// @param scratch   as many bytes as the resolver asks for, aligned for double
using ResolveRow = void (*)(const PlacedPoints& points, const WidthRange& widths,
                            const std::uint8_t* intensity, const TargetRow& target, void* scratch);

/// How the cells of a call are resolved.
struct Resolver {
  ResolveRow run;            ///< null for a mode without rule
  std::size_t scratchBytes;  ///< for each thread
};

/// @param pointCount  points of a row
/// @param targetWidth columns of the target
/// @param largest     largestHalfWidth of the call
/// @param overwrite   MEAN: cells take the mean; otherwise it is merged with what they hold
Resolver resolver(RectificationMode mode, bool withIntensity, bool overwrite, int pointCount,
                  int targetWidth, int largest, cmnalg::InstructionSet set);

}  // namespace datafusion::planex::kernel
