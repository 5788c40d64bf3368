#pragma once

#include <optional>
#include <vector>

#include "planex/io/point_writer.h"
#include "planex/scan/calibrated_rows.h"
#include "planex/scan/intensity_rows.h"
#include "planex/scan/y_positions.h"

namespace planex::scan {

/// The points of some rows of a range image in three dimensions: calibrated X and Z with the Y of
/// their row, or mapped on through the pose of the model.
class PLANEX_EXPORT PointBlock : public CalibratedRows {
 public:
  /// All outlive the object.
  /// @param aligned   through the pose of the model
  /// @param intensity of the points; null without
  /// @param writer    which the points are prepared for
  PointBlock(const RangeScan& scan, const YPositions& y, bool aligned,
             const IntensityImage* intensity, const io::PointWriter& writer);

  void process() override;

  /// Appends the points to the file, on the thread of the writer.
  void writeTo(io::PointWriter& writer) const { writer.writeRows(rows_, prepared_); }

 protected:
  /// @cond
  void read() override;
  /// @endcond

 private:
  void align();
  void addY();

  const RangeScan& scan_;
  const YPositions& y_;
  const bool aligned_;
  const io::PointWriter& writer_;
  std::optional<IntensityRows> intensity_;
  std::vector<float> yValues_;
  cmnalg::ImageOf<float> xAligned_, yAligned_, zAligned_;
  io::PointRows rows_;
  std::vector<char> prepared_;
};

}  // namespace planex::scan
