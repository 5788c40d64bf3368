#include "planex/scan/gridded_rows.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "planex/io/library_warnings.h"

namespace planex::scan {
namespace {

using datafusion::planex::GridRow;
using datafusion::planex::PlacedGridPoints;
using datafusion::planex::PointGrid;

/// Rows are taken for complete when points miss them by so many: the extremes of the field of view
/// are known to its outline's samples only.
constexpr int kRowMargin = 2;
constexpr int kMostRowHalfWidth = 15;

std::size_t sizeOf(int rows, int width) {
  return static_cast<std::size_t>(rows) * static_cast<std::size_t>(width);
}

/// Half of what lies between the neighbours of a profile, in rows of the grid.
double rowSpacing(const RowBlocks& rows, const YPositions& y, int row, double rowsPerY) {
  const int before = std::max(row - 1, rows.first);
  const int behind = std::min(row + 1, rows.end - 1);
  if (before == behind) return 0;
  return std::abs((y.at(behind) - y.at(before)) * rowsPerY) / (behind - before);
}

}  // namespace

std::optional<ResidualMap> ResidualMap::of(const datafusion::planex::CalibrationModel& model) {
  cmnalg::Image count, x, z;
  const auto& region = model.CalibratedRegion;
  if (!region.IsValid() || !region.GetPointCount(count) || !region.GetAverageResiduals(x, z)) {
    io::takeLibraryWarnings();
    return std::nullopt;
  }
  cmnalg::ImageOf<float> residuals(count.GetWidth(), count.GetHeight(),
                                   cmnalg::Image::s_defaultImageAllocator);
  for (int row = 0; row < residuals.GetHeight(); ++row) {
    for (int column = 0; column < residuals.GetWidth(); ++column) {
      const bool known = count.GetPixel(column, row) > 0;
      residuals.Pix(column, row) = known ? static_cast<float>(std::abs(z.GetPixel(column, row)))
                                         : std::numeric_limits<float>::quiet_NaN();
    }
  }
  residuals.PixelSize = count.PixelSize;
  residuals.Origin = count.Origin;
  return ResidualMap(std::move(residuals));
}

float ResidualMap::at(float x, float z) const {
  const double column =
      std::round((static_cast<double>(x) - residuals_.Origin.x) / residuals_.PixelSize.x);
  const double row =
      std::round((static_cast<double>(z) - residuals_.Origin.y) / residuals_.PixelSize.y);
  const bool inside =
      column >= 0 && column < residuals_.GetWidth() && row >= 0 && row < residuals_.GetHeight();
  return inside ? residuals_.Pix(static_cast<int>(column), static_cast<int>(row))
                : std::numeric_limits<float>::quiet_NaN();
}

void GridRows::resize(int rowCount, int width, const GridLayers& layers, std::size_t channelCount) {
  rows = rowCount;
  const std::size_t size = sizeOf(rowCount, width);
  height.resize(size);
  count.resize(layers.count ? size : 0);
  spread.resize(layers.spread ? size : 0);
  deviation.resize(layers.deviation ? size : 0);
  mask.resize(layers.fill > 0 ? size : 0);
  channels.resize(channelCount);
  for (auto& channel : channels) channel.resize(size);
}

GridRow GridRows::at(int row, int width) {
  const std::size_t place = sizeOf(row, width);
  const auto from = [&](std::vector<float>& list) {
    return list.empty() ? nullptr : list.data() + place;
  };
  GridRow cells{from(height), from(count), from(spread), from(deviation)};
  for (auto& channel : channels) cells.channels.push_back(from(channel));
  return cells;
}

void layRows(const RowBlocks& rows, const YPositions& y, double slope,
             const cmnalg::math::Interval& across, Gridding& gridding) {
  const datafusion::planex::GridAxis& axis = gridding.placement.y;
  const double rowsPerY = slope / axis.scale;
  const auto count = static_cast<std::size_t>(rows.count());
  gridding.rowHalfWidth.resize(count);
  gridding.rowsBefore.resize(count);
  double least = gridding.placement.height;
  for (int row = rows.end - 1; row >= rows.first; --row) {
    const auto i = static_cast<std::size_t>(row - rows.first);
    // As many rows as leave no gap to the next profile, and no more. Behind a pose profiles may lie
    // across the grid: there splats overlap by a tenth, as along the row.
    const double overlap = gridding.aligned ? 1.1 : 1.0;
    const double spacing = overlap * rowSpacing(rows, y, row, rowsPerY);
    const double reach = std::ceil((spacing * gridding.placement.splat.size - 1) / 2 - 1e-6);
    const double halfWidth = std::fmin(std::fmax(reach, 0), kMostRowHalfWidth);
    gridding.rowHalfWidth[i] = static_cast<int>(halfWidth);
    const double a = (slope * y.at(row) + across.min - axis.origin) / axis.scale;
    const double b = (slope * y.at(row) + across.max - axis.origin) / axis.scale;
    least = std::fmin(least, std::floor(std::fmin(a, b)) - halfWidth - kRowMargin);
    gridding.rowsBefore[i] = static_cast<int>(std::fmax(least, 0));
  }
}

GriddedRows::GriddedRows(const RangeScan& scan, const YPositions& y,
                         const IntensityImages& intensities, const Gridding& gridding)
    : SpatialRows(scan, y, gridding.aligned), gridding_(gridding) {
  for (const auto& intensity : intensities) {
    intensities_.emplace_back(*intensity);
    bytes_.push_back(intensity->isBytes());
  }
}

void GriddedRows::read() {
  CalibratedRows::read();
  for (IntensityRows& intensity : intensities_) intensity.read(first(), count());
}

void GriddedRows::process() {
  SpatialRows::process();
  const std::size_t width = rowPoints();
  const std::size_t points = width * static_cast<std::size_t>(count());
  const bool apart = gridding_.profilesAreRows();
  placePoints(gridding_.placement, static_cast<int>(points), pointX(), apart ? nullptr : pointY(),
              pointZ(), z().GetRowPtr(0), placed_);
  heights_.assign(pointZ(), pointZ() + points);
  carry();
  if (!apart) return;
  const int columns = gridding_.placement.width;
  cells_.resize(count(), columns, gridding_.layers, channels_.size());
  std::int64_t late = 0;
  for (int row = 0; row < count(); ++row) {
    PointGrid grid(columns, 1, gridding_.mode, static_cast<int>(channels_.size()));
    addRow(row, grid, 0, late);
    grid.TakeRow(0, cells_.at(row, columns));
  }
}

/// Collects what points carry along.
void GriddedRows::carry() {
  const std::size_t points = heights_.size();
  const bool residual = gridding_.layers.residual;
  channels_.resize(intensities_.size() + (residual ? 1 : 0));
  for (auto& channel : channels_) channel.resize(points);
  if (residual) {
    const float *x = this->x().GetRowPtr(0), *z = this->z().GetRowPtr(0);
    for (std::size_t i = 0; i < points; ++i) channels_[0][i] = gridding_.residuals->at(x[i], z[i]);
  }
  for (std::size_t k = 0; k < intensities_.size(); ++k) {
    float* values = channels_[k + (residual ? 1 : 0)].data();
    if (gridding_.wideIntensities && !bytes_[k]) {
      std::copy_n(static_cast<const std::uint16_t*>(intensities_[k].values()), points, values);
    } else {
      intensities_[k].reduce();
      std::copy_n(intensities_[k].image().GetRowPtr(0), points, values);
    }
  }
}

void GriddedRows::addRow(int row, PointGrid& grid, int rowHalfWidth, std::int64_t& late) const {
  std::vector<const float*> channels;
  for (const auto& channel : channels_) channels.push_back(channel.data());
  const std::size_t width = heights_.size() / static_cast<std::size_t>(count());
  late += grid.Add(placed_, static_cast<std::size_t>(row) * width, width, heights_.data(), channels,
                   rowHalfWidth);
}

GridMap::GridMap(const Gridding& gridding, std::size_t intensities)
    : gridding_(gridding), channels_(intensities + (gridding.layers.residual ? 1 : 0)) {
  if (gridding.profilesAreRows()) return;
  grid_.emplace(gridding.placement.width, gridding.placement.height, gridding.mode,
                static_cast<int>(channels_));
}

void GridMap::add(const GriddedRows& block, const Sink& sink) {
  const PlacedGridPoints& placed = block.placed_;
  share_.include({placed.points, placed.inGrid, placed.outsideHeights});
  if (!grid_) {
    rows_ = block.cells_;
    return pass(sink);
  }
  for (int row = 0; row < block.count(); ++row) {
    const auto i = static_cast<std::size_t>(profile_++);
    takeUpTo(gridding_.rowsBefore[i], sink);
    block.addRow(row, *grid_, gridding_.rowHalfWidth[i], share_.outsideLevels);
  }
}

void GridMap::finish(const Sink& sink) {
  if (grid_) takeUpTo(gridding_.placement.height, sink);
}

void GridMap::takeUpTo(int end, const Sink& sink) {
  constexpr int kMostRows = 64;
  const int width = gridding_.placement.width;
  while (next_ < end) {
    rows_.resize(std::min(end - next_, kMostRows), width, gridding_.layers, channels_);
    for (int row = 0; row < rows_.rows; ++row) grid_->TakeRow(next_++, rows_.at(row, width));
    pass(sink);
  }
}

void GridMap::pass(const Sink& sink) {
  const int width = gridding_.placement.width;
  for (std::size_t i = 0; gridding_.layers.residual && i < rows_.height.size(); ++i) {
    if (std::isnan(rows_.height[i]))
      rows_.channels[0][i] = rows_.height[i];  // 0 would be a residual
  }
  for (int row = 0; row < rows_.rows && !rows_.mask.empty(); ++row) {
    datafusion::planex::fillHoles(width, gridding_.layers.fill, rows_.at(row, width).height,
                                  rows_.mask.data() + sizeOf(row, width));
  }
  sink(rows_);
}

}  // namespace planex::scan
