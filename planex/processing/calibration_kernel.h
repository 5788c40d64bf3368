#pragma once

#include "planex/foundation/multiversion.h"
#include "planex/foundation/pixel_type.h"

namespace datafusion::planex::kernel {

/// The per-call constants of a calibration, see basic::applyCalibrationBlock.
struct CalibrationConstants {
  double valueScale;    ///< b
  double valueOffset;   ///< d
  double lens[7];       ///< c0 ... c6
  double transform[9];  ///< t0 ... t8
};

/// Which lens coefficients are in use; the reduced loops give the numbers of the general one.
enum class LensVariant : int {
  Radial = 0,       ///< c0 and c1
  Scheimpflug = 1,  ///< c0, c1 and c5 or c6
  General = 2,
};
LensVariant lensVariant(const double* lens);

/// What the formulas need of each column, computed once for all rows.
struct ColumnTerms {
  double* xn;         ///< normalised column
  double* xnSquared;  ///< xn^2
  double* xnTimesC3;  ///< 2 c3 xn
  double* xnTimesC4;  ///< 2 c4 xn
};
constexpr int kColumnTermCount = 4;

/// Calibrates `columns` samples of one row; missing ones give NaN.
/// @param range samples of the pixel type that the function was chosen for
/// @param terms of the same columns, as fillColumnTerms gives them
using CalibrateRow = void (*)(const void* range, const ColumnTerms& terms, int columns,
                              const CalibrationConstants& constants, float* x, float* z);

/// The loop for a pixel type, precision and lens variant, in an instruction set that this
/// processor has; null for a type that holds no measurements.
CalibrateRow calibrateRow(cmnalg::ImageType type, bool doublePrecision, LensVariant variant,
                          cmnalg::InstructionSet set);

/// Fills the terms of the columns [first, first + count), with xn = u a + c fused in float, or
/// plain in double.
void fillColumnTerms(bool doublePrecision, double a, double c, const double* lens, int first,
                     int count, const ColumnTerms& terms, cmnalg::InstructionSet set);

/// Corrects one row of z in place for the sheet curve s0 ... s5; NaN stays NaN.
using SheetCurveRow = void (*)(const double* sheetCurve, int columns, const float* x, float* z);
SheetCurveRow sheetCurveRow(cmnalg::InstructionSet set);

/// Writes `missing` to x and z wherever a sample of the row is no measurement.
using MarkMissingRow = void (*)(const void* range, int columns, float missing, float* x, float* z);
MarkMissingRow markMissingRow(cmnalg::ImageType type);

}  // namespace datafusion::planex::kernel
