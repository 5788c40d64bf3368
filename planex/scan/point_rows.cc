#include "planex/scan/point_rows.h"

#include <cmath>
#include <cstddef>
#include <limits>

#include "planex/infra/containers.h"
#include "planex/io/library_warnings.h"
#include "planex/processing/image_alignment.h"

namespace planex::scan {

PointBlock::PointBlock(const RangeScan& scan, const YPositions& y, bool aligned,
                       const IntensityImage* intensity, const io::PointWriter& writer)
    : CalibratedRows(scan), scan_(scan), y_(y), aligned_(aligned), writer_(writer) {
  if (intensity != nullptr) intensity_.emplace(*intensity);
}

void PointBlock::read() {
  CalibratedRows::read();
  if (intensity_) intensity_->read(first(), count());
}

void PointBlock::process() {
  CalibratedRows::process();
  if (aligned_) {
    align();
  } else {
    addY();
  }
  rows_.intensity = intensity_ ? intensity_->values() : nullptr;
  writer_.prepare(rows_, prepared_);
}

void PointBlock::align() {
  etl::Vector<double> y;
  for (int row = first(); row < first() + count(); ++row) y.push_back(y_.at(row));
  if (!applyAlignment(scan_.model, false, x(), y, z(), xAligned_, yAligned_, zAligned_,
                      datafusion::planex::RunMode::Default)) {
    io::failWithLibraryWarnings(scan_.modelName, "cannot align points", "see planex check");
  }
  rows_ = {count(), xAligned_.GetRowPtr(0), yAligned_.GetRowPtr(0), zAligned_.GetRowPtr(0),
           nullptr};
}

void PointBlock::addY() {
  const float* z = this->z().GetRowPtr(0);
  const auto width = static_cast<std::size_t>(scan_.range.shape().width);
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
  rows_ = {count(), x().GetRowPtr(0), yValues_.data(), this->z().GetRowPtr(0), nullptr};
}

}  // namespace planex::scan
