#include "planex/processing/rectification.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "planex/infra/containers.h"
#include "planex/infra/logger.h"
#include "planex/processing/image_overlap.h"
#include "planex/processing/pixel_block.h"
#include "planex/processing/rectification_kernel.h"
#include "planex/processing/rectification_rows.h"
#include "planex/processing/row_parallel.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::impro::HoldsPixels;

constexpr double kSplatOverlap = 0.55;  // half the spacing and a tenth more

bool refuse(const char* message) {
  base::Logger::Get("Image.Calibration.Planex").Warning("%s", message);
  return false;
}

bool sameSize(const Image& a, const Image& b) {
  return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight();
}

void clear(Image& image) { std::memset(image.GetData(), 0, image.GetRawBufferSize()); }

HeightGrid gridOf(const Image& target) {
  return {target.GetWidth(), target.GetHeight(), target.PixelSize, target.Origin};
}

kernel::SplatCoefficients splatCoefficients(const Image& x, const Image& z, const SplatShape& splat,
                                            const HeightGrid& grid) {
  const double a = splat.lateralSpacing.x * splat.size;
  const double b = splat.lateralSpacing.y * splat.size;
  kernel::SplatCoefficients k{};
  k.columnScale = x.PixelSize.z / grid.pixelSize.x;
  k.columnOffset = (x.Origin.z - grid.origin.x) / grid.pixelSize.x;
  k.heightScale = z.PixelSize.z / grid.pixelSize.z;
  k.heightOffset = (z.Origin.z - grid.origin.z) / grid.pixelSize.z;
  k.widthSlope = kSplatOverlap * grid.pixelSize.z * a / grid.pixelSize.x;
  k.widthIntercept = kSplatOverlap * (grid.origin.z * a + b) / grid.pixelSize.x;
  k.columnLimit = std::min(grid.width + double{kernel::kMaximumHalfWidth}, 2147483648.0);
  return k;
}

/// What one thread works with: its arrays, and where its heights go (ImageRows or SinkRows).
template <typename Rows>
class RowScratch {
 public:
  RowScratch(int points, bool mean, std::size_t resolverBytes, Rows rows)
      : integers_(static_cast<std::size_t>(points) * 3),
        heights_(mean ? static_cast<std::size_t>(points) : 0),
        cells_((resolverBytes + sizeof(double) - 1) / sizeof(double)),
        placed_{integers_.data(), integers_.data() + points, integers_.data() + points + points,
                heights_.data(), points},
        rows_(std::move(rows)) {}

  const kernel::PlacedPoints& Points() const { return placed_; }
  void* Cells() { return cells_.data(); }
  Rows& Heights() { return rows_; }

 private:
  etl::Vector<std::int32_t> integers_;
  etl::Vector<double> heights_;
  etl::Vector<double> cells_;
  kernel::PlacedPoints placed_;
  Rows rows_;
};

/// Where heights go: into the rows of an image.
class ImageRows {
 public:
  explicit ImageRows(ImageOf<std::uint16_t>& target) : target_(target) {}
  std::uint16_t* Begin(int row) { return target_.GetRowPtr(row); }
  void End(int /*row*/) {}

 private:
  ImageOf<std::uint16_t>& target_;
};

/// Where heights go: into one cleared row at a time, which a sink takes over.
class SinkRows {
 public:
  SinkRows(int width, const HeightRowSink& sink)
      : heights_(static_cast<std::size_t>(width)), sink_(sink) {}
  std::uint16_t* Begin(int /*row*/) {
    std::fill(heights_.begin(), heights_.end(), std::uint16_t{0});
    return heights_.data();
  }
  void End(int row) { sink_(row, heights_.data()); }

 private:
  etl::Vector<std::uint16_t> heights_;
  const HeightRowSink& sink_;
};

