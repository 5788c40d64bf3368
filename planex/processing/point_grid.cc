#include "planex/processing/point_grid.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <utility>

#include "planex/infra/float_environment.h"

namespace datafusion::planex {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr int kMostHalfWidth = 15;
/// Neighbouring splats overlap by a tenth.
constexpr double kHalfSplat = 0.55;

/// What a cell knows of its points: sums of distances from the first one, which are small.
struct Cell {
  double sum = 0, squares = 0;
  float first = 0, lowest = 0, highest = 0;
  float chosen = 0;  // the height of the point that a rule has chosen
  std::uint32_t count = 0;
};

// Whether a point of height z and last channel `value` may fill an empty cell, and whether it is
// chosen in place of the one that a cell holds.

struct LowestRule {
  static bool fills(float) { return true; }
  static bool replaces(const Cell& cell, double, float z, float) { return z < cell.chosen; }
};
struct HighestRule {
  static bool fills(float) { return true; }
  static bool replaces(const Cell& cell, double, float z, float) { return z > cell.chosen; }
};
struct DarkestRule {
  static bool fills(float) { return true; }
  static bool replaces(const Cell&, double chosenValue, float, float value) {
    return static_cast<double>(value) < chosenValue;
  }
};
struct BrightestRule {
  static bool fills(float value) { return value > 0; }
  static bool replaces(const Cell&, double chosenValue, float, float value) {
    return static_cast<double>(value) > chosenValue;
  }
};
/// Channels are summed instead.
struct MeanRule {
  static bool fills(float) { return true; }
  static bool replaces(const Cell&, double, float, float) { return false; }
};

bool isWithin(const cmnalg::math::Interval& heights, float z) {
  const auto height = static_cast<double>(z);
  return heights.IsEmpty() || (height >= heights.min && height <= heights.max);
}

void addHeight(Cell& cell, float z) {
  if (cell.count == 0) cell.first = cell.lowest = cell.highest = cell.chosen = z;
  const double difference = static_cast<double>(z) - static_cast<double>(cell.first);
  cell.sum += difference;
  cell.squares += difference * difference;
  cell.lowest = z < cell.lowest ? z : cell.lowest;
  cell.highest = z > cell.highest ? z : cell.highest;
  ++cell.count;
}

}  // namespace

void placePoints(const PointPlacement& placement, int count, const float* x, const float* y,
                 const float* z, const float* splatZ, PlacedGridPoints& placed) {
  const base::DefaultFloatEnvironment environment;
  const auto size = static_cast<std::size_t>(count);
  placed.column.resize(size);
  placed.row.resize(size);
  placed.halfWidth.resize(size);
  placed.points = placed.inGrid = placed.outsideHeights = 0;
  const auto& [width, height, xAxis, yAxis, splat, splatScale, heights] = placement;
  const double factor = kHalfSplat * splat.size * splatScale / xAxis.scale;
  for (std::size_t i = 0; i < size; ++i) {
    const double column = std::round((static_cast<double>(x[i]) - xAxis.origin) / xAxis.scale);
    const double row =
        y == nullptr ? 0 : std::round((static_cast<double>(y[i]) - yAxis.origin) / yAxis.scale);
    const double spacing =
        splat.lateralSpacing.x * static_cast<double>(splatZ[i]) + splat.lateralSpacing.y;
    // NaN becomes 0.
    const double halfWidth = std::fmin(std::fmax(std::round(factor * spacing), 0), kMostHalfWidth);
    const bool measured = !std::isnan(z[i]);
    const bool inRow = measured && row >= 0 && row < height;
    const bool inGrid = inRow && column >= 0 && column < width;
    const bool inReach = inRow && column >= -halfWidth && column < width + halfWidth;
    const bool used = inReach && isWithin(heights, z[i]);
    placed.points += measured ? 1 : 0;
    placed.inGrid += inGrid ? 1 : 0;
    placed.outsideHeights += inGrid && !used ? 1 : 0;
    placed.column[i] = used ? static_cast<std::int32_t>(column) : PlacedGridPoints::kNone;
    placed.row[i] = used ? static_cast<std::int32_t>(row) : 0;
    placed.halfWidth[i] = static_cast<std::uint8_t>(used ? halfWidth : 0);
  }
}

struct PointGrid::Cells {
  Cells(int width, int channelCount)
      : cells(static_cast<std::size_t>(width)),
        channels(static_cast<std::size_t>(width) * static_cast<std::size_t>(channelCount)) {}

  std::vector<Cell> cells;
  std::vector<double> channels;  // those of a cell one after the other
};

PointGrid::PointGrid(int width, int height, RectificationMode mode, int channels)
    : width_(width),
      height_(height),
      channels_(channels),
      mode_(mode),
      rows_(static_cast<std::size_t>(height)) {}

PointGrid::~PointGrid() = default;
PointGrid::PointGrid(PointGrid&&) noexcept = default;
PointGrid& PointGrid::operator=(PointGrid&&) noexcept = default;

PointGrid::Cells& PointGrid::RowAt(int row) {
  std::unique_ptr<Cells>& cells = rows_[static_cast<std::size_t>(row)];
  if (cells == nullptr) cells = std::make_unique<Cells>(width_, channels_);
  return *cells;
}

