#include "tools/commands/uncertain_points.h"

#include <planex/io/failure.h>
#include <planex/processing/image_alignment.h>

#include <cmath>

namespace planex::tools {

PlaneTurn PlaneTurn::of(const datafusion::planex::CalibrationModel& model,
                        const std::string& modelName, bool aligned) {
  if (!aligned) return {};
  const auto pose = getAlignmentTransform(model, false);
  if (pose.IsEmpty()) throw io::Failure(modelName, "has no usable pose; see planex check");
  return {pose[0][0], pose[0][2], pose[2][0], pose[2][2]};
}

PlaneCovariance PlaneTurn::apply(const PlaneCovariance& c) const {
  return {xByX * xByX * c.xx + 2 * xByX * xByZ * c.xz + xByZ * xByZ * c.zz,
          xByX * zByX * c.xx + (xByX * zByZ + xByZ * zByX) * c.xz + xByZ * zByZ * c.zz,
          zByX * zByX * c.xx + 2 * zByX * zByZ * c.xz + zByZ * zByZ * c.zz};
}

UncertainPoints::UncertainPoints(const scan::RangeScan& scan, const scan::YPositions& y,
                                 bool aligned, const scan::IntensityImage* intensity,
                                 const io::PointWriter& writer, const PlaneUncertainty& uncertainty,
                                 const PlaneTurn& turn)
    : PointBlock(scan, y, aligned, intensity, writer),
      source_(scan),
      uncertainty_(uncertainty),
      turn_(turn) {}

void UncertainPoints::process() {
  PointBlock::process();
  findSensorRows(rows_);
  layers_.resize(rows_.size());
  const std::size_t width = rowPoints();
  const float* const calibratedZ = z().GetRowPtr(0);
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    if (std::isnan(calibratedZ[i])) continue;
    const double column =
        source_.region.originX + source_.region.scaleX * static_cast<double>(i % width);
    const PlaneCovariance covariance = turn_.apply(uncertainty_.at(column, rows_[i]));
    layers_.set(i, covariance.xx, covariance.xz, covariance.zz);
  }
}

}  // namespace planex::tools
