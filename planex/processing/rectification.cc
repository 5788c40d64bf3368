#include "planex/processing/rectification.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "planex/infra/containers.h"
#include "planex/infra/logger.h"
#include "planex/processing/image_overlap.h"
#include "planex/processing/pixel_block.h"
#include "planex/processing/rectification_kernel.h"
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

kernel::SplatCoefficients splatCoefficients(const Image& x, const Image& z,
                                            const cmnalg::Vec<2, double>& lateralSpacing,
                                            double splatSize, const Image& target) {
  const double a = lateralSpacing.x * splatSize;
  const double b = lateralSpacing.y * splatSize;
  kernel::SplatCoefficients k{};
  k.columnScale = x.PixelSize.z / target.PixelSize.x;
  k.columnOffset = (x.Origin.z - target.Origin.x) / target.PixelSize.x;
  k.heightScale = z.PixelSize.z / target.PixelSize.z;
  k.heightOffset = (z.Origin.z - target.Origin.z) / target.PixelSize.z;
  k.widthSlope = kSplatOverlap * target.PixelSize.z * a / target.PixelSize.x;
  k.widthIntercept = kSplatOverlap * (target.Origin.z * a + b) / target.PixelSize.x;
  k.columnLimit = std::min(target.GetWidth() + double{kernel::kMaximumHalfWidth}, 2147483648.0);
  return k;
}

/// The arrays that one thread works with.
class RowScratch {
 public:
  RowScratch(int points, bool mean, std::size_t resolverBytes)
      : integers_(static_cast<std::size_t>(points) * 3),
        heights_(mean ? static_cast<std::size_t>(points) : 0),
        cells_((resolverBytes + sizeof(double) - 1) / sizeof(double)),
        placed_{integers_.data(), integers_.data() + points, integers_.data() + 2 * points,
                heights_.data(), points} {}

  const kernel::PlacedPoints& Points() const { return placed_; }
  void* Cells() { return cells_.data(); }

 private:
  etl::Vector<std::int32_t> integers_;
  etl::Vector<double> heights_;
  etl::Vector<double> cells_;
  kernel::PlacedPoints placed_;
};

/// What both overloads have in common once the arguments are checked.
bool rectifyRows(const Image& x, const Image& z, const ImageOf<std::uint8_t>* intensity,
                 const cmnalg::Vec<2, double>& lateralSpacing, double splatSize,
                 RectificationMode mode, ImageOf<std::uint16_t>& target,
                 ImageOf<std::uint8_t>* targetIntensity, bool clearTarget) {
  if (clearTarget) {
    clear(target);
    if (targetIntensity != nullptr) clear(*targetIntensity);
  }
  const bool withIntensity = intensity != nullptr;
  const bool mean = mode == RectificationMode::MEAN;
  const cmnalg::InstructionSet set = cmnalg::currentInstructionSet();
  const kernel::PlaceRow place = kernel::placeRow(x.GetType(), z.GetType(), mean, set);
  if (place == nullptr) return false;
  const kernel::SplatCoefficients coefficients =
      splatCoefficients(x, z, lateralSpacing, splatSize, target);
  const int points = x.GetWidth();
  const kernel::Resolver resolver =
      kernel::resolver(mode, withIntensity, clearTarget, points, target.GetWidth(),
                       kernel::largestHalfWidth(coefficients), set);
  if (resolver.run == nullptr) {
    return refuse(withIntensity ? "Unsupported rectification mode."
                                : "Intensity must be provided to use rectification modes "
                                  "BRIGHTEST or DARKEST.");
  }
  threading_helpers::forEachRowBlock(0, x.GetHeight(), points, [&](int first, int last) {
    RowScratch scratch(points, mean, resolver.scratchBytes);
    for (int row = first; row < last; ++row) {
      const int widest =
          place(pixelAddress(x, 0, row), pixelAddress(z, 0, row), coefficients, scratch.Points());
      const kernel::TargetRow out{
          target.GetRowPtr(row),
          targetIntensity != nullptr ? targetIntensity->GetRowPtr(row) : nullptr,
          target.GetWidth()};
      resolver.run(scratch.Points(), widest,
                   intensity != nullptr ? intensity->GetRowPtr(row) : nullptr, out,
                   scratch.Cells());
    }
  });
  return true;
}

}  // namespace

bool toRectified(const Image& x, const Image& z, const cmnalg::Vec<2, double>& lateralSpacing,
                 const double& splatSize, RectificationMode mode, ImageOf<std::uint16_t>& target,
                 bool clearTarget) {
  if (!HoldsPixels(x) || !HoldsPixels(z)) {
    return refuse("One or more input images are invalid. Please check your input.");
  }
  if (!HoldsPixels(target)) return refuse("Target image must be a valid image.");
  if (!sameSize(x, z)) return refuse("X and Z inputs must be of the same size.");
  if (target.GetHeight() != x.GetHeight()) {
    return refuse("Target image must have the same height as the source image.");
  }
  if (splatSize < 0.0) return refuse("Splat size should be larger than 0.0.");
  if (target.HandleZeroPixels != cmnalg::ZeroPixels::MissingData) {
    return refuse("Target image must allow missing data.");
  }
  if (sharesMemory(target, x) || sharesMemory(target, z)) {
    return refuse("Cannot reuse source image as target image.");
  }
  return rectifyRows(x, z, nullptr, lateralSpacing, splatSize, mode, target, nullptr, clearTarget);
}

bool toRectified(const Image& x, const Image& z, const Image& intensity,
                 const cmnalg::Vec<2, double>& lateralSpacing, const double& splatSize,
                 RectificationMode mode, ImageOf<std::uint16_t>& target,
                 ImageOf<std::uint8_t>& targetIntensity, bool clearTarget) {
  if (!HoldsPixels(x) || !HoldsPixels(z) || !HoldsPixels(intensity)) {
    return refuse("One or more input images are invalid. Please check your input.");
  }
  if (!HoldsPixels(target) || !HoldsPixels(targetIntensity)) {
    return refuse("Target images must be valid.");
  }
  if (!sameSize(x, z) || !sameSize(x, intensity)) {
    return refuse("X, Z and I inputs must be of the same size.");
  }
  if (target.GetHeight() != x.GetHeight() || targetIntensity.GetHeight() != x.GetHeight()) {
    return refuse("Target images must have the same height as the source images.");
  }
  if (intensity.GetType() != cmnalg::IMAGE_TYPE_UINT8) {
    return refuse("Intensity image must be of UINT8 type.");
  }
  if (splatSize < 0.0) return refuse("Splat size should be larger than 0.");
  if (target.HandleZeroPixels != cmnalg::ZeroPixels::MissingData) {
    return refuse("Target image must allow missing data.");
  }
  for (const Image* source : {&x, &z, &intensity}) {
    if (sharesMemory(target, *source) || sharesMemory(targetIntensity, *source)) {
      return refuse("Cannot reuse source image as target image.");
    }
  }
  if (sharesMemory(target, targetIntensity)) {
    return refuse("Cannot reuse source image as target image.");
  }
  if (targetIntensity.GetWidth() < target.GetWidth()) {
    return refuse("The intensity target must be at least as wide as the target image.");
  }
  const ImageOf<std::uint8_t> view(intensity, false);
  return rectifyRows(x, z, &view, lateralSpacing, splatSize, mode, target, &targetIntensity,
                     clearTarget);
}

}  // namespace datafusion::planex
