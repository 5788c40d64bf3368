#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "planex/api/records.h"
#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"
#include "planex/io/raster.h"
#include "planex/processing/rectification_mode.h"
#include "planex/scan/calibrated_rows.h"
#include "planex/scan/intensity_rows.h"

namespace planex::scan {

/// The columns of a height map and what its 16-bit values mean; 0 is no height.
struct HeightGrid {
  int columns;
  io::Axis x, values;
  SplatSettings splat;
};

/// Rows of a height map and of the intensities that go with it: what one call over all rows gives,
/// because rows are rectified one by one.
///
/// With intensities the map is that of the last of them, as in the C interface: modes that choose
/// by intensity let every intensity image choose for itself.
class PLANEX_EXPORT RectifiedRows {
 public:
  /// The points come from `points`, the intensities, any number, from `intensities`; all must
  /// outlive the object.
  RectifiedRows(CalibratedRows& points, std::vector<std::unique_ptr<IntensityRows>>& intensities,
                const HeightGrid& grid, datafusion::planex::RectificationMode mode);

  /// Rectifies rows first ... first + count - 1.
  void load(int first, int count);

  /// @{
  /// The rows loaded last, without padding.
  const std::uint16_t* heights() const { return heights_.GetRowPtr(0); }
  const std::uint8_t* intensity(std::size_t i) const { return rectified_[i].GetRowPtr(0); }
  /// @}

 private:
  bool rectify(std::size_t i);

  CalibratedRows& points_;
  std::vector<std::unique_ptr<IntensityRows>>& intensities_;
  const HeightGrid grid_;
  const datafusion::planex::RectificationMode mode_;
  cmnalg::ImageOf<std::uint16_t> heights_;
  std::vector<cmnalg::ImageOf<std::uint8_t>> rectified_;
};

}  // namespace planex::scan
