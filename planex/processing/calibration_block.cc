#include "planex/processing/calibration_block.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "planex/infra/float_environment.h"
#include "planex/processing/calibration_kernel.h"
#include "planex/processing/pixel_block.h"
#include "planex/processing/row_parallel.h"

namespace datafusion::planex::basic {
bool applyCalibration(const cmnalg::Image& range, const double& a, const double& b, const double& c,
                      const double& d, const double& missingValue, const double* lensCoefficients,
                      const double* transform, cmnalg::ImageOf<float>& x, cmnalg::ImageOf<float>& z,
                      bool doublePrecision) {
  if (range.IsSignedType() && range.IsIntegerType()) return false;
  const auto block = doublePrecision ? applyCalibrationBlock<double> : applyCalibrationBlock<float>;
  return block(0, range.GetWidth(), 0, range.GetHeight(), range, a, b, c, d, missingValue,
               lensCoefficients, transform, x, z);
}

template <typename P>
bool applyCalibrationBlock(int columnBegin, int columnEnd, int rowBegin, int rowEnd,
                           const cmnalg::Image& range, const double& a, const double& b,
                           const double& c, const double& d, const double& missingValue,
                           const double* lensCoefficients, const double* transform,
                           cmnalg::ImageOf<float>& x, cmnalg::ImageOf<float>& z) {
  const base::DefaultFloatEnvironment environment;
  if (lensCoefficients == nullptr || transform == nullptr) return false;
  constexpr bool kDouble = sizeof(P) == sizeof(double);
  const cmnalg::InstructionSet set = cmnalg::currentInstructionSet();
  const kernel::CalibrateRow calibrate =
      kernel::calibrateRow(range.GetType(), kDouble, kernel::lensVariant(lensCoefficients), set);
  if (calibrate == nullptr) return false;
  const PixelBlock block{columnBegin, columnEnd, rowBegin, rowEnd};
  if (block.IsEmpty()) return true;
  if (!block.IsInside(range) || !block.IsInside(x) || !block.IsInside(z)) return false;

  kernel::CalibrationConstants constants{b, d, {}, {}};
  for (int i = 0; i < 7; ++i) constants.lens[i] = lensCoefficients[i];
  for (int i = 0; i < 9; ++i) constants.transform[i] = transform[i];
  const std::size_t columns = static_cast<std::size_t>(block.Columns());
  // Not cleared: for a single profile that would cost as much as filling it.
  const std::unique_ptr<double[]> scratch(new double[columns * kernel::kColumnTermCount]);
  const kernel::ColumnTerms terms{scratch.get(), scratch.get() + columns,
                                  scratch.get() + 2 * columns, scratch.get() + 3 * columns};
  kernel::fillColumnTerms(kDouble, a, c, lensCoefficients, columnBegin, block.Columns(), terms,
                          set);
  const float missing = static_cast<float>(missingValue);
  const kernel::MarkMissingRow mark =
      std::isnan(missing) ? nullptr : kernel::markMissingRow(range.GetType());

  threading_helpers::forEachRowBlock(rowBegin, rowEnd, block.Columns(), [&](int first, int last) {
    for (int row = first; row < last; ++row) {
      const std::byte* in = pixelAddress(range, columnBegin, row);
      float* xRow = x.GetRowPtr(row) + columnBegin;
      float* zRow = z.GetRowPtr(row) + columnBegin;
      calibrate(in, terms, block.Columns(), constants, xRow, zRow);
      if (mark != nullptr) mark(in, block.Columns(), missing, xRow, zRow);
    }
  });
  return true;
}

template bool applyCalibrationBlock<float>(int, int, int, int, const cmnalg::Image&, const double&,
                                           const double&, const double&, const double&,
                                           const double&, const double*, const double*,
                                           cmnalg::ImageOf<float>&, cmnalg::ImageOf<float>&);
template bool applyCalibrationBlock<double>(int, int, int, int, const cmnalg::Image&, const double&,
                                            const double&, const double&, const double&,
                                            const double&, const double*, const double*,
                                            cmnalg::ImageOf<float>&, cmnalg::ImageOf<float>&);

bool applyCalibrationSheetCurve(const double* sheetCurve, cmnalg::ImageOf<float>& x,
                                cmnalg::ImageOf<float>& z) {
  return applyCalibrationBlockSheetCurve(0, x.GetWidth(), 0, x.GetHeight(), sheetCurve, x, z);
}

bool applyCalibrationBlockSheetCurve(int columnBegin, int columnEnd, int rowBegin, int rowEnd,
                                     const double* sheetCurve, cmnalg::ImageOf<float>& x,
                                     cmnalg::ImageOf<float>& z) {
  const base::DefaultFloatEnvironment environment;
  if (sheetCurve == nullptr) return false;
  const PixelBlock block{columnBegin, columnEnd, rowBegin, rowEnd};
  if (block.IsEmpty()) return true;
  if (!block.IsInside(x) || !block.IsInside(z)) return false;
  const kernel::SheetCurveRow correct = kernel::sheetCurveRow(cmnalg::currentInstructionSet());
  threading_helpers::forEachRowBlock(rowBegin, rowEnd, block.Columns(), [&](int first, int last) {
    for (int row = first; row < last; ++row) {
      correct(sheetCurve, block.Columns(), x.GetRowPtr(row) + columnBegin,
              z.GetRowPtr(row) + columnBegin);
    }
  });
  return true;
}

}  // namespace datafusion::planex::basic
