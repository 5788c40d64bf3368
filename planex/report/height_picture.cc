#include "planex/report/height_picture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

constexpr double kMargin = 20;
constexpr double kSmallSide = 600;  // smaller maps are enlarged, up to it
constexpr double kShare = 0.002;    // of the heights, left out at each end of the colours

int sizeOf(double pixels) { return std::max(1, static_cast<int>(std::lround(pixels))); }

/// The length that a step of an axis is drawn with; 1 for an axis that goes nowhere.
double lengthOf(double scale) {
  const double length = std::abs(scale);
  return length > 0 && std::isfinite(length) ? length : 1;
}

Color shaded(Color color, double light) {
  const auto channel = [light](std::uint8_t value) {
    const double lit = light <= 1 ? value * light : value + (255 - value) * (light - 1);
    return static_cast<std::uint8_t>(std::lround(std::clamp(lit, 0.0, 255.0)));
  };
  return {channel(color.r), channel(color.g), channel(color.b)};
}

}  // namespace

HeightPicture::HeightPicture(const MapGrid& grid) : grid_(grid) {
  const double cellWidth = lengthOf(grid.columns.scale);
  const double cellHeight = grid.rowsAreLengths ? lengthOf(grid.rows.scale) : cellWidth;
  const double aspect = std::clamp(cellHeight / cellWidth, 1e-6, 1e6);
  // The larger side in widths of cells, and then in pixels: as many, or whole multiples of them.
  const double side = std::max(1.0 * grid.columnCount, grid.rowCount * aspect);
  const double pixels = side < kSmallSide ? side * std::floor(kSmallSide / side)
                                          : std::min<double>(side, kMostPixels);
  columnStep_ = side / pixels;
  rowStep_ = columnStep_ / aspect;
  pixelSize_ = columnStep_ * cellWidth;
  width_ = sizeOf(std::min<double>(grid.columnCount / columnStep_, kMostPixels));
  height_ = sizeOf(std::min<double>(grid.rowCount / rowStep_, kMostPixels));
  levels_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));
}

void HeightPicture::addRows(int count, const std::uint16_t* levels) {
  const int end = nextRow_ + count;
  for (; nextLine_ < height_; ++nextLine_) {
    const double row = std::min((nextLine_ + 0.5) * rowStep_, grid_.rowCount - 1.0);
    if (row >= end) break;
    const int offset = static_cast<int>(row) - nextRow_;
    const std::uint16_t* source =
        levels + static_cast<std::size_t>(offset) * static_cast<std::size_t>(grid_.columnCount);
    std::uint16_t* line =
        levels_.data() + static_cast<std::size_t>(nextLine_) * static_cast<std::size_t>(width_);
    for (int i = 0; i < width_; ++i) {
      line[i] =
          source[static_cast<int>(std::min((i + 0.5) * columnStep_, grid_.columnCount - 1.0))];
    }
  }
  nextRow_ = end;
}

ColorScale HeightPicture::scaleOf(const ColorMap& colors) const {
  std::vector<std::uint16_t> levels = levels_;
  levels.erase(std::remove(levels.begin(), levels.end(), 0), levels.end());
  if (levels.empty()) return {&colors, std::nan(""), std::nan("")};
  std::sort(levels.begin(), levels.end());
  const auto at = [&](double share) {
    return levels[static_cast<std::size_t>(share * static_cast<double>(levels.size() - 1))];
  };
  double low = heightOf(at(kShare)), high = heightOf(at(1 - kShare));
  double lowest = heightOf(levels.front()), highest = heightOf(levels.back());
  if (low > high) std::swap(low, high);
  if (lowest > highest) std::swap(lowest, highest);
  ColorScale scale = ColorScale::of(colors, low, high);
  scale.lowerValues = lowest < scale.low;
  scale.higherValues = highest > scale.high;
  return scale;
}

/// How much light a pixel gets, from the upper left and 45 degrees above; level ground gets 1.
/// @param steepness  the factor from levels per pixel to slopes
double HeightPicture::shadeAt(int x, int y, double steepness) const {
  // So far that noise hardly shows, and into the next cells of a map that is enlarged.
  const int reachX = std::max(3, static_cast<int>(1 / columnStep_));
  const int reachY = std::max(3, static_cast<int>(std::min(1 / rowStep_, 1e4)));
  const auto level = [&](int i, int k) {
    const std::uint16_t value =
        levelAt(std::clamp(i, 0, width_ - 1), std::clamp(k, 0, height_ - 1));
    return static_cast<double>(value > 0 ? value : levelAt(x, y));
  };
  const double alongX = (level(x + reachX, y) - level(x - reachX, y)) * steepness / (2 * reachX);
  const double alongY = (level(x, y + reachY) - level(x, y - reachY)) * steepness / (2 * reachY);
  const double towards =
      (1 + (alongX + alongY) / std::sqrt(2.0)) / std::sqrt(1 + alongX * alongX + alongY * alongY);
  // In steps, so that level ground stays free of noise.
  return std::clamp(1 + std::round(24 * (towards - 1)) / 30, 0.4, 1.3);
}

