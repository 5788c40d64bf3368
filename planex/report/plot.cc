#include "planex/report/plot.h"

#include <algorithm>
#include <cmath>

#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

constexpr double kHeading = 58;  // title and legend
constexpr double kNoteGap = 14;

/// What the axes show: somewhat more than is asked for, so that lines keep off the frame.
void widen(double& least, double& most, double factor) {
  const double middle = least / 2 + most / 2;
  const double half = (most / 2 - least / 2) * factor;
  const double reach = half > 0 && std::isfinite(half) ? half : 0.5;
  least = middle - reach;
  most = middle + reach;
}

void drawLegend(Canvas& canvas, Point at, const std::vector<Series>& series) {
  for (const Series& one : series) {
    if (one.name.empty()) continue;
    const std::vector<Point> sample = {{at.x, at.y}, {at.x + 24, at.y}};
    if (one.width > 0) canvas.line(sample, one.color, one.width + 0.5);
    if (one.radius > 0) canvas.dots({{at.x + 12, at.y}}, one.color, one.radius);
    canvas.text({at.x + 32, at.y}, one.name, {12});
    at.x += 32 + Canvas::textWidth(one.name, {12}) + 26;
  }
}

/// Above or below its point, whichever is further from the middle, and to the outer side.
void drawNote(Canvas& canvas, const Axes& axes, const Note& note) {
  const Point at = axes.at(note.at);
  const Box& area = axes.area();
  if (!(at.x > area.left - 1 && at.x < area.right() + 1 && at.y > area.top - 1 &&
        at.y < area.bottom() + 1)) {
    return;
  }
  const double width = Canvas::textWidth(note.text, {12});
  const bool toLeft = at.x < area.left + area.width / 2;
  const double left = std::clamp(toLeft ? at.x - width : at.x, area.left + 6,
                                 std::max(area.left + 6, area.right() - width - 6));
  const bool above = at.y < area.top + area.height / 2;
  canvas.text({left, at.y + (above ? -kNoteGap : kNoteGap)}, note.text, {12, note.color});
}

}  // namespace

Axes Plot::draw(Canvas& canvas, const Box& box) const {
  Box area{box.left, box.top + kHeading + Axes::kAbove, box.width - 24,
           box.height - kHeading - Axes::kAbove - Axes::kBelow};
  Point from = least, to = most;
  constexpr double kAround = 1.16;
  widen(from.x, to.x, kAround);
  widen(from.y, to.y, kAround);
  const auto axesIn = [&](double left) {
    Box inner = area;
    inner.left = std::ceil(area.left + left);
    inner.width = std::floor(area.right() - inner.left);
    Point a = from, b = to;
    if (trueToScale) {
      const double x = (b.x - a.x) / inner.width, y = (b.y - a.y) / inner.height;
      if (x > y) widen(a.y, b.y, x / y);
      if (y > x) widen(a.x, b.x, y / x);
    }
    return Axes(inner, {a.x, b.x, xTitle}, {a.y, b.y, yTitle});
  };
  Axes axes = axesIn(axesIn(60).left());
  axes.drawGrid(canvas);
  {
    const Canvas::Clip clip(canvas, axes.area());
    for (const Series& one : series) {
      for (const std::vector<Point>& line : one.lines) {
        std::vector<Point> points;
        points.reserve(line.size());
        for (const Point& point : line) points.push_back(axes.at(point));
        if (one.width > 0) canvas.line(points, one.color, one.width);
        if (one.radius > 0) canvas.dots(points, one.color, one.radius);
      }
    }
    for (const Note& note : notes) drawNote(canvas, axes, note);
  }
  axes.draw(canvas);
  canvas.text({box.left, box.top + 10}, fitted(title, box.width, {16, kInk, {}, true}),
              {16, kInk, Anchor::kStart, true});
  drawLegend(canvas, {box.left, box.top + 40}, series);
  return axes;
}

}  // namespace planex::report
