#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/processing/point_grid.h"
#include "planex/scan/intensity_rows.h"
#include "planex/scan/rectified_rows.h"
#include "planex/scan/spatial_rows.h"

namespace planex::scan {

/// The residuals in Z that the calibration of a model left over its calibrated region.
class PLANEX_EXPORT ResidualMap {
 public:
  /// Nothing for a model without such a region.
  static std::optional<ResidualMap> of(const datafusion::planex::CalibrationModel& model);

  /// The residual of the cell around a point of the laser plane, without sign; NaN outside, and
  /// where the calibration had no points.
  float at(float x, float z) const;

 private:
  explicit ResidualMap(cmnalg::ImageOf<float> residuals) : residuals_(std::move(residuals)) {}

  cmnalg::ImageOf<float> residuals_;  // NaN where there were no points
};

/// What is to be known of every cell of a map in floats.
struct GridLayers {
  bool count = false;      ///< points that fell into it
  bool spread = false;     ///< the greatest height of them less the smallest
  bool deviation = false;  ///< the standard deviation of their heights
  bool residual = false;   ///< the residual of the calibration there
  int fill = 0;            ///< holes of so many cells in a row are interpolated
};

/// Rows of such a map, without padding; a list that is not wanted is empty.
struct GridRows {
  /// @param count rows of `width` cells
  void resize(int count, int width, const GridLayers& layers, std::size_t channels);
  /// Where row `row` of the lists lies.
  datafusion::planex::GridRow at(int row, int width);

  int rows = 0;  ///< how many
  /// @{
  /// See datafusion::planex::GridRow.
  std::vector<float> height, count, spread, deviation;
  /// @}
  std::vector<std::uint8_t> mask;  ///< see fillHoles(); with GridLayers::fill
  /// The residual, where it is wanted, NaN where no point fell; then intensities.
  std::vector<std::vector<float>> channels;
};

/// How points in space become the cells of a map in floats.
struct Gridding {
  datafusion::planex::PointPlacement placement;  ///< one row of height: profiles are the rows
  datafusion::planex::RectificationMode mode{};  ///< what a cell that several points hit gets
  GridLayers layers;                             ///< what there is beside heights
  bool aligned = false;                          ///< points behind the pose of the model
  bool wideIntensities = false;                  ///< intensities of 16 bits stay so
  std::vector<int> rowHalfWidth;         ///< of each profile; empty where profiles are the rows
  std::vector<int> rowsBefore;           ///< rows that neither a profile nor a later one reaches
  std::optional<ResidualMap> residuals;  ///< with GridLayers::residual

  /// Whether every profile is a row of the map.
  bool profilesAreRows() const { return rowHalfWidth.empty(); }
};

/// Lays the rows of the grid over the positions of the profiles.
///
/// @param rows     profiles that take part
/// @param slope    growth of the grid's Y with the position of a profile
/// @param across   what the place of a point within its profile adds to that
/// @param gridding whose rows have a place already; receives rowHalfWidth and rowsBefore
PLANEX_EXPORT void layRows(const RowBlocks& rows, const YPositions& y, double slope,
                           const cmnalg::math::Interval& across, Gridding& gridding);

/// Rows of a scan on their way into a map in floats.
class PLANEX_EXPORT GriddedRows : public SpatialRows {
 public:
  /// All outlive the object.
  GriddedRows(const RangeScan& scan, const YPositions& y, const IntensityImages& intensities,
              const Gridding& gridding);

  void process() override;

 protected:
  /// @cond
  void read() override;
  /// @endcond

 private:
  friend class GridMap;
  void carry();
  void addRow(int row, datafusion::planex::PointGrid& grid, int rowHalfWidth,
              std::int64_t& late) const;

  const Gridding& gridding_;
  std::vector<IntensityRows> intensities_;
  std::vector<bool> bytes_;  // of the intensities, as they are read
  datafusion::planex::PlacedGridPoints placed_;
  std::vector<float> heights_;  // of the points
  std::vector<std::vector<float>> channels_;
  GridRows cells_;  // where profiles are rows
};

/// Turns blocks of a scan, in their order, into the rows of a map, in theirs.
class PLANEX_EXPORT GridMap {
 public:
  /// Takes rows of the map, from the first to the last.
  using Sink = std::function<void(const GridRows& rows)>;

  /// @param gridding     outlives the object
  /// @param intensities  images that go along
  GridMap(const Gridding& gridding, std::size_t intensities);
  /// Passes on the rows that are complete.
  void add(const GriddedRows& block, const Sink& sink);
  /// And those that are left, after the last block.
  void finish(const Sink& sink);

  /// What became of the points.
  const MapShare& share() const { return share_; }

 private:
  void takeUpTo(int end, const Sink& sink);
  void pass(const Sink& sink);

  const Gridding& gridding_;
  std::optional<datafusion::planex::PointGrid> grid_;
  GridRows rows_;
  std::size_t channels_;
  int next_ = 0, profile_ = 0;  // row of the grid, profile of those that take part
  MapShare share_;
};

}  // namespace planex::scan
