#include "planex/api/rectification_grid.h"

#include <limits>

#include "planex/api/calibration_exception.h"
#include "planex/api/world_bounds.h"
#include "planex/foundation/multiversion.h"

namespace tavik::planex {
namespace {

struct ConvertRow {
  template <bool kHardwareFma>
  PLANEX_ALWAYS_INLINE static void run(const std::uint16_t* __restrict values, int columns,
                                       float scale, float origin, float missing,
                                       float* __restrict out) {
#pragma omp simd
    for (int i = 0; i < columns; ++i) {
      const float range =
          cmnalg::fusedMultiplyAdd<kHardwareFma>(static_cast<float>(values[i]), scale, origin);
      out[i] = values[i] == 0 ? missing : range;
    }
  }
};

using ConvertRowVariants = cmnalg::KernelVariants<ConvertRow, void(const std::uint16_t*, int, float,
                                                                   float, float, float*)>;

void requireConsistent(const cmnalg::Image& image) {
  CalibrationException::throwUnless(image.IsConsistent(), kInvalidScaleMessage);
}

bool isImageSize(std::uint32_t count) {
  return count >= 1 && count <= static_cast<std::uint32_t>(std::numeric_limits<int>::max());
}

}  // namespace

RectificationGrid::RectificationGrid(const WorldRangeTraits& traits) {
  const RangeTransform transform = transformOf(traits);
  values_.Create(0, 0, cmnalg::Image::s_defaultImageAllocator);
  values_.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  values_.PixelSize.x = transform.scaleX;
  values_.Origin.x = transform.originX;
  values_.PixelSize.z = transform.scaleZ;
  values_.Origin.z = transform.originZ;
  requireConsistent(values_);

  CalibrationException::throwUnless(isImageSize(traits.xCount) && isImageSize(traits.yCount),
                                    kInvalidScaleMessage);
  values_.Create(static_cast<int>(traits.xCount), static_cast<int>(traits.yCount),
                 cmnalg::Image::s_defaultImageAllocator);
  requireConsistent(values_);
}

void RectificationGrid::toWorldRange(float missingDataValue, float* out) const {
  const auto scale = static_cast<float>(values_.PixelSize.z);
  const auto origin = static_cast<float>(values_.Origin.z);
  const auto convertRow = ConvertRowVariants::choose(cmnalg::currentInstructionSet());
  for (int row = 0; row < values_.GetHeight(); ++row) {
    convertRow(values_.GetRowPtr(row), values_.GetWidth(), scale, origin, missingDataValue, out);
    out += values_.GetWidth();
  }
}

}  // namespace tavik::planex
