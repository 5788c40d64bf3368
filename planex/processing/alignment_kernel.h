#pragma once

#include "planex/foundation/multiversion.h"
#include "planex/foundation/pixel_type.h"

namespace datafusion::planex::kernel {

/// The per-call constants of an alignment.
struct AlignmentConstants {
  double transform[12];  ///< t0 ... t11: the first three rows of the 4 x 4 matrix
  double xScale;
  double xOffset;
  double zScale;
  double zOffset;
};

/// Aligns one row; missing points give NaN in all three targets.
/// @param x, z samples of the pixel types that the function was chosen for
/// @param y    the row's Y coordinate, already rounded to float
using AlignRow = void (*)(const void* x, const void* z, float y, int columns,
                          const AlignmentConstants& constants, float* xOut, float* yOut,
                          float* zOut);

/// The loop for two pixel types, null when one of them holds no measurements.
/// @param physical both images store physical values: with a floating Z type, samples are then
///                 taken as they are
AlignRow alignRow(cmnalg::ImageType x, cmnalg::ImageType z, bool physical,
                  cmnalg::InstructionSet set);

}  // namespace datafusion::planex::kernel
