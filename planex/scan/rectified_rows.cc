#include "planex/scan/rectified_rows.h"

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
