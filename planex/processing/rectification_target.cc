#include "planex/processing/rectification_target.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "planex/infra/float_environment.h"
#include "planex/infra/logger.h"
#include "planex/model/model_checks.h"
#include "planex/processing/height_grid.h"

namespace datafusion::planex {
namespace {

constexpr int kMaximumPixels = 100000000;
constexpr double kDefaultZSteps = 16383.0;

bool refuseLimits() {
  return refuse("Maximum coordinate limits must be larger than the minimum coordinate limits.");
}

/// Creates the cleared image and describes its axes.
bool createGrid(int width, int height, const cmnalg::Vec<3, double>& pixelSize,
                const cmnalg::Vec<3, double>& minimum, cmnalg::Image& target,
                cmnalg::ImageType type, unsigned char missingData) {
  if (!target.Create(type, width, height, 0, cmnalg::Image::s_defaultImageAllocator)) return false;
  if (target.GetRawBufferSize() > 0) std::memset(target.GetData(), 0, target.GetRawBufferSize());
  target.HandleZeroPixels = static_cast<cmnalg::ZeroPixels>(missingData);
  target.PixelSize = pixelSize;
  target.Origin = minimum;
  if (missingData != 0) target.Origin.z = minimum.z - pixelSize.z;
  return true;
}

}  // namespace

bool createRectificationTarget(const int& width, const double& xMin, const double& xMax,
                               const int& height, const double& yMin, const double& yMax,
                               const int& zSteps, const double& zMin, const double& zMax,
                               cmnalg::Image& target, cmnalg::ImageType type,
                               unsigned char missingData) {
  const base::DefaultFloatEnvironment environment;
  if (width < 2) return refuse("The width must be larger than 1.");
  if (height < 1) return refuse("The height must be at least 1.");
  if (zSteps < 2) return refuse("The number of Z steps must be larger than 1.");
  if (!(xMax >= xMin && yMax >= yMin && zMax > zMin)) return refuseLimits();
  const cmnalg::Vec<3, double> pixelSize{sampleAxis(xMin, xMax, width).scale,
                                         height > 1 ? sampleAxis(yMin, yMax, height).scale : 1.0,
                                         sampleAxis(zMin, zMax, zSteps).scale};
  return createGrid(width, height, pixelSize, {xMin, yMin, zMin}, target, type, missingData);
}

bool createRectificationTarget(const double& pixelSizeX, const double& xMin, const double& xMax,
                               const double& pixelSizeY, const double& yMin, const double& yMax,
                               const double& pixelSizeZ, const double& zMin, const double& zMax,
                               cmnalg::Image& target, cmnalg::ImageType type,
                               unsigned char missingData) {
  const base::DefaultFloatEnvironment environment;
  if (!(pixelSizeX > 0.0 && pixelSizeY > 0.0)) {
    return refuse("Pixel sizes in x and y must be positive integers.");
  }
  if (!(xMax > xMin && yMax > yMin && zMax > zMin)) return refuseLimits();
  const double zStep = pixelSizeZ > 0.0 ? pixelSizeZ : (zMax - zMin) / kDefaultZSteps;
  const double width = std::ceil((xMax - xMin) / pixelSizeX);
  const double height = std::ceil((yMax - yMin) / pixelSizeY);
  const double pixels = width * height;
  // Each factor is tested, too: one of them can be 0 or infinite.
  if (!(pixels <= kMaximumPixels && width <= kMaximumPixels && height <= kMaximumPixels)) {
    constexpr double kShown = std::numeric_limits<int>::max();
    const int shown = static_cast<int>(pixels < kShown ? pixels : kShown);
    base::Logger::Get("Image.Calibration.Planex")
        .Warning(
            "Output image size is limited to %d pixels. Select a smaller region           or "
            "larger pixel sizes. Current output size would have been %d.",
            kMaximumPixels, shown);
    return false;
  }
  return createGrid(static_cast<int>(width), static_cast<int>(height),
                    {pixelSizeX, pixelSizeY, zStep}, {xMin, yMin, zMin}, target, type, missingData);
}

}  // namespace datafusion::planex
