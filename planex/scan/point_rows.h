#pragma once

#include <optional>

#include "planex/io/point_writer.h"
#include "planex/scan/intensity_rows.h"
#include "planex/scan/spatial_rows.h"

namespace planex::scan {

/// Points in three dimensions on their way into a file of points.
class PLANEX_EXPORT PointBlock : public SpatialRows {
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
  const io::PointWriter& writer_;
  std::optional<IntensityRows> intensity_;
  io::PointRows rows_;
  io::PreparedRows prepared_;
};

}  // namespace planex::scan
