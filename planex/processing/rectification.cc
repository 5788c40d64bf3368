#include "planex/processing/rectification.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <vector>

#include "planex/foundation/memory_overlap.h"
#include "planex/infra/containers.h"
#include "planex/infra/float_environment.h"
#include "planex/model/model_checks.h"
#include "planex/processing/pixel_block.h"
#include "planex/processing/rectification_kernel.h"
#include "planex/processing/row_parallel.h"
#include "planex/processing/world_heights.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::impro::HoldsPixels;

constexpr const char* kReusedSource = "Cannot reuse source image as target image.";
constexpr double kSplatOverlap = 0.55;  // half the spacing and a tenth more

bool sameSize(const Image& a, const Image& b) {
  return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight();
}

void clear(Image& image) { std::memset(image.GetData(), 0, cmnalg::extentOf(image).size); }

HeightGrid gridOf(const Image& target) {
  return {target.GetWidth(),
          target.GetHeight(),
          {target.PixelSize.x, target.Origin.x},
          {target.PixelSize.z, target.Origin.z}};
}

/// The points of a call, and how they are spread.
struct Points {
  const Image& x;
  const Image& z;
  const Image* intensity;  // null where there is none
  SplatShape splat;
  RectificationMode mode;
};

kernel::SplatCoefficients splatCoefficients(const Points& from, const HeightGrid& grid) {
  const double a = from.splat.lateralSpacing.x * from.splat.size;
  const double b = from.splat.lateralSpacing.y * from.splat.size;
  kernel::SplatCoefficients k{};
  k.columnScale = from.x.PixelSize.z / grid.x.scale;
  k.columnOffset = (from.x.Origin.z - grid.x.origin) / grid.x.scale;
  k.heightScale = from.z.PixelSize.z / grid.levels.scale;
  k.heightOffset = (from.z.Origin.z - grid.levels.origin) / grid.levels.scale;
  k.widthSlope = kSplatOverlap * grid.levels.scale * a / grid.x.scale;
  k.widthIntercept = kSplatOverlap * (grid.levels.origin * a + b) / grid.x.scale;
  k.columnLimit = std::min(grid.width + double{kernel::kMaximumHalfWidth}, 2147483648.0);
  return k;
}

/// Heights as they are: into the rows of an image of levels.
class LevelRows {
 public:
  explicit LevelRows(ImageOf<std::uint16_t>& target) : target_(target) {}
  std::uint16_t* Begin(int row) { return target_.GetRowPtr(row); }
  void End(int /*row*/) {}

 private:
  ImageOf<std::uint16_t>& target_;
};

/// Heights in world units: one cleared row of levels at a time, into the rows of an image of floats
/// where there is one.
class WorldRows {
 public:
  WorldRows(ImageOf<float>* target, float missing, const HeightGrid& grid)
      : target_(target),
        missing_(missing),
        axis_(grid.levels),
        levels_(static_cast<std::size_t>(grid.width)) {}

  std::uint16_t* Begin(int /*row*/) {
    std::fill(levels_.begin(), levels_.end(), std::uint16_t{0});
    return levels_.data();
  }
  void End(int row) {
    if (target_ == nullptr) return;
    toWorldHeights(levels_.data(), levels_.size(), axis_, missing_, target_->GetRowPtr(row));
  }

 private:
  ImageOf<float>* target_;
  float missing_;
  GridAxis axis_;
  etl::Vector<std::uint16_t> levels_;
};

/// What one thread works with: its arrays, and where its heights go (LevelRows or WorldRows).
template <typename Rows>
struct RowScratch {
  RowScratch(int points, bool mean, std::size_t resolverBytes, const Rows& prototype)
      : integers(static_cast<std::size_t>(points) * 3),
        heights(mean ? static_cast<std::size_t>(points) : 0),
        cells((resolverBytes + sizeof(double) - 1) / sizeof(double)),
        placed{integers.data(), integers.data() + points, integers.data() + points + points,
               heights.data(), points},
        rows(prototype) {}

  etl::Vector<std::int32_t> integers;
  etl::Vector<double> heights;
  etl::Vector<double> cells;
  kernel::PlacedPoints placed;
  Rows rows;
};

