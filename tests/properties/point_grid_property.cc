// Cells of a grid as what their points say, gathered cell by cell: whatever is drawn, in any order
// of adding and taking.

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "planex/processing/point_grid.h"
#include "tests/support/property.h"
#include "tests/support/samples.h"

namespace {

using datafusion::planex::GridRow;
using datafusion::planex::PlacedGridPoints;
using datafusion::planex::PointGrid;
using datafusion::planex::PointPlacement;
using Mode = datafusion::planex::RectificationMode;
using Floats = std::vector<float>;

constexpr Mode kModes[] = {Mode::MEAN, Mode::LOWEST, Mode::HIGHEST, Mode::DARKEST, Mode::BRIGHTEST};

/// Points of some profiles, and where they go.
struct Profiles {
  explicit Profiles(test::ByteSource& source)
      : count(source.Between(0, 40)), rowHalfWidth(source.Between(0, 3)) {
    const auto number = [&] { return test::drawNumber(source); };
    placement.width = source.Between(1, 30);
    placement.height = source.Between(1, 8);
    placement.x = {test::drawScale(source), number() - 20};
    placement.y = {source.Flip() ? 1 : test::drawScale(source), source.Flip() ? 0 : number()};
    placement.splat = {{number() / 100, number() / 30}, number() / 20};
    if (source.Flip()) placement.z = {number() - 20, number() + 20};
    test::Samples samples(source);
    for (Floats* list : {&x, &y, &z, &grey}) {
      for (int i = 0; i < count; ++i) list->push_back(samples.Next<float>());
    }
    for (float& value : z) value = source.Between(0, 9) == 0 ? NAN : value;
    if (source.Between(0, 3) > 0) {  // around the grid
      const auto bring = [](float value, int cells, const auto& axis) {
        const double cell = std::fmod(double{value}, cells + 3) - 1.5;
        return static_cast<float>(cell * axis.scale + axis.origin);
      };
      for (float& value : x) value = bring(value, placement.width, placement.x);
      for (float& value : y) value = bring(value, placement.height, placement.y);
    }
    for (float& value : grey) value = std::floor(value / 16);  // ties, and 0
    placePoints(placement, count, x.data(), y.data(), z.data(), z.data(), placed);
  }

  double Column(std::size_t i) const {
    return std::round((double{x[i]} - placement.x.origin) / placement.x.scale);
  }
  double Row(std::size_t i) const {
    return std::round((double{y[i]} - placement.y.origin) / placement.y.scale);
  }
  bool IsInHeights(std::size_t i) const {
    return placement.z.IsEmpty() ||
           (double{z[i]} >= placement.z.min && double{z[i]} <= placement.z.max);
  }
  struct PointShare {
    bool isMeasured, isInGrid, isInHeights;
  };
  PointShare Share(std::size_t i) const {
    const bool isMeasured = !std::isnan(z[i]);
    const bool isInGrid = isMeasured && Row(i) >= 0 && Row(i) < placement.height &&
                          Column(i) >= 0 && Column(i) < placement.width;
    return {isMeasured, isInGrid, IsInHeights(i)};
  }

  /// The points that reach a cell, as they stand in the lists.
  std::vector<std::size_t> In(int row, int column) const {
    std::vector<std::size_t> points;
    for (std::size_t i = 0; i < z.size(); ++i) {
      const double c = Column(i);
      const double r = Row(i);
      const auto& splat = placement.splat;
      const double w = std::round(0.55 * splat.size / placement.x.scale *
                                  (splat.lateralSpacing.x * double{z[i]} + splat.lateralSpacing.y));
      const double reach = std::fmin(std::fmax(w, 0), 15);  // NaN becomes 0
      const bool used = !std::isnan(z[i]) && r >= 0 && r < placement.height && IsInHeights(i);
      if (used && std::abs(c - column) <= reach && std::abs(r - row) <= rowHalfWidth) {
        points.push_back(i);
      }
    }
    return points;
  }