/// The part that all forms have in common once arguments are checked and targets cleared.
/// @param makeRows ImageRows or SinkRows for one thread
template <typename MakeRows>
bool rectifyRows(const Image& x, const Image& z, const ImageOf<std::uint8_t>* intensity,
                 const SplatShape& splat, RectificationMode mode, const HeightGrid& grid,
                 ImageOf<std::uint8_t>* targetIntensity, bool overwrite, MakeRows makeRows) {
  const bool withIntensity = intensity != nullptr;
  const bool mean = mode == RectificationMode::MEAN;
  const cmnalg::InstructionSet set = cmnalg::currentInstructionSet();
  const kernel::PlaceRow place = kernel::placeRow(x.GetType(), z.GetType(), mean, set);
  if (place == nullptr) return false;
  const kernel::SplatCoefficients coefficients = splatCoefficients(x, z, splat, grid);
  const int points = x.GetWidth();
  const kernel::Resolver resolver =
      kernel::resolver(mode, withIntensity, overwrite, points, grid.width,
                       kernel::largestHalfWidth(coefficients), set);
  if (resolver.run == nullptr) {
    return refuse(withIntensity ? "Unsupported rectification mode."
                                : "Intensity must be provided to use rectification modes "
                                  "BRIGHTEST or DARKEST.");
  }
  // All memory is there before the first height is written: a target is complete or untouched.
  const int blocks = threading_helpers::maximumRowBlocks(0, x.GetHeight(), points);
  std::vector<RowScratch<decltype(makeRows())>> scratches;
  scratches.reserve(static_cast<std::size_t>(blocks));
  for (int i = 0; i < blocks; ++i) {
    scratches.emplace_back(points, mean, resolver.scratchBytes, makeRows());
  }
  std::atomic<std::size_t> next{0};
  threading_helpers::forEachRowBlock(0, x.GetHeight(), points, [&](int first, int last) {
    auto& scratch = scratches[next++];
    auto& rows = scratch.Heights();
    for (int row = first; row < last; ++row) {
      const kernel::WidthRange widths =
          place(pixelAddress(x, 0, row), pixelAddress(z, 0, row), coefficients, scratch.Points());
      const kernel::TargetRow out{
          rows.Begin(row), withIntensity ? targetIntensity->GetRowPtr(row) : nullptr, grid.width};
      resolver.run(scratch.Points(), widths, withIntensity ? intensity->GetRowPtr(row) : nullptr,
                   out, scratch.Cells());
      rows.End(row);
    }
  });
  return true;
}

// Checks in the order in which a caller hears of them. A grid without image stands for a valid
// target that allows missing data and shares no memory.

bool checkHeights(const Image& x, const Image& z, const HeightGrid& grid, double splatSize,
                  const Image* target) {
  if (!HoldsPixels(x) || !HoldsPixels(z)) {
    return refuse("One or more input images are invalid. Please check your input.");
  }
  if (target != nullptr && !HoldsPixels(*target)) {
    return refuse("Target image must be a valid image.");
  }
  if (!sameSize(x, z)) return refuse("X and Z inputs must be of the same size.");
  if (grid.height != x.GetHeight()) {
    return refuse("Target image must have the same height as the source image.");
  }
  if (splatSize < 0.0) return refuse("Splat size should be larger than 0.0.");
  if (target == nullptr) return true;
  if (target->HandleZeroPixels != cmnalg::ZeroPixels::MissingData) {
    return refuse("Target image must allow missing data.");
  }
  if (sharesMemory(*target, x) || sharesMemory(*target, z)) {
    return refuse("Cannot reuse source image as target image.");
  }
  return true;
}

bool sharesMemoryWithAny(const Image& target, const Image& x, const Image& z,
                         const Image& intensity) {
  return sharesMemory(target, x) || sharesMemory(target, z) || sharesMemory(target, intensity);
}

