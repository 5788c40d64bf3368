#include "planex/scan/point_rows.h"

namespace planex::scan {

PointBlock::PointBlock(const RangeScan& scan, const YPositions& y, bool aligned,
                       const IntensityImage* intensity, const io::PointWriter& writer)
    : SpatialRows(scan, y, aligned), writer_(writer) {
  if (intensity != nullptr) intensity_.emplace(*intensity);
}

void PointBlock::read() {
  CalibratedRows::read();
  if (intensity_) intensity_->read(first(), count());
}

void PointBlock::process() {
  SpatialRows::process();
  rows_ = {count(), pointX(), pointY(), pointZ(), intensity_ ? intensity_->values() : nullptr};
  writer_.prepare(rows_, prepared_);
}

}  // namespace planex::scan