template <typename Rule>
std::int64_t PointGrid::AddBy(const Rule& rule, const PlacedGridPoints& placed, std::size_t first,
                              std::size_t count, const float* z,
                              const std::vector<const float*>& channels, int rowHalfWidth) {
  constexpr bool kSums = std::is_same_v<Rule, MeanRule>;
  const auto channelCount = static_cast<std::size_t>(channels_);
  std::int64_t late = 0;
  for (std::size_t i = first; i < first + count; ++i) {
    if (placed.column[i] == PlacedGridPoints::kNone) continue;
    const float value = channels_ > 0 ? channels.back()[i] : 0;
    if (!rule.fills(value)) continue;
    if (placed.row[i] < next_) ++late;
    const int lastRow = std::min(placed.row[i] + rowHalfWidth, height_ - 1);
    const int firstColumn = std::max(placed.column[i] - placed.halfWidth[i], 0);
    const int lastColumn = std::min(placed.column[i] + placed.halfWidth[i], width_ - 1);
    for (int row = std::max(placed.row[i] - rowHalfWidth, next_); row <= lastRow; ++row) {
      Cells& cells = RowAt(row);
      for (int column = firstColumn; column <= lastColumn; ++column) {
        const auto k = static_cast<std::size_t>(column);
        Cell& cell = cells.cells[k];
        double* const carried = cells.channels.data() + k * channelCount;
        const double chosenValue = channels_ > 0 ? carried[channelCount - 1] : 0;
        const bool chosen = cell.count == 0 || rule.replaces(cell, chosenValue, z[i], value);
        addHeight(cell, z[i]);
        if (chosen) cell.chosen = z[i];
        for (std::size_t c = 0; c < channelCount; ++c) {
          const auto own = static_cast<double>(channels[c][i]);
          if (kSums) {
            carried[c] += own;
          } else if (chosen) {
            carried[c] = own;
          }
        }
      }
    }
  }
  return late;
}

std::int64_t PointGrid::Add(const PlacedGridPoints& placed, std::size_t first, std::size_t count,
                            const float* z, const std::vector<const float*>& channels,
                            int rowHalfWidth) {
  const base::DefaultFloatEnvironment environment;
  switch (mode_) {
    case RectificationMode::LOWEST:
      return AddBy(LowestRule(), placed, first, count, z, channels, rowHalfWidth);
    case RectificationMode::HIGHEST:
      return AddBy(HighestRule(), placed, first, count, z, channels, rowHalfWidth);
    case RectificationMode::DARKEST:
      return AddBy(DarkestRule(), placed, first, count, z, channels, rowHalfWidth);
    case RectificationMode::BRIGHTEST:
      return AddBy(BrightestRule(), placed, first, count, z, channels, rowHalfWidth);
    case RectificationMode::MEAN:
      break;
  }
  return AddBy(MeanRule(), placed, first, count, z, channels, rowHalfWidth);
}

void PointGrid::TakeRow(int row, const GridRow& out) {
  const base::DefaultFloatEnvironment environment;
  for (; next_ < row; ++next_) rows_[static_cast<std::size_t>(next_)].reset();
  const std::unique_ptr<Cells> cells = std::move(rows_[static_cast<std::size_t>(row)]);
  next_ = row + 1;
  const bool isMean = mode_ == RectificationMode::MEAN;
  const auto channelCount = static_cast<std::size_t>(channels_);
  for (std::size_t k = 0; k < static_cast<std::size_t>(width_); ++k) {
    const Cell cell = cells != nullptr ? cells->cells[k] : Cell();
    const double n = cell.count;
    const double mean = cell.sum / n;
    if (out.height != nullptr) {
      const auto middle = static_cast<float>(static_cast<double>(cell.first) + mean);
      out.height[k] = cell.count == 0 ? kNaN : isMean ? middle : cell.chosen;
    }
    if (out.count != nullptr) out.count[k] = static_cast<float>(cell.count);
    if (out.spread != nullptr) out.spread[k] = cell.count == 0 ? kNaN : cell.highest - cell.lowest;
    if (out.deviation != nullptr) {
      const double squares = std::fmax(cell.squares - cell.sum * mean, 0);
      out.deviation[k] = cell.count < 2 ? kNaN : static_cast<float>(std::sqrt(squares / (n - 1)));
    }
    for (std::size_t c = 0; c < out.channels.size() && c < channelCount; ++c) {
      if (out.channels[c] == nullptr) continue;
      const double carried = cell.count > 0 ? cells->channels[k * channelCount + c] : 0;
      out.channels[c][k] = static_cast<float>(isMean && cell.count > 0 ? carried / n : carried);
    }
  }
}

void fillHoles(int width, int most, float* heights, std::uint8_t* mask) {
  const base::DefaultFloatEnvironment environment;
  int filled = -1;  // the last measured cell
  for (int k = 0; k < width; ++k) {
    mask[k] = std::isnan(heights[k]) ? 0 : 1;
    if (mask[k] == 0) continue;
    const int hole = k - filled - 1;
    if (filled >= 0 && hole > 0 && hole <= most) {
      const double left = heights[filled], right = heights[k];
      for (int i = 1; i <= hole; ++i) {
        heights[filled + i] = static_cast<float>(left + (right - left) * i / (hole + 1));
        mask[filled + i] = 2;
      }
    }
    filled = k;
  }
}

}  // namespace datafusion::planex