/// The part that all forms have in common once arguments are checked and targets cleared.
/// @param prototype where heights go; every thread works with a copy
template <typename Rows>
bool rectifyRows(const Points& from, const HeightGrid& grid, ImageOf<std::uint8_t>* targetIntensity,
                 bool overwrite, const Rows& prototype) {
  const bool withIntensity = from.intensity != nullptr;
  const bool mean = from.mode == RectificationMode::MEAN;
  const cmnalg::InstructionSet set = cmnalg::currentInstructionSet();
  const kernel::PlaceRow place = kernel::placeRow(from.x.GetType(), from.z.GetType(), mean, set);
  if (place == nullptr) return false;
  const kernel::SplatCoefficients coefficients = splatCoefficients(from, grid);
  const int points = from.x.GetWidth();
  const kernel::Resolver resolver =
      kernel::resolver(from.mode, withIntensity, overwrite, points, grid.width,
                       kernel::largestHalfWidth(coefficients), set);
  if (resolver.run == nullptr) {
    return refuse(withIntensity ? "Unsupported rectification mode."
                                : "Intensity must be provided to use rectification modes "
                                  "BRIGHTEST or DARKEST.");
  }
  // All memory is there before the first height is written: a target is complete or untouched.
  const int rows = from.x.GetHeight();
  const int blocks = threading_helpers::maximumRowBlocks(0, rows, points);
  std::vector<RowScratch<Rows>> scratches;
  scratches.reserve(static_cast<std::size_t>(blocks));
  for (int i = 0; i < blocks; ++i) {
    scratches.emplace_back(points, mean, resolver.scratchBytes, prototype);
  }
  std::atomic<std::size_t> next{0};
  threading_helpers::forEachRowBlock(0, rows, points, [&](int first, int last) {
    RowScratch<Rows>& scratch = scratches[next++];
    for (int row = first; row < last; ++row) {
      const kernel::WidthRange widths = place(
          pixelAddress(from.x, 0, row), pixelAddress(from.z, 0, row), coefficients, scratch.placed);
      const kernel::TargetRow out{scratch.rows.Begin(row),
                                  withIntensity ? targetIntensity->GetRowPtr(row) : nullptr,
                                  grid.width};
      resolver.run(scratch.placed, widths,
                   withIntensity ? reinterpret_cast<const std::uint8_t*>(
                                       pixelAddress(*from.intensity, 0, row))
                                 : nullptr,
                   out, scratch.cells.data());
      scratch.rows.End(row);
    }
  });
  return true;
}

// Checks in the order in which a caller hears of them. `target` is null where heights go into world
// units: as a valid target that allows missing data and shares no memory.

bool sharesMemoryWithAny(const Image& target, const Points& from) {
  return sharesMemory(target, from.x) || sharesMemory(target, from.z) ||
         (from.intensity != nullptr && sharesMemory(target, *from.intensity));
}

bool checkHeights(const Points& from, const HeightGrid& grid, const Image* target) {
  if (!HoldsPixels(from.x) || !HoldsPixels(from.z)) {
    return refuse("One or more input images are invalid. Please check your input.");
  }
  if (target != nullptr && !HoldsPixels(*target)) {
    return refuse("Target image must be a valid image.");
  }
  if (!sameSize(from.x, from.z)) return refuse("X and Z inputs must be of the same size.");
  if (grid.height != from.x.GetHeight()) {
    return refuse("Target image must have the same height as the source image.");
  }
  if (from.splat.size < 0.0) return refuse("Splat size should be larger than 0.0.");
  if (target == nullptr) return true;
  if (target->HandleZeroPixels != cmnalg::ZeroPixels::MissingData) {
    return refuse("Target image must allow missing data.");
  }
  return !sharesMemoryWithAny(*target, from) || refuse(kReusedSource);
}

bool checkWithIntensity(const Points& from, const HeightGrid& grid, const Image& targetIntensity,
                        const Image* target) {
  if (!HoldsPixels(from.x) || !HoldsPixels(from.z) || !HoldsPixels(*from.intensity)) {
    return refuse("One or more input images are invalid. Please check your input.");
  }
  if ((target != nullptr && !HoldsPixels(*target)) || !HoldsPixels(targetIntensity)) {
    return refuse("Target images must be valid.");
  }
  if (!sameSize(from.x, from.z) || !sameSize(from.x, *from.intensity)) {
    return refuse("X, Z and I inputs must be of the same size.");
  }
  if (grid.height != from.x.GetHeight() || targetIntensity.GetHeight() != from.x.GetHeight()) {
    return refuse("Target images must have the same height as the source images.");
  }
  if (from.intensity->GetType() != cmnalg::IMAGE_TYPE_UINT8) {
    return refuse("Intensity image must be of UINT8 type.");
  }
  if (from.splat.size < 0.0) return refuse("Splat size should be larger than 0.");
  if (target != nullptr && target->HandleZeroPixels != cmnalg::ZeroPixels::MissingData) {
    return refuse("Target image must allow missing data.");
  }
  if (sharesMemoryWithAny(targetIntensity, from) ||
      (target != nullptr &&
       (sharesMemoryWithAny(*target, from) || sharesMemory(*target, targetIntensity)))) {
    return refuse(kReusedSource);
  }
  if (targetIntensity.GetWidth() < grid.width) {
    return refuse("The intensity target must be at least as wide as the target image.");
  }
  return true;
}

