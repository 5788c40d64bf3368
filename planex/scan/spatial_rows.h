#pragma once

#include <cstddef>
#include <vector>

#include "planex/infra/export.h"
#include "planex/scan/calibrated_rows.h"
#include "planex/scan/y_positions.h"

namespace planex::scan {

/// The points of some rows of a range image in three dimensions: calibrated X and Z with the Y of
/// their row, or mapped on through the pose of the model. NaN in all three where nothing was
/// measured.
class PLANEX_EXPORT SpatialRows : public CalibratedRows {
 public:
  /// Both outlive the object.
  /// @param aligned through the pose of the model
  SpatialRows(const RangeScan& scan, const YPositions& y, bool aligned)
      : CalibratedRows(scan), scan_(scan), y_(y), aligned_(aligned) {}

  void process() override;

 protected:
  /// @{
  /// The points, row by row without padding.
  const float* pointX() { return aligned_ ? xAligned_.GetRowPtr(0) : x().GetRowPtr(0); }
  const float* pointY() const { return aligned_ ? yAligned_.GetRowPtr(0) : yValues_.data(); }
  const float* pointZ() { return aligned_ ? zAligned_.GetRowPtr(0) : z().GetRowPtr(0); }
  /// @}
  /// Points of a row.
  std::size_t rowPoints() const;

 private:
  void align();
  void addY();

  const RangeScan& scan_;
  const YPositions& y_;
  const bool aligned_;
  std::vector<float> yValues_;
  cmnalg::ImageOf<float> xAligned_, yAligned_, zAligned_;
};

}  // namespace planex::scan
