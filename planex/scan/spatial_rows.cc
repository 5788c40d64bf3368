#include "planex/scan/spatial_rows.h"

#include <cmath>
#include <limits>

#include "planex/infra/containers.h"
#include "planex/io/library_warnings.h"
#include "planex/processing/image_alignment.h"

namespace planex::scan {

void SpatialRows::process() {
  CalibratedRows::process();
  if (aligned_) {
    align();
  } else {
    addY();
  }
}

std::size_t SpatialRows::rowPoints() const {
  return static_cast<std::size_t>(scan_.range.shape().width);
}

void SpatialRows::align() {
  etl::Vector<double> y;
  for (int row = first(); row < first() + count(); ++row) y.push_back(y_.at(row));
  if (!applyAlignment(scan_.model, false, x(), y, z(), xAligned_, yAligned_, zAligned_,
                      datafusion::planex::RunMode::Default)) {
    io::failWithLibraryWarnings(scan_.modelName, "cannot align points", "see planex check");
  }
}

void SpatialRows::addY() {
  const float* z = this->z().GetRowPtr(0);
  const std::size_t width = rowPoints();
  yValues_.resize(width * static_cast<std::size_t>(count()));
  float* y = yValues_.data();
  for (int row = 0; row < count(); ++row) {
    const auto value = static_cast<float>(y_.at(first() + row));
#pragma omp simd
    for (std::size_t i = 0; i < width; ++i) {
      y[i] = std::isnan(z[i]) ? std::numeric_limits<float>::quiet_NaN() : value;
    }
    y += width;
    z += width;
  }
}

}  // namespace planex::scan