std::vector<Color> HeightPicture::pixels(const ColorScale& scale, bool shade) const {
  // Flat maps are shaded as if higher: all heights together as a fifth of the larger side, at
  // least.
  const double natural = std::abs(grid_.heights.scale / pixelSize_);
  const double levels = std::abs((scale.high - scale.low) / grid_.heights.scale);
  const double steepness = std::max(natural, 0.2 * std::max(width_, height_) / levels);
  const bool lit = shade && std::isfinite(steepness);
  std::vector<Color> colors;
  colors.reserve(levels_.size());
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      const std::uint16_t level = levelAt(x, y);
      const Color color = level == 0 ? scale.colors->missing() : scale.at(heightOf(level));
      colors.push_back(level == 0 || !lit ? color : shaded(color, shadeAt(x, y, steepness)));
    }
  }
  return colors;
}

Axes HeightPicture::axesIn(const Box& area) const {
  const auto rangeOf = [](const io::Axis& axis, int count, std::string title) {
    return Range{axis.origin - axis.scale / 2, axis.origin + axis.scale * (count - 0.5),
                 std::move(title)};
  };
  Range y = rangeOf(grid_.rows, grid_.rowCount,
                    grid_.rowsAreLengths ? titleWithUnit("Y", grid_.unit) : "Y (rows)");
  std::swap(y.from, y.to);  // the first row is the upper one
  return Axes(area, rangeOf(grid_.columns, grid_.columnCount, titleWithUnit("X", grid_.unit)), y);
}

std::string HeightPicture::draw(const HeightStyle& style, PictureFormat format) const {
  constexpr double kPanel = 184, kLeastBar = 140, kMostBar = 560, kBelowBar = 106;
  constexpr double kLyingBar = 320, kLyingPanel = 90, kLeastWidth = 680, kTitle = 120;
  const ColorScale scale = scaleOf(*style.colors);
  const bool missing = std::find(levels_.begin(), levels_.end(), 0) != levels_.end();
  const bool measured = std::isfinite(scale.low);
  const ColorBar bar(scale, fitted(titleWithUnit("Z", grid_.unit), kTitle));

  // The legend stands on the right of high maps, and lies below flat ones.
  const bool upright = height_ >= 260 || width_ < 400;
  Box area{0, kMargin + Axes::kAbove, 1.0 * width_, 1.0 * height_};
  area.left = std::ceil(kMargin + axesIn(area).left());
  const Axes axes = axesIn(area);
  const double bottom = area.bottom() + Axes::kBelow + kMargin;
  const double highest = area.top + 24 + kLeastBar + kBelowBar + kMargin;
  const double right = std::max(area.right(), area.left + 60);
  Canvas canvas(upright ? right + kPanel : std::max(right + 2 * kMargin, kLeastWidth),
                upright ? std::max(bottom, highest) : bottom + kLyingPanel, format);
  canvas.image({area.left, area.top}, width_, height_, pixels(scale, style.shade));
  axes.draw(canvas);

  if (upright) {
    const double left = right + 34;
    const double height = std::clamp(area.height - 24 - kBelowBar + 20, kLeastBar, kMostBar);
    const Box box{left, area.top + 24, ColorBar::kThickness, height};
    if (measured) bar.drawUpright(canvas, box);
    double y = box.bottom() + 34;
    if (missing) drawSwatch(canvas, {left, y}, scale.colors->missing(), "no measurement");
    if (missing) y += 34;
    drawScaleBar(canvas, {left, y + 18}, 110, pixelSize_, grid_.unit);
    return canvas.finish();
  }
  const Box box{area.left + 9, bottom + 20, kLyingBar, ColorBar::kThickness};
  if (measured) bar.drawLying(canvas, box);
  const double left = measured ? box.right() + 50 : area.left;
  drawScaleBar(canvas, {left, box.top + 12}, 110, pixelSize_, grid_.unit);
  if (missing) {
    drawSwatch(canvas, {left, box.bottom() + 15}, scale.colors->missing(), "no measurement");
  }
  return canvas.finish();
}

}  // namespace planex::report
