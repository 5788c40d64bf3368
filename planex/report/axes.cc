#include "planex/report/axes.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

constexpr double kTick = 5;                      // length of a mark
constexpr double kGap = 5;                       // between a mark and its number
constexpr double kAxisRows = 44, kBarRows = 28;  // least distance of numbers above each other
const TextStyle kNumber{12};

double widest(const Ticks& ticks) {
  double width = 0;
  for (const std::string& label : ticks.labels) {
    width = std::max(width, Canvas::textWidth(label, kNumber));
  }
  return width;
}

/// The share of a number on the way from one to another, also for a distance beyond all numbers.
double shareOf(double value, double from, double to) {
  return (value / 2 - from / 2) / (to / 2 - from / 2);
}

/// As many numbers as do not touch in a row of that length.
Ticks ticksInRow(double from, double to, double length) {
  for (int most = std::max(2, static_cast<int>(length / 60)); most > 1; --most) {
    Ticks ticks = roundTicks(from, to, most);
    if (ticks.values.size() < 2) return ticks;
    const double step = ticks.values[1] - ticks.values[0];
    if (widest(ticks) + 18 <= length * std::abs(step / (to - from))) return ticks;
  }
  return roundTicks(from, to, 1);
}

Ticks ticksInColumn(double from, double to, double height, double distance) {
  return roundTicks(from, to, std::max(1, static_cast<int>(height / distance)));
}

Range finite(Range range) {
  const bool good = std::isfinite(range.from) && std::isfinite(range.to);
  return good ? range : Range{0, 1, std::move(range.title)};
}

}  // namespace

std::string titleWithUnit(std::string_view name, std::string_view unit) {
  std::string title(name);
  if (!unit.empty()) title.append(" (").append(unit).append(")");
  return title;
}

Axes::Axes(const Box& area, Range x, Range y)
    : area_(area),
      x_(finite(std::move(x))),
      y_(finite(std::move(y))),
      xTicks_(ticksInRow(x_.from, x_.to, area.width)),
      yTicks_(ticksInColumn(y_.from, y_.to, area.height, kAxisRows)) {}

double Axes::column(double x) const {
  return x_.from == x_.to ? area_.left + area_.width / 2
                          : area_.left + area_.width * shareOf(x, x_.from, x_.to);
}

double Axes::row(double y) const {
  return y_.from == y_.to ? area_.top + area_.height / 2
                          : area_.bottom() - area_.height * shareOf(y, y_.from, y_.to);
}

double Axes::left() const { return std::max(36.0, widest(yTicks_) + kTick + kGap + 4); }

void Axes::drawGrid(Canvas& canvas) const {
  for (const double x : xTicks_.values) {
    canvas.rule({column(x), area_.top}, {column(x), area_.bottom() - 1}, kFaint);
  }
  for (const double y : yTicks_.values) {
    canvas.rule({area_.left, row(y)}, {area_.right() - 1, row(y)}, kFaint);
  }
}

void Axes::draw(Canvas& canvas) const {
  canvas.frame(area_, kInk);
  for (std::size_t i = 0; i < xTicks_.values.size(); ++i) {
    const double x = std::clamp(column(xTicks_.values[i]), area_.left - 1, area_.right());
    canvas.rule({x, area_.bottom()}, {x, area_.bottom() + kTick}, kInk);
    canvas.text({x, area_.bottom() + kTick + kGap + 5}, xTicks_.labels[i],
                {kNumber.size, kInk, Anchor::kMiddle});
  }
  for (std::size_t i = 0; i < yTicks_.values.size(); ++i) {
    const double y = std::clamp(row(yTicks_.values[i]), area_.top - 1, area_.bottom());
    canvas.rule({area_.left - 1 - kTick, y}, {area_.left - 1, y}, kInk);
    canvas.text({area_.left - 1 - kTick - kGap, y}, yTicks_.labels[i],
                {kNumber.size, kInk, Anchor::kEnd});
  }
  const double most = std::max(area_.width, 110.0);
  canvas.text({area_.left + area_.width / 2, area_.bottom() + kBelow - 8}, fitted(x_.title, most),
              {13, kInk, Anchor::kMiddle});
  canvas.text({area_.left - left(), area_.top - kAbove + 10}, fitted(y_.title, most));
}

std::vector<Color> ColorBar::colorsAlong(int pixels) const {
  std::vector<Color> colors;
  colors.reserve(static_cast<std::size_t>(std::max(pixels, 0)));
  for (int i = 0; i < pixels; ++i) {
    colors.push_back(scale_.colors->at(scale_.low == scale_.high ? 0.5 : (i + 0.5) / pixels));
  }
  return colors;
}

