#include "planex/report/view_data.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace planex::report {
namespace {

constexpr double kSteps = 65535;  // 0 is none
constexpr double kShare = 0.002;  // of the numbers, left out at each end of the colours

std::size_t sizeOf(int columns, int rows) {
  return static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
}

bool isThere(float number) { return !std::isnan(number); }
bool isThere(std::uint16_t step) { return step != 0; }

/// Of the cells of a block that which is the farthest from their mean, the greater of two.
template <typename Cell>
Cell farthestFromMean(const Cell* cells, std::size_t pitch, int columns, int rows, Cell none) {
  double sum = 0;
  int count = 0;
  Cell least = none, most = none;
  for (int row = 0; row < rows; ++row, cells += pitch) {
    for (int i = 0; i < columns; ++i) {
      const Cell cell = cells[i];
      if (!isThere(cell)) continue;
      least = count == 0 ? cell : std::min(least, cell);
      most = count == 0 ? cell : std::max(most, cell);
      sum += cell;
      ++count;
    }
  }
  if (count == 0) return none;
  const double mean = sum / count;
  return mean - least > most - mean ? least : most;
}

/// Appends a row of blocks. @param rows  of them, at most factor
template <typename Cell>
void appendBlocks(const Cell* cells, int columns, int rows, int factor, Cell none,
                  std::vector<Cell>& blocks) {
  for (int first = 0; first < columns; first += factor) {
    blocks.push_back(farthestFromMean(cells + first, static_cast<std::size_t>(columns),
                                      std::min(factor, columns - first), rows, none));
  }
}

std::string deflated(const std::vector<unsigned char>& bytes) {
  uLongf size = compressBound(static_cast<uLong>(bytes.size()));
  std::string packed(size, '\0');
  if (compress2(reinterpret_cast<Bytef*>(packed.data()), &size, bytes.data(),
                static_cast<uLong>(bytes.size()), 6) != Z_OK) {
    throw std::bad_alloc();  // all that can go wrong in a buffer of that size
  }
  packed.resize(size);
  return packed;
}

/// A part of a level as it is stored; nothing where no cell has a number.
std::string packedTile(const std::vector<std::uint16_t>& steps, int columns, int rows, int tileRow,
                       int tileColumn) {
  const int firstRow = tileRow * ViewTiles::kSide, firstColumn = tileColumn * ViewTiles::kSide;
  const int height = std::min(ViewTiles::kSide + 1, rows - firstRow);
  const int width = std::min(ViewTiles::kSide + 1, columns - firstColumn);
  const std::size_t cells = sizeOf(width, height);
  std::vector<unsigned char> bytes(2 * cells);
  bool isEmpty = true;
  std::size_t next = 0;
  for (int row = 0; row < height; ++row) {
    const std::uint16_t* const from = steps.data() + sizeOf(columns, firstRow + row) + firstColumn;
    unsigned before = row > 0 ? from[-static_cast<std::ptrdiff_t>(columns)] : 0U;
    for (int i = 0; i < width; ++i, ++next) {
      const unsigned difference = from[i] - before;
      before = from[i];
      isEmpty = isEmpty && before == 0;
      bytes[next] = static_cast<unsigned char>(difference & 0xFFU);
      bytes[cells + next] = static_cast<unsigned char>(difference >> 8 & 0xFFU);
    }
  }
  return isEmpty ? std::string() : deflated(bytes);
}

}  // namespace

ViewLayer ViewLayer::of(const std::vector<float>& numbers, const io::Axis& meaning) {
  double least = std::numeric_limits<double>::infinity(), most = -least;
  bool areWhole = true;
  for (const float number : numbers) {
    if (!isThere(number)) continue;
    least = std::min<double>(least, number);
    most = std::max<double>(most, number);
    areWhole = areWhole && std::trunc(number) == number;
  }
  ViewLayer layer;
  layer.steps.resize(numbers.size());
  if (least > most) return layer;
  const double step = areWhole && most - least < kSteps ? 1 : (most - least) / (kSteps - 1);
  const double scale = step > 0 ? step : 1;
  layer.values = {meaning.scale * scale, meaning.scale * (least - scale) + meaning.origin};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (!isThere(numbers[i])) continue;
    const double index = std::round((numbers[i] - least) / scale) + 1;
    layer.steps[i] = static_cast<std::uint16_t>(std::clamp(index, 1.0, kSteps));
  }
  return layer;
}

std::int64_t ViewLayer::filled() const {
  return static_cast<std::int64_t>(steps.size()) - std::count(steps.begin(), steps.end(), 0);
}

std::pair<double, double> ViewLayer::ends() const {
  std::uint16_t least = 65535, most = 0;
  for (const std::uint16_t step : steps) {
    if (step == 0) continue;
    least = std::min(least, step);
    most = std::max(most, step);
  }
  if (most == 0) return {std::nan(""), std::nan("")};
  return {values.scale * least + values.origin, values.scale * most + values.origin};
}

std::pair<double, double> ViewLayer::colorEnds() const {
  std::vector<std::int64_t> counts(65536);
  for (const std::uint16_t step : steps) ++counts[step];
  const std::int64_t all = filled();
  if (all == 0) return {std::nan(""), std::nan("")};
  const auto at = [&](double share) {
    auto left = static_cast<std::int64_t>(share * static_cast<double>(all - 1));
    std::size_t step = 1;
    while (left >= counts[step]) left -= counts[step++];
    return values.scale * static_cast<double>(step) + values.origin;
  };
  return {at(kShare), at(1 - kShare)};
}

