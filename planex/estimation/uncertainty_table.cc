#include "planex/estimation/uncertainty_table.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "planex/estimation/camera_terms.h"

namespace planex::estimation {
namespace {

using Pixel = cmnalg::Vec<2, double>;

// Cells of the coarsest grid and of the finest; a power of two times as many.
constexpr int kFewestColumns = 32, kFewestRows = 16, kMostColumns = 1024;
constexpr double kWantedChange = 4e-3;
constexpr double kLeastShare = 0.1;  // of the mean variance: what lies below is not told apart
constexpr double kMargin = 1;        // pixels beyond the sensor that the table covers

bool isFinite(const PlaceCovariance& c) {
  return std::isfinite(c.xx) && std::isfinite(c.xz) && std::isfinite(c.zz);
}

/// Relative to variances, or to the least that counts; 0 where that means nothing.
double changeOf(const PlaceCovariance& from, const PlaceCovariance& to, double least) {
  const double xx = std::max(to.xx, least), zz = std::max(to.zz, least);
  const double changes[] = {std::abs(from.xx - to.xx) / xx, std::abs(from.zz - to.zz) / zz,
                            std::abs(from.xz - to.xz) / std::sqrt(xx * zz)};
  double most = 0;
  for (const double change : changes) {
    if (std::isfinite(change)) most = std::max(most, change);
  }
  return most;
}

}  // namespace

Pixel UncertaintyTable::Grid::pixelOf(int column, int row) const {
  return {left + stepX * column, top + stepY * row};
}

PlaceCovariance& UncertaintyTable::Grid::of(int column, int row) {
  return node[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
              static_cast<std::size_t>(column)];
}

const PlaceCovariance& UncertaintyTable::Grid::of(int column, int row) const {
  return node[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
              static_cast<std::size_t>(column)];
}

UncertaintyTable::UncertaintyTable(MapUncertainty uncertainty, double rowNoise)
    : uncertainty_(std::move(uncertainty)), rowVariance_(rowNoise * rowNoise) {
  const cmnalg::Vec<2, int>& size = uncertainty_.parts().sensorSize;
  grid_.columns = kFewestColumns + 1;
  grid_.rows = kFewestRows + 1;
  grid_.left = grid_.top = -kMargin;
  grid_.stepX = (size.x - 1 + 2 * kMargin) / kFewestColumns;
  grid_.stepY = (size.y - 1 + 2 * kMargin) / kFewestRows;
  for (int row = 0; row < grid_.rows; ++row) {
    for (int column = 0; column < grid_.columns; ++column) {
      grid_.node.push_back(exactlyAt(grid_.pixelOf(column, row)));
    }
  }
  leastVariance_ = kLeastShare * meanVariance();
  do {
    Grid fine = halved(grid_);
    largestChange_ = 0;
    for (int row = 0; row < fine.rows; ++row) {
      for (int column = 0; column < fine.columns; ++column) {
        PlaceCovariance before;
        if (row % 2 + column % 2 == 0) continue;
        if (!interpolate(grid_, fine.pixelOf(column, row), before)) continue;
        largestChange_ =
            std::max(largestChange_, changeOf(before, fine.of(column, row), leastVariance_));
      }
    }
    grid_ = std::move(fine);
  } while (largestChange_ > kWantedChange && grid_.columns <= kMostColumns);
}

/// Of X and Z, where the sensor was measured.
double UncertaintyTable::meanVariance() const {
  double sum = 0;
  int count = 0;
  for (int row = 0; row < grid_.rows; ++row) {
    for (int column = 0; column < grid_.columns; ++column) {
      const PlaceCovariance& node = grid_.of(column, row);
      if (!uncertainty_.isMeasured(grid_.pixelOf(column, row)) || !isFinite(node)) continue;
      sum += (node.xx + node.zz) / 2;
      ++count;
    }
  }
  return count == 0 ? 0 : sum / count;
}

UncertaintyTable::Grid UncertaintyTable::halved(const Grid& coarse) const {
  Grid fine = coarse;
  fine.columns = 2 * coarse.columns - 1;
  fine.rows = 2 * coarse.rows - 1;
  fine.stepX = coarse.stepX / 2;
  fine.stepY = coarse.stepY / 2;
  fine.node.clear();
  for (int row = 0; row < fine.rows; ++row) {
    for (int column = 0; column < fine.columns; ++column) {
      fine.node.push_back(row % 2 + column % 2 == 0 ? coarse.of(column / 2, row / 2)
                                                    : exactlyAt(fine.pixelOf(column, row)));
    }
  }
  return fine;
}

PlaceCovariance UncertaintyTable::exactlyAt(Pixel pixel) const {
  PlaceCovariance covariance = uncertainty_.at(pixel);
  if (rowVariance_ > 0) {
    MapDerivative d;
    differentiateByPixel(uncertainty_.parts().terms, uncertainty_.parts().radius, pixel, d);
    const double x = d.pixel[0][1], z = d.pixel[1][1];
    covariance.xx += x * x * rowVariance_;
    covariance.xz += x * z * rowVariance_;
    covariance.zz += z * z * rowVariance_;
  }
  return covariance;
}

/// @return false beside the grid and beside nodes without figures
bool UncertaintyTable::interpolate(const Grid& grid, Pixel pixel, PlaceCovariance& result) {
  const double x = (pixel.x - grid.left) / grid.stepX, y = (pixel.y - grid.top) / grid.stepY;
  if (!(x >= 0 && x <= grid.columns - 1 && y >= 0 && y <= grid.rows - 1)) return false;
  const int column = std::min(static_cast<int>(x), grid.columns - 2);
  const int row = std::min(static_cast<int>(y), grid.rows - 2);
  const double right = x - column, down = y - row;
  const double weights[4] = {(1 - right) * (1 - down), right * (1 - down), (1 - right) * down,
                             right * down};
  result = {};
  for (int i = 0; i < 4; ++i) {
    const PlaceCovariance& node = grid.of(column + i % 2, row + i / 2);
    result.xx += weights[i] * node.xx;
    result.xz += weights[i] * node.xz;
    result.zz += weights[i] * node.zz;
  }
  return isFinite(result);
}

PlaceCovariance UncertaintyTable::at(Pixel pixel) const {
  PlaceCovariance result;
  return interpolate(grid_, pixel, result) ? result : exactlyAt(pixel);
}

}  // namespace planex::estimation