/// Rectifies into world heights, once the sources are checked: into a copy first where the target
/// shares memory with what is still to be read.
bool rectifyWorld(const Points& from, const HeightGrid& grid, float missing, ImageOf<float>* target,
                  ImageOf<std::uint8_t>* targetIntensity) {
  if (grid.width < 1 ||
      (target != nullptr && (!HoldsPixels(*target) || target->GetWidth() != grid.width ||
                             target->GetHeight() != grid.height))) {
    return refuse("The height target must be as large as the grid.");
  }
  if (target != nullptr && targetIntensity != nullptr && sharesMemory(*target, *targetIntensity)) {
    return refuse(kReusedSource);
  }
  std::vector<float> copy;
  ImageOf<float> copied;
  const bool shared = target != nullptr && sharesMemoryWithAny(*target, from);
  if (shared) {
    copy.resize(static_cast<std::size_t>(grid.width) * static_cast<std::size_t>(grid.height));
    copied.Create(copy.data(), grid.width, grid.height, 0, false, Image::s_defaultImageAllocator,
                  false);
  }
  if (targetIntensity != nullptr) clear(*targetIntensity);
  const WorldRows rows(shared ? &copied : target, missing, grid);
  if (!rectifyRows(from, grid, targetIntensity, true, rows)) return false;
  for (int row = 0; shared && row < grid.height; ++row) {
    std::copy_n(copied.GetRowPtr(row), grid.width, target->GetRowPtr(row));
  }
  return true;
}

}  // namespace

bool toRectified(const Image& x, const Image& z, const cmnalg::Vec<2, double>& lateralSpacing,
                 const double& splatSize, RectificationMode mode, ImageOf<std::uint16_t>& target,
                 bool clearTarget) {
  const base::DefaultFloatEnvironment environment;
  const Points from{x, z, nullptr, {lateralSpacing, splatSize}, mode};
  const HeightGrid grid = gridOf(target);
  if (!checkHeights(from, grid, &target)) return false;
  if (clearTarget) clear(target);
  return rectifyRows(from, grid, nullptr, clearTarget, LevelRows(target));
}

bool toRectified(const Image& x, const Image& z, const Image& intensity,
                 const cmnalg::Vec<2, double>& lateralSpacing, const double& splatSize,
                 RectificationMode mode, ImageOf<std::uint16_t>& target,
                 ImageOf<std::uint8_t>& targetIntensity, bool clearTarget) {
  const base::DefaultFloatEnvironment environment;
  const Points from{x, z, &intensity, {lateralSpacing, splatSize}, mode};
  const HeightGrid grid = gridOf(target);
  if (!checkWithIntensity(from, grid, targetIntensity, &target)) return false;
  if (clearTarget) {
    clear(target);
    clear(targetIntensity);
  }
  return rectifyRows(from, grid, &targetIntensity, clearTarget, LevelRows(target));
}

bool toRectifiedWorld(const Image& x, const Image& z, const SplatShape& splat,
                      RectificationMode mode, const HeightGrid& grid, float missing,
                      ImageOf<float>& targetHeights) {
  const base::DefaultFloatEnvironment environment;
  const Points from{x, z, nullptr, splat, mode};
  return checkHeights(from, grid, nullptr) &&
         rectifyWorld(from, grid, missing, &targetHeights, nullptr);
}

bool toRectifiedWorld(const Image& x, const Image& z, const Image& intensity,
                      const SplatShape& splat, RectificationMode mode, const HeightGrid& grid,
                      float missing, ImageOf<float>* targetHeights,
                      ImageOf<std::uint8_t>& targetIntensity) {
  const base::DefaultFloatEnvironment environment;
  const Points from{x, z, &intensity, splat, mode};
  return checkWithIntensity(from, grid, targetIntensity, nullptr) &&
         rectifyWorld(from, grid, missing, targetHeights, &targetIntensity);
}

}  // namespace datafusion::planex
