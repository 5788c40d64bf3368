#include "planex/scan/scan_coverage.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>

namespace planex::scan {
namespace {

constexpr int kBlockPixels = 1 << 17;

/// Cells in which pixels of a line lie: pixel i of `pixels` in cell i * cells / pixels.
int cellOf(int pixel, int cells, int pixels) {
  return static_cast<int>(std::int64_t{pixel} * cells / pixels);
}

/// How many pixels of a line a cell has.
int sizeOf(int cell, int cells, int pixels) {
  const auto first = [&](std::int64_t index) { return (index * pixels + cells - 1) / cells; };
  return static_cast<int>(first(cell + 1) - first(cell));
}

/// Which cells of a calibrated region have points.
class FilledCells {
 public:
  explicit FilledCells(const std::optional<RegionSummary>& region) {
    if (!region) return;
    const cmnalg::shape::Rectangle& area = region->area;
    left_ = area.Center.x - area.Width / 2;
    bottom_ = area.Center.y - area.Height / 2;
    width_ = area.Width / region->columns;
    height_ = area.Height / region->rows;
    columns_ = region->columns;
    rows_ = region->rows;
    for (int row = 0; row < rows_; ++row) {
      for (int column = 0; column < columns_; ++column) {
        filled_.push_back(region->count.GetPixel(column, row) > 0 ? 1 : 0);
      }
    }
  }

  bool hold(double x, double z) const {
    const double column = (x - left_) / width_, row = (z - bottom_) / height_;
    if (!(column >= 0 && column <= columns_ && row >= 0 && row <= rows_)) return false;
    const auto u = static_cast<std::size_t>(std::min(static_cast<int>(column), columns_ - 1));
    const auto v = static_cast<std::size_t>(std::min(static_cast<int>(row), rows_ - 1));
    return !filled_.empty() && filled_[v * static_cast<std::size_t>(columns_) + u] != 0;
  }

 private:
  double left_ = 0, bottom_ = 0, width_ = 1, height_ = 1;
  int columns_ = 0, rows_ = 0;
  std::vector<char> filled_;
};

/// What is counted of some rows.
struct Counts {
  std::int64_t points = 0, inRegion = 0;
  float xMin = std::numeric_limits<float>::infinity(), xMax = -xMin, zMin = xMin, zMax = -xMin;
  std::vector<std::int64_t> cells;

  void join(const Counts& other) {
    points += other.points;
    inRegion += other.inRegion;
    xMin = std::min(xMin, other.xMin);
    xMax = std::max(xMax, other.xMax);
    zMin = std::min(zMin, other.zMin);
    zMax = std::max(zMax, other.zMax);
    for (std::size_t i = 0; i < cells.size(); ++i) cells[i] += other.cells[i];
  }
};

class CoverageRows : public CalibratedRows {
 public:
  CoverageRows(const RangeScan& scan, const FilledCells& region, const ScanCoverage& map)
      : CalibratedRows(scan), shape_(scan.range.shape()), region_(region), map_(map) {}

  void process() override {
    CalibratedRows::process();
    counts_ = {};
    counts_.cells.resize(map_.shares.size());
    for (int row = 0; row < count(); ++row) countRow(row);
  }

  const Counts& counts() const { return counts_; }

 private:
  void countRow(int row) {
    const float* const x = CalibratedRows::x().GetRowPtr(row);
    const float* const z = CalibratedRows::z().GetRowPtr(row);
    std::int64_t* const cells =
        counts_.cells.data() +
        static_cast<std::ptrdiff_t>(cellOf(first() + row, map_.rows, shape_.height)) * map_.columns;
    for (int column = 0; column < shape_.width; ++column) {
      if (!std::isfinite(x[column]) || !std::isfinite(z[column])) continue;
      ++counts_.points;
      ++cells[cellOf(column, map_.columns, shape_.width)];
      if (region_.hold(x[column], z[column])) ++counts_.inRegion;
      counts_.xMin = std::min(counts_.xMin, x[column]);
      counts_.xMax = std::max(counts_.xMax, x[column]);
      counts_.zMin = std::min(counts_.zMin, z[column]);
      counts_.zMax = std::max(counts_.zMax, z[column]);
    }
  }

  const io::ImageShape shape_;
  const FilledCells& region_;
  const ScanCoverage& map_;
  Counts counts_;
};

}  // namespace

ScanCoverage calculateCoverage(const RangeScan& scan, const std::optional<RegionSummary>& region,
                               io::WorkerPool& pool,
                               const std::function<void(std::int64_t)>& progress) {
  const io::ImageShape& shape = scan.range.shape();
  ScanCoverage result;
  result.values = std::int64_t{shape.width} * shape.height;
  result.columns = std::min(shape.width, ScanCoverage::kMostCells);
  result.rows = std::min(shape.height, ScanCoverage::kMostCells);
  result.shares.resize(static_cast<std::size_t>(result.columns) *
                       static_cast<std::size_t>(result.rows));
  const FilledCells filled(region);
  Counts all;
  all.cells.resize(result.shares.size());
  streamRows<CoverageRows>(
      pool, {0, shape.height, std::max(1, kBlockPixels / shape.width)},
      [&] { return std::make_unique<CoverageRows>(scan, filled, result); },
      [&](const CoverageRows& block) {
        result.measured += block.measured();
        result.outside += block.outside();
        all.join(block.counts());
        progress(std::int64_t{block.count()} * shape.width);
      });
  result.points = all.points;
  result.inRegion = all.inRegion;
  const auto end = [&](float value) { return all.points > 0 ? value : std::nan(""); };
  result.xMin = end(all.xMin);
  result.xMax = end(all.xMax);
  result.zMin = end(all.zMin);
  result.zMax = end(all.zMax);
  for (int row = 0; row < result.rows; ++row) {
    for (int column = 0; column < result.columns; ++column) {
      const std::size_t i =
          static_cast<std::size_t>(row) * static_cast<std::size_t>(result.columns) +
          static_cast<std::size_t>(column);
      result.shares[i] =
          static_cast<double>(all.cells[i]) / (1.0 * sizeOf(column, result.columns, shape.width) *
                                               sizeOf(row, result.rows, shape.height));
    }
  }
  return result;
}

}  // namespace planex::scan
