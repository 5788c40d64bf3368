#include "tools/images/height_preview.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "tools/support/picture.h"

namespace planex::tools {
namespace {

constexpr int kMargin = 16;
constexpr int kPanel = 190;  // for the legend
constexpr int kFooter = 64;  // for the scale bar
constexpr int kLeastHeight = 160;
constexpr int kTextScale = 2;
constexpr int kUnitHeight = 24;   // above the legend
constexpr double kShare = 0.002;  // of the heights, left out at each end of the colours

int sizeOf(double pixels) { return std::max(1, static_cast<int>(std::lround(pixels))); }

/// The levels between which colours spread; equal where there are none.
std::pair<double, double> limitsOf(std::vector<std::uint16_t> levels) {
  levels.erase(std::remove(levels.begin(), levels.end(), 0), levels.end());
  if (levels.empty()) return {0, 0};
  const auto at = [&](double share) {
    const auto index = static_cast<std::ptrdiff_t>(share * static_cast<double>(levels.size() - 1));
    std::nth_element(levels.begin(), levels.begin() + index, levels.end());
    return static_cast<double>(levels[static_cast<std::size_t>(index)]);
  };
  return {at(kShare), at(1 - kShare)};
}

}  // namespace

HeightPreview::HeightPreview(int columnCount, int rowCount, const io::Axis& columns,
                             const io::Axis& rows, bool squareCells)
    : columnCount_(columnCount) {
  const double cellWidth = columns.scale;
  const double rowDistance = std::abs(rows.scale);
  const double cellHeight = squareCells || !(rowDistance > 0) ? cellWidth : rowDistance;
  const double larger = std::max(columnCount * cellWidth, rowCount * cellHeight);
  pixelSize_ = std::max(cellWidth, larger / kMostPixels);
  columnStep_ = pixelSize_ / cellWidth;
  rowStep_ = pixelSize_ / cellHeight;
  width_ = sizeOf(columnCount / columnStep_);
  height_ = sizeOf(rowCount / rowStep_);
  levels_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));
}

void HeightPreview::addRows(int count, const std::uint16_t* heights) {
  const int end = nextRow_ + count;
  for (; nextLine_ < height_; ++nextLine_) {
    const double row = (nextLine_ + 0.5) * rowStep_;
    if (row >= end) break;
    const int offset = static_cast<int>(row) - nextRow_;
    const std::uint16_t* source =
        heights + static_cast<std::size_t>(offset) * static_cast<std::size_t>(columnCount_);
    std::uint16_t* line =
        levels_.data() + static_cast<std::size_t>(nextLine_) * static_cast<std::size_t>(width_);
    for (int i = 0; i < width_; ++i) {
      line[i] = source[static_cast<int>(std::min((i + 0.5) * columnStep_, columnCount_ - 1.0))];
    }
  }
  nextRow_ = end;
}

void HeightPreview::write(io::OutputFile& file, const io::Axis& values,
                          const std::string& unit) const {
  const auto [low, high] = limitsOf(levels_);
  const double span = high > low ? high - low : 1;
  const int frame = std::max(height_, kLeastHeight);
  Picture picture(width_ + 2 * kMargin + kPanel, frame + 2 * kMargin + kFooter);
  std::size_t i = 0;
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x, ++i) {
      if (levels_[i] == 0) continue;
      picture.set(kMargin + x, kMargin + y, falseColor((levels_[i] - low) / span));
    }
  }
  drawLegend(picture, width_ + 2 * kMargin, kMargin + kUnitHeight,
             std::min(frame - kUnitHeight, 4 * kLeastHeight), low * values.scale + values.origin,
             high * values.scale + values.origin, unit, kTextScale);
  drawScaleBar(picture, kMargin, frame + 2 * kMargin + kMargin, std::max(width_ / 3, 60),
               1 / pixelSize_, unit, kTextScale);
  picture.writePng(file);
}

}  // namespace planex::tools
