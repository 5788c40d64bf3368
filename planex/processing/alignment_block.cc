#include "planex/processing/alignment_block.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "planex/infra/float_environment.h"
#include "planex/processing/alignment_kernel.h"
#include "planex/processing/pixel_block.h"
#include "planex/processing/row_parallel.h"

namespace datafusion::planex::basic {
namespace {

/// Whether stored values are physical ones, to the last digits that matter.
bool storesPhysicalValues(const cmnalg::Image& image) {
  constexpr double kTolerance = 1e-13;
  return std::abs(1.0 - image.PixelSize.z) <= kTolerance && image.Origin.z == 0.0;
}

kernel::AlignmentConstants alignmentConstants(const cmnalg::Image& x, const cmnalg::Image& z,
                                              const cmnalg::Matrix<double>& transform) {
  kernel::AlignmentConstants k{{}, x.PixelSize.z, x.Origin.z, z.PixelSize.z, z.Origin.z};
  double* out = k.transform;
  for (int row = 0; row < 3; ++row) out = std::copy_n(transform[row], 4, out);
  return k;
}

}  // namespace

bool applyAlignment(const cmnalg::Image& x, const etl::Vector<double>& y, const cmnalg::Image& z,
                    const cmnalg::Matrix<double>& transform, cmnalg::ImageOf<float>& xOut,
                    cmnalg::ImageOf<float>& yOut, cmnalg::ImageOf<float>& zOut) {
  return applyAlignmentBlock(0, z.GetWidth(), 0, z.GetHeight(), x, y, z, transform, xOut, yOut,
                             zOut);
}

bool applyAlignmentBlock(int columnBegin, int columnEnd, int rowBegin, int rowEnd,
                         const cmnalg::Image& x, const etl::Vector<double>& y,
                         const cmnalg::Image& z, const cmnalg::Matrix<double>& transform,
                         cmnalg::ImageOf<float>& xOut, cmnalg::ImageOf<float>& yOut,
                         cmnalg::ImageOf<float>& zOut) {
  const base::DefaultFloatEnvironment environment;
  const kernel::AlignRow align =
      kernel::alignRow(x.GetType(), z.GetType(), storesPhysicalValues(x) && storesPhysicalValues(z),
                       cmnalg::currentInstructionSet());
  if (align == nullptr || transform.Width() < 4 || transform.Height() < 3) return false;
  const PixelBlock block{columnBegin, columnEnd, rowBegin, rowEnd};
  if (block.IsEmpty()) return true;
  if (!block.HasColumnsInside(x) || x.GetHeight() < 1 ||
      static_cast<std::size_t>(rowEnd) > y.size()) {
    return false;
  }
  for (const cmnalg::Image* image :
       {&z, static_cast<const cmnalg::Image*>(&xOut), static_cast<const cmnalg::Image*>(&yOut),
        static_cast<const cmnalg::Image*>(&zOut)}) {
    if (!block.IsInside(*image)) return false;
  }
  const kernel::AlignmentConstants constants = alignmentConstants(x, z, transform);
  threading_helpers::forEachRowBlock(rowBegin, rowEnd, block.Columns(), [&](int first, int last) {
    for (int row = first; row < last; ++row) {
      align(pixelAddress(x, columnBegin, row % x.GetHeight()), pixelAddress(z, columnBegin, row),
            static_cast<float>(y[static_cast<std::size_t>(row)]), block.Columns(), constants,
            xOut.GetRowPtr(row) + columnBegin, yOut.GetRowPtr(row) + columnBegin,
            zOut.GetRowPtr(row) + columnBegin);
    }
  });
  return true;
}

}  // namespace datafusion::planex::basic
