#include "planex/scan/rectified_rows.h"

#include <algorithm>
#include <new>

#include "planex/io/library_warnings.h"

namespace planex::scan {

using cmnalg::Image;

RectifiedRows::RectifiedRows(const RangeScan& scan, const IntensityImages& intensities,
                             const Rectification& rectification)
    : CalibratedRows(scan), rectification_(rectification), rectified_(intensities.size()) {
  for (const auto& intensity : intensities) intensities_.emplace_back(*intensity);
}

void RectifiedRows::read() {
  CalibratedRows::read();
  for (IntensityRows& intensity : intensities_) intensity.read(first(), count());
}

void RectifiedRows::process() {
  CalibratedRows::process();
  const auto& [grid, splat, mode] = rectification_;
  if (!heights_.Create(grid.width, count(), Image::s_defaultImageAllocator)) throw std::bad_alloc();
  heights_.PixelSize = {grid.x.scale, 1, grid.levels.scale};
  heights_.Origin = {grid.x.origin, 0, grid.levels.origin};
  heights_.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;

  bool rectified = true;
  for (std::size_t i = 0; i < intensities_.size() && rectified; ++i) rectified = rectify(i);
  if (intensities_.empty()) {
    rectified = toRectified(x(), z(), splat.lateralSpacing, splat.size, mode, heights_, true);
  }
  if (!rectified) io::failWithLibraryWarnings("rectify", "is refused", "see planex rectify --help");
  countPoints();
}

void RectifiedRows::countPoints() {
  const auto& [scaleX, originX] = rectification_.grid.x;
  const auto& [scaleZ, originZ] = rectification_.grid.levels;
  // Columns are rounded. Levels are truncated, in means behind the sum.
  const auto xMin = static_cast<float>(originX - 0.5 * scaleX);
  const auto xMax = static_cast<float>(originX + (rectification_.grid.width - 0.5) * scaleX);
  const bool mean = rectification_.mode == datafusion::planex::RectificationMode::MEAN;
  const auto zMin = static_cast<float>(originZ + (mean ? 0 : scaleZ));
  const auto zMax = static_cast<float>(originZ + (mean ? 65535 : 65536) * scaleZ);
  const std::size_t count =
      static_cast<std::size_t>(x().GetWidth()) * static_cast<std::size_t>(x().GetHeight());
  const float* const x = this->x().GetRowPtr(0);
  const float* const z = this->z().GetRowPtr(0);
  share_ = {};
  for (std::size_t i = 0; i < count;) {
    // Counts of few points fit the type in which the loop is vectorised.
    const std::size_t end = std::min(count, i + 4096);
    int points = 0, inColumns = 0, outside = 0;
#pragma omp simd reduction(+ : points, inColumns, outside)
    for (std::size_t k = i; k < end; ++k) {
      const bool inside = (x[k] >= xMin) & (x[k] < xMax);
      points += (x[k] == x[k]) & (z[k] == z[k]);
      inColumns += inside & (z[k] == z[k]);
      outside += inside & ((z[k] < zMin) | (z[k] > zMax));
    }
    i = end;
    share_.points += points;
    share_.inColumns += inColumns;
    share_.outsideLevels += outside;
  }
}

bool RectifiedRows::rectify(std::size_t i) {
  intensities_[i].reduce();
  if (!rectified_[i].Create(rectification_.grid.width, count(), Image::s_defaultImageAllocator)) {
    throw std::bad_alloc();
  }
  return toRectified(x(), z(), intensities_[i].image(), rectification_.splat.lateralSpacing,
                     rectification_.splat.size, rectification_.mode, heights_, rectified_[i], true);
}

std::size_t RectifiedRows::cellCount() const {
  return static_cast<std::size_t>(rectification_.grid.width) * static_cast<std::size_t>(count());
}

}  // namespace planex::scan
