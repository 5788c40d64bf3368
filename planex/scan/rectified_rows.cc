#include "planex/scan/rectified_rows.h"

#include <new>

#include "planex/io/library_warnings.h"
#include "planex/processing/rectification.h"

namespace planex::scan {

using cmnalg::Image;

RectifiedRows::RectifiedRows(CalibratedRows& points,
                             std::vector<std::unique_ptr<IntensityRows>>& intensities,
                             const HeightGrid& grid, datafusion::planex::RectificationMode mode)
    : points_(points),
      intensities_(intensities),
      grid_(grid),
      mode_(mode),
      rectified_(intensities.size()) {}

void RectifiedRows::load(int first, int count) {
  points_.load(first, count);
  if (!heights_.Create(grid_.columns, count, Image::s_defaultImageAllocator))
    throw std::bad_alloc();
  heights_.PixelSize = {grid_.x.scale, 1, grid_.values.scale};
  heights_.Origin = {grid_.x.origin, 0, grid_.values.origin};
  heights_.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;

  bool rectified = true;
  for (std::size_t i = 0; i < intensities_.size() && rectified; ++i) {
    intensities_[i]->load(first, count);
    if (!rectified_[i].Create(grid_.columns, count, Image::s_defaultImageAllocator)) {
      throw std::bad_alloc();
    }
    rectified = rectify(i);
  }
  if (intensities_.empty()) {
    rectified = toRectified(points_.x(), points_.z(), {grid_.splat.splatA, grid_.splat.splatB},
                            grid_.splat.splatC, mode_, heights_, true);
  }
  if (!rectified) io::failWithLibraryWarnings("rectify", "is refused", "see planex rectify --help");
}

bool RectifiedRows::rectify(std::size_t i) {
  return toRectified(points_.x(), points_.z(), intensities_[i]->image(),
                     {grid_.splat.splatA, grid_.splat.splatB}, grid_.splat.splatC, mode_, heights_,
                     rectified_[i], true);
}

}  // namespace planex::scan