  int count, rowHalfWidth;
  PointPlacement placement;
  Floats x, y, z, grey;
  PlacedGridPoints placed;
};

/// What a cell must hold.
struct Expected {
  Expected(const Profiles& points, Mode mode, int row, int column) {
    std::vector<std::size_t> in = points.In(row, column);
    const auto isDark = [&](std::size_t i) { return !(points.grey[i] > 0); };
    if (mode == Mode::BRIGHTEST) in.erase(std::remove_if(in.begin(), in.end(), isDark), in.end());
    count = static_cast<float>(in.size());
    if (in.empty()) return;
    const auto rank = [&](std::size_t i) {
      return mode == Mode::LOWEST    ? points.z[i]
             : mode == Mode::HIGHEST ? -points.z[i]
             : mode == Mode::DARKEST ? points.grey[i]
                                     : -points.grey[i];
    };
    const auto winner = *std::min_element(
        in.begin(), in.end(), [&](std::size_t a, std::size_t b) { return rank(a) < rank(b); });
    double sum = 0, squares = 0, greySum = 0, xSum = 0;
    float low = points.z[in[0]], high = low;
    for (const std::size_t i : in) {
      const double off = double{points.z[i]} - double{points.z[in[0]]};
      sum += off;
      squares += off * off;
      greySum += double{points.grey[i]};
      xSum += double{points.x[i]};
      low = std::min(low, points.z[i]);
      high = std::max(high, points.z[i]);
    }
    const double n = double{count};
    spread = high - low;
    if (in.size() > 1) {
      deviation = static_cast<float>(std::sqrt(std::fmax(squares - sum * (sum / n), 0) / (n - 1)));
    }
    height = mode == Mode::MEAN ? static_cast<float>(double{points.z[in[0]]} + sum / n)
                                : points.z[winner];
    grey = mode == Mode::MEAN ? static_cast<float>(greySum / n) : points.grey[winner];
    x = mode == Mode::MEAN ? static_cast<float>(xSum / n) : points.x[winner];
  }

  float height = NAN, count = 0, spread = NAN, deviation = NAN, x = 0, grey = 0;
};

}  // namespace

PLANEX_PROPERTY(point_grid) {
  const Mode mode = source.OneOf(kModes);
  const Profiles points(source);
  const auto width = static_cast<std::size_t>(points.placement.width);
  PointGrid grid(points.placement.width, points.placement.height, mode, 2);
  // In two parts, which is as good as one.
  const auto all = points.placed.column.size();
  const auto half = std::min(all, static_cast<std::size_t>(source.Between(0, 40)));
  const std::vector<const float*> channels = {points.x.data(), points.grey.data()};
  const bool added = test::tries([&] {
    return grid.Add(points.placed, 0, half, points.z.data(), channels, points.rowHalfWidth) +
               grid.Add(points.placed, half, all - half, points.z.data(), channels,
                        points.rowHalfWidth) ==
           0;
  });
  CHECK_HOLDS(added);
  std::int64_t measured = 0, inGrid = 0, dropped = 0, late = 0;
  for (std::size_t i = 0; i < all; ++i) {
    const auto [isMeasured, isInGrid, isInHeights] = points.Share(i);
    measured += isMeasured ? 1 : 0;
    inGrid += isInGrid ? 1 : 0;
    dropped += isInGrid && !isInHeights ? 1 : 0;
    late += points.placed.column[i] == PlacedGridPoints::kNone ||
                    (mode == Mode::BRIGHTEST && !(points.grey[i] > 0))
                ? 0
                : 1;
  }
  CHECK_HOLDS(points.placed.points == measured && points.placed.inGrid == inGrid &&
              points.placed.outsideHeights == dropped);
  const int skipped = source.Between(0, 1);  // rows that nobody takes
  for (int row = skipped; row < points.placement.height; ++row) {
    Floats height(width), count = height, spread = height, deviation = height, x = height,
                          grey = height;
    grid.TakeRow(
        row,
        {height.data(), count.data(), spread.data(), deviation.data(), {x.data(), grey.data()}});
    for (std::size_t k = 0; k < width; ++k) {
      const Expected want(points, mode, row, static_cast<int>(k));
      CHECK_HOLDS(test::sameBits(height[k], want.height) && count[k] == want.count);
      CHECK_HOLDS(test::sameBits(spread[k], want.spread));
      CHECK_HOLDS(test::sameBits(deviation[k], want.deviation));
      CHECK_HOLDS(test::sameBits(grey[k], want.grey) && test::sameBits(x[k], want.x));
    }
    std::vector<std::uint8_t> mask(width);
    const Floats before = height;
    const int most = source.Between(0, 6);
    datafusion::planex::fillHoles(points.placement.width, most, height.data(), mask.data());
    for (std::size_t k = 0; k < width; ++k) {
      std::size_t left = k, right = k;
      while (left > 0 && std::isnan(before[left])) --left;
      while (right + 1 < width && std::isnan(before[right])) ++right;
      const bool isHole = std::isnan(before[k]);
      const bool isFilled = isHole && !std::isnan(before[left]) && !std::isnan(before[right]) &&
                            right - left <= static_cast<std::size_t>(most) + 1;
      const double part = static_cast<double>(k - left);
      const double low = double{before[left]}, high = double{before[right]};
      const auto between =
          static_cast<float>(low + (high - low) * part / static_cast<double>(right - left));
      CHECK_HOLDS(mask[k] == (isFilled ? 2 : isHole ? 0 : 1));
      CHECK_HOLDS(test::sameBits(height[k], isFilled ? between : before[k]));
    }
  }
  if (skipped >= points.placement.height) return;
  CHECK_HOLDS(grid.Add(points.placed, 0, all, points.z.data(), channels, points.rowHalfWidth) ==
              late);
}