bool checkWithIntensity(const Image& x, const Image& z, const Image& intensity,
                        const HeightGrid& grid, const Image& targetIntensity, double splatSize,
                        const Image* target) {
  if (!HoldsPixels(x) || !HoldsPixels(z) || !HoldsPixels(intensity)) {
    return refuse("One or more input images are invalid. Please check your input.");
  }
  if ((target != nullptr && !HoldsPixels(*target)) || !HoldsPixels(targetIntensity)) {
    return refuse("Target images must be valid.");
  }
  if (!sameSize(x, z) || !sameSize(x, intensity)) {
    return refuse("X, Z and I inputs must be of the same size.");
  }
  if (grid.height != x.GetHeight() || targetIntensity.GetHeight() != x.GetHeight()) {
    return refuse("Target images must have the same height as the source images.");
  }
  if (intensity.GetType() != cmnalg::IMAGE_TYPE_UINT8) {
    return refuse("Intensity image must be of UINT8 type.");
  }
  if (splatSize < 0.0) return refuse("Splat size should be larger than 0.");
  if (target != nullptr && target->HandleZeroPixels != cmnalg::ZeroPixels::MissingData) {
    return refuse("Target image must allow missing data.");
  }
  if (sharesMemoryWithAny(targetIntensity, x, z, intensity) ||
      (target != nullptr &&
       (sharesMemoryWithAny(*target, x, z, intensity) || sharesMemory(*target, targetIntensity)))) {
    return refuse("Cannot reuse source image as target image.");
  }
  if (targetIntensity.GetWidth() < grid.width) {
    return refuse("The intensity target must be at least as wide as the target image.");
  }
  return true;
}

}  // namespace

bool toRectified(const Image& x, const Image& z, const cmnalg::Vec<2, double>& lateralSpacing,
                 const double& splatSize, RectificationMode mode, ImageOf<std::uint16_t>& target,
                 bool clearTarget) {
  const HeightGrid grid = gridOf(target);
  if (!checkHeights(x, z, grid, splatSize, &target)) return false;
  if (clearTarget) clear(target);
  return rectifyRows(x, z, nullptr, {lateralSpacing, splatSize}, mode, grid, nullptr, clearTarget,
                     [&] { return ImageRows(target); });
}

bool toRectified(const Image& x, const Image& z, const Image& intensity,
                 const cmnalg::Vec<2, double>& lateralSpacing, const double& splatSize,
                 RectificationMode mode, ImageOf<std::uint16_t>& target,
                 ImageOf<std::uint8_t>& targetIntensity, bool clearTarget) {
  const HeightGrid grid = gridOf(target);
  if (!checkWithIntensity(x, z, intensity, grid, targetIntensity, splatSize, &target)) return false;
  if (clearTarget) {
    clear(target);
    clear(targetIntensity);
  }
  const ImageOf<std::uint8_t> view(intensity, false);
  return rectifyRows(x, z, &view, {lateralSpacing, splatSize}, mode, grid, &targetIntensity,
                     clearTarget, [&] { return ImageRows(target); });
}

bool toRectifiedRows(const Image& x, const Image& z, const SplatShape& splat,
                     RectificationMode mode, const HeightGrid& grid, const HeightRowSink& sink) {
  return checkHeights(x, z, grid, splat.size, nullptr) &&
         rectifyRows(x, z, nullptr, splat, mode, grid, nullptr, true,
                     [&] { return SinkRows(grid.width, sink); });
}

bool toRectifiedRows(const Image& x, const Image& z, const Image& intensity,
                     const SplatShape& splat, RectificationMode mode, const HeightGrid& grid,
                     ImageOf<std::uint8_t>& targetIntensity, const HeightRowSink& sink) {
  if (!checkWithIntensity(x, z, intensity, grid, targetIntensity, splat.size, nullptr))
    return false;
  clear(targetIntensity);
  const ImageOf<std::uint8_t> view(intensity, false);
  return rectifyRows(x, z, &view, splat, mode, grid, &targetIntensity, true,
                     [&] { return SinkRows(grid.width, sink); });
}

}  // namespace datafusion::planex
