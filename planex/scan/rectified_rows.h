#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "planex/processing/height_grid.h"
#include "planex/processing/rectification.h"
#include "planex/scan/calibrated_rows.h"
#include "planex/scan/intensity_rows.h"

namespace planex::scan {

/// How points become cells.
struct Rectification {
  datafusion::planex::HeightGrid grid;         ///< its height is of no matter
  datafusion::planex::SplatShape splat;        ///< how wide a point is spread
  datafusion::planex::RectificationMode mode;  ///< what a cell that several points hit gets
};

/// How many points of some rows lie where in a map.
struct MapShare {
  std::int64_t points = 0;         ///< all that are numbers
  std::int64_t inColumns = 0;      ///< those whose place has a column
  std::int64_t outsideLevels = 0;  ///< those of them whose Z has no level, and that are dropped

  /// Takes those of other rows to these.
  void include(const MapShare& other) {
    points += other.points;
    inColumns += other.inColumns;
    outsideLevels += other.outsideLevels;
  }
};

/// Intensity images that are rectified with a range image.
using IntensityImages = std::vector<std::unique_ptr<IntensityImage>>;

/// Rows of a height map and of the intensities that go with it: what one call over all rows gives,
/// because rows are rectified one by one.
///
/// With intensities the map is that of the last of them, as in the C interface: modes that choose
/// by intensity let every intensity image choose for itself.
class PLANEX_EXPORT RectifiedRows : public CalibratedRows {
 public:
  /// All must outlive the object.
  RectifiedRows(const RangeScan& scan, const IntensityImages& intensities,
                const Rectification& rectification);

  void process() override;

  /// @{
  /// The cells, row by row without padding. The value 0 is no height.
  const std::uint16_t* heights() const { return heights_.GetRowPtr(0); }
  const std::uint8_t* intensity(std::size_t i) const { return rectified_[i].GetRowPtr(0); }
  /// @}
  /// Cells of the rows.
  std::size_t cellCount() const;
  /// Where their points lie, to the rounding of float.
  const MapShare& share() const { return share_; }

 protected:
  /// @cond
  void read() override;
  /// @endcond

 private:
  bool rectify(std::size_t i);
  void countPoints();

  const Rectification& rectification_;
  std::vector<IntensityRows> intensities_;
  cmnalg::ImageOf<std::uint16_t> heights_;
  std::vector<cmnalg::ImageOf<std::uint8_t>> rectified_;
  MapShare share_;
};

}  // namespace planex::scan