/// The tips, where there are any, and the outline around all.
/// @param first, last  ends of the bar; each with its tip between two corners
void ColorBar::drawOutline(Canvas& canvas, const std::array<Point, 3>& first,
                           const std::array<Point, 3>& last) const {
  std::vector<Point> outline;
  for (const auto& [corners, pointed, share] :
       {std::tuple(first, scale_.lowerValues, 0.0), {last, scale_.higherValues, 1.0}}) {
    if (pointed) canvas.polygon({corners.begin(), corners.end()}, scale_.colors->at(share));
    outline.push_back(corners[0]);
    if (pointed) outline.push_back(corners[1]);
    outline.push_back(corners[2]);
  }
  outline.push_back(outline.front());
  canvas.line(outline, kInk, 1);
}

void ColorBar::drawUpright(Canvas& canvas, const Box& area) const {
  const double middle = area.left + area.width / 2, tip = area.width / 2;
  const std::vector<Color> colors = colorsAlong(static_cast<int>(area.height));
  for (std::size_t i = 0; i < colors.size(); ++i) {
    canvas.fill({area.left, area.bottom() - 1.0 - static_cast<double>(i), area.width, 1},
                colors[i]);
  }
  drawOutline(
      canvas,
      {{{area.left, area.bottom()}, {middle, area.bottom() + tip}, {area.right(), area.bottom()}}},
      {{{area.right(), area.top}, {middle, area.top - tip}, {area.left, area.top}}});
  const auto placeOf = [this](double value) {
    return scale_.isLogarithmic ? std::log(value) : value;
  };
  const Axes axes(area, {}, {placeOf(scale_.low), placeOf(scale_.high), {}});
  const auto most = std::max(1, static_cast<int>(area.height / kBarRows));
  const Ticks ticks = scale_.isLogarithmic ? ratioTicks(scale_.low, scale_.high, most)
                                           : roundTicks(scale_.low, scale_.high, most);
  for (std::size_t i = 0; i < ticks.values.size(); ++i) {
    const double y = std::clamp(axes.row(placeOf(ticks.values[i])), area.top, area.bottom() - 1);
    canvas.rule({area.right(), y}, {area.right() + kTick, y}, kInk);
    canvas.text({area.right() + kTick + kGap + 1, y}, ticks.labels[i], kNumber);
  }
  canvas.text({area.left, area.top - 24}, title_);
}

void ColorBar::drawLying(Canvas& canvas, const Box& area) const {
  const double middle = area.top + area.height / 2, tip = area.height / 2;
  const std::vector<Color> colors = colorsAlong(static_cast<int>(area.width));
  for (std::size_t i = 0; i < colors.size(); ++i) {
    canvas.fill({area.left + static_cast<double>(i), area.top, 1, area.height}, colors[i]);
  }
  drawOutline(
      canvas, {{{area.left, area.top}, {area.left - tip, middle}, {area.left, area.bottom()}}},
      {{{area.right(), area.bottom()}, {area.right() + tip, middle}, {area.right(), area.top}}});
  const Axes axes(area, {scale_.low, scale_.high, {}}, {});
  const Ticks ticks = ticksInRow(scale_.low, scale_.high, area.width);
  for (std::size_t i = 0; i < ticks.values.size(); ++i) {
    const double x = std::clamp(axes.column(ticks.values[i]), area.left, area.right() - 1);
    canvas.rule({x, area.bottom()}, {x, area.bottom() + kTick}, kInk);
    canvas.text({x, area.bottom() + kTick + kGap + 5}, ticks.labels[i],
                {kNumber.size, kInk, Anchor::kMiddle});
  }
  canvas.text({area.left, area.top - 14}, title_);
}

double drawSwatch(Canvas& canvas, Point at, Color color, std::string_view text) {
  const Box field{at.x, at.y - 7, ColorBar::kThickness, 14};
  canvas.fill(field, color);
  canvas.frame(field, kInk);
  canvas.text({field.right() + 8, at.y}, text, kNumber);
  return field.right() + 8 + Canvas::textWidth(text, kNumber);
}

void drawScaleBar(Canvas& canvas, Point at, double most, double unitsPerPixel,
                  std::string_view unit) {
  const double length = roundStep(most * unitsPerPixel);
  const double width = std::round(length / unitsPerPixel);
  if (!(length > 0 && width >= 1)) return;
  std::string text = numberText(length);
  if (!unit.empty()) text.append(" ").append(unit);
  canvas.text({at.x, at.y - 14}, fitted(text, most + 20, kNumber), kNumber);
  canvas.fill({at.x, at.y - 1, width, 3}, kInk);
  canvas.fill({at.x, at.y - 5, 1, 11}, kInk);
  canvas.fill({at.x + width - 1, at.y - 5, 1, 11}, kInk);
}

}  // namespace planex::report
