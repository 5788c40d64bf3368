#include "planex/api/rectification_grid.h"

#include <cstddef>
#include <limits>

#include "planex/api/calibration_exception.h"
#include "planex/api/world_bounds.h"
#include "planex/foundation/image_of.h"

namespace tavik::planex {
namespace {

using datafusion::planex::HeightGrid;

struct ConvertRowKernel {
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

/// A count beyond int, or a product beyond it, is a size that no image can have.
bool isImageSize(std::uint64_t width, std::uint64_t height) {
  constexpr std::uint64_t kLimit = std::numeric_limits<int>::max();
  return width >= 1 && height >= 1 && width <= kLimit && height <= kLimit &&
         width * height <= kLimit;
}

}  // namespace

HeightGrid heightGridOf(const WorldRangeTraits& traits) {
  const RangeTransform transform = transformOf(traits);
  cmnalg::ImageOf<std::uint16_t> described(0, 0, cmnalg::Image::s_defaultImageAllocator);
  described.PixelSize.x = transform.scaleX;
  described.Origin.x = transform.originX;
  described.PixelSize.z = transform.scaleZ;
  described.Origin.z = transform.originZ;
  CalibrationException::throwUnless(described.IsConsistent(), kInvalidScaleMessage);
  CalibrationException::throwUnless(isImageSize(traits.xCount, traits.yCount),
                                    kInvalidScaleMessage);
  return {static_cast<int>(traits.xCount), static_cast<int>(traits.yCount), described.PixelSize,
          described.Origin};
}

WorldRangeWriter::WorldRangeWriter(const HeightGrid& grid, float missingDataValue, float* out)
    : convertRow_(cmnalg::KernelVariants<ConvertRowKernel,
                                         void(const std::uint16_t*, int, float, float, float,
                                              float*)>::choose(cmnalg::currentInstructionSet())),
      width_(grid.width),
      scale_(static_cast<float>(grid.pixelSize.z)),
      origin_(static_cast<float>(grid.origin.z)),
      missing_(missingDataValue),
      out_(out) {}

void WorldRangeWriter::WriteRow(int row, const std::uint16_t* heights) const {
  float* out = out_ + static_cast<std::ptrdiff_t>(row) * width_;
  convertRow_(heights, width_, scale_, origin_, missing_, out);
}

}  // namespace tavik::planex