CellBlocks::CellBlocks(int columns, int rows, int factor)
    : columns_(columns), rows_(rows), factor_(factor) {
  blocks_.reserve(sizeOf(blocksOf(columns, factor), blocksOf(rows, factor)));
}

int CellBlocks::factorFor(int columns, int rows, std::int64_t most) {
  int factor = 1;
  while (std::int64_t{blocksOf(columns, factor)} * blocksOf(rows, factor) > most) ++factor;
  return factor;
}

void CellBlocks::addRows(int count, const float* numbers) {
  const auto columns = static_cast<std::size_t>(columns_);
  for (int i = 0; i < count; ++i, numbers += columns) {
    pending_.insert(pending_.end(), numbers, numbers + columns);
    if (++seen_ % factor_ == 0 || seen_ == rows_) reduce();
  }
}

void CellBlocks::reduce() {
  appendBlocks(pending_.data(), columns_, static_cast<int>(pending_.size()) / columns_, factor_,
               std::numeric_limits<float>::quiet_NaN(), blocks_);
  pending_.clear();
}

int ViewTiles::levelsOf(int columns, int rows) {
  int levels = 1;
  for (; std::max(columns, rows) > kSide; ++levels) {
    columns = CellBlocks::blocksOf(columns, 2);
    rows = CellBlocks::blocksOf(rows, 2);
  }
  return levels;
}

void ViewTiles::write(const ViewLayer& layer, int columns, int rows, const Sink& sink) {
  const int levels = levelsOf(columns, rows);
  std::vector<std::uint16_t> coarser;
  for (int level = 0; level < levels; ++level) {
    const std::vector<std::uint16_t>& steps = level == 0 ? layer.steps : coarser;
    for (int row = 0; row * kSide < rows; ++row) {
      for (int column = 0; column * kSide < columns; ++column) {
        const std::string bytes = packedTile(steps, columns, rows, row, column);
        if (!bytes.empty()) sink(level, row, column, bytes);
      }
    }
    std::vector<std::uint16_t> half;
    for (int row = 0; row < rows; row += 2) {
      appendBlocks(steps.data() + sizeOf(columns, row), columns, std::min(2, rows - row), 2,
                   std::uint16_t{0}, half);
    }
    coarser = std::move(half);
    columns = CellBlocks::blocksOf(columns, 2);
    rows = CellBlocks::blocksOf(rows, 2);
  }
}

CloudCells::CloudCells(std::int64_t count, std::array<double, 2> least, std::array<double, 2> most)
    : keepsAll_(count <= kMostPoints) {
  // As many square cells as keep the points that stay within bounds; of few points some for each.
  const double width = most[0] - least[0], height = most[1] - least[1];
  const double longest = std::max(width, height);
  const double wanted = static_cast<double>(std::min(count / 2, kMostPoints / 2)) + 1;
  double side = std::max(std::sqrt(width * height / wanted), longest / wanted);
  if (!(side > 0 && std::isfinite(side))) side = 1;
  const auto cellsOf = [side](double length) { return static_cast<int>(length / side) + 1; };
  columns_ = cellsOf(width);
  rows_ = cellsOf(height);
  x_ = {side, least[0] + side / 2};
  y_ = {side, least[1] + side / 2};
  cells_.resize(sizeOf(columns_, rows_));
}

void CloudCells::add(double x, double y, double z, double intensity) {
  const auto cellOf = [](double at, const io::Axis& axis, int count) {
    const double cell = std::round((at - axis.origin) / axis.scale);
    return static_cast<std::size_t>(std::clamp(cell, 0.0, count - 1.0));
  };
  const std::size_t column = cellOf(x, x_, columns_), row = cellOf(y, y_, rows_);
  Cell& cell = cells_[row * static_cast<std::size_t>(columns_) + column];
  const Point point = {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z),
                       static_cast<float>(intensity)};
  if (cell.count == 0 || point[2] < cell.low[2]) cell.low = point;
  if (cell.count == 0 || point[2] > cell.high[2]) cell.high = point;
  ++cell.count;
  if (keepsAll_) all_.insert(all_.end(), point.begin(), point.begin() + 3);
}

std::vector<float> CloudCells::column(Point Cell::*point, std::size_t number) const {
  std::vector<float> numbers;
  for (const Cell& cell : cells_) {
    numbers.push_back(cell.count > 0 ? (cell.*point)[number]
                                     : std::numeric_limits<float>::quiet_NaN());
  }
  return numbers;
}

std::vector<float> CloudCells::counts() const {
  std::vector<float> counts;
  for (const Cell& cell : cells_) {
    counts.push_back(cell.count > 0 ? cell.count : std::numeric_limits<float>::quiet_NaN());
  }
  return counts;
}

std::vector<float> CloudCells::points() const {
  if (keepsAll_) return all_;
  std::vector<float> points;
  for (const Cell& cell : cells_) {
    if (cell.count > 0) points.insert(points.end(), cell.low.begin(), cell.low.begin() + 3);
    if (cell.count > 1) points.insert(points.end(), cell.high.begin(), cell.high.begin() + 3);
  }
  return points;
}

std::string packedPoints(const std::vector<float>& coordinates) {
  const std::size_t count = coordinates.size();
  std::vector<unsigned char> bytes(4 * count);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &coordinates[i], sizeof bits);
    for (std::size_t k = 0; k < 4; ++k) {
      bytes[k * count + i] = static_cast<unsigned char>(bits >> 8 * k & 0xFFU);
    }
  }
  return deflated(bytes);
}

}  // namespace planex::report
