#include "planex/report/estimation_plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>

#include "planex/report/plain_text.h"
#include "planex/report/plot.h"

namespace planex::report {
namespace {

constexpr double kMargin = 12, kLegend = 184, kLegendGap = 24, kLine = 26;
constexpr double kLeastHeight = 150, kMostHeight = 560;
constexpr double kHead = 5;  // length of the head of an arrow
const TextStyle kSmall{12};

bool isFinite(const Point& point) { return std::isfinite(point.x) && std::isfinite(point.y); }

/// The axes of a figure with a legend to the right of it, as wide as fits, true to scale where that
/// leaves something to look at.
struct Layout {
  Layout(const Range& x, const Range& y)
      : axes(areaFor(x, y), x, y),
        height(std::ceil(axes.area().bottom() + Axes::kBelow + kMargin)),
        legend{axes.area().right() + kLegendGap, axes.area().top} {}

  static Box areaFor(const Range& x, const Range& y) {
    const double top = kMargin + Axes::kAbove;
    const double aspect = std::abs((y.to - y.from) / (x.to - x.from));
    const auto heightOf = [&](double width) {
      const double wanted = std::isfinite(aspect) ? width * aspect : kMostHeight;
      return std::round(std::clamp(wanted, kLeastHeight, kMostHeight));
    };
    double left = kMargin + 60;
    for (int i = 0; i < 2; ++i) {  // numbers depend on the height, and the height on their width
      const double height = heightOf(kEstimationWidth - kLegend - left);
      left = std::ceil(kMargin + Axes({0, 0, 100, height}, x, y).left());
    }
    const double most = kEstimationWidth - kLegend - left;
    const double height = heightOf(most);
    const double wanted = aspect > 0 ? std::round(height / aspect) : most;
    return {left, top, std::clamp(wanted, std::min(300.0, most), most), height};
  }

  Axes axes;
  double height;
  Point legend;
};

bool isDrawn(const Outline& outline) { return outline.corners.size() > 2; }

void drawOutline(Canvas& canvas, const Axes& axes, const Outline& outline) {
  if (!isDrawn(outline)) return;
  std::vector<Point> line;
  for (const Point& corner : outline.corners) line.push_back(axes.at(corner));
  line.push_back(line.front());
  const Canvas::Clip clip(canvas, axes.area());
  canvas.line(line, kPaper, 4.5);
  canvas.line(line, outline.color, 1.8);
}

void drawOutlineName(Canvas& canvas, const Point& at, const Outline& outline) {
  canvas.line({at, {at.x + 24, at.y}}, outline.color, 1.8);
  canvas.text({at.x + 32, at.y}, fitted(outline.name, kLegend - kLegendGap - 36, kSmall), kSmall);
}

/// Draws many at once, which makes one path of them.
class Strokes {
 public:
  void addArrow(const Point& from, const Point& by) {
    const double length = std::hypot(by.x, by.y);
    if (!(length > 0.5)) {
      dots_.push_back(from);
      return;
    }
    const double head = std::min(kHead, 0.6 * length);
    const Point along{head * by.x / length, head * by.y / length};
    const Point tip{from.x + by.x, from.y + by.y};
    const Point neck{tip.x - along.x, tip.y - along.y};
    constexpr double kSpread = 0.45;
    addLine({from, tip});
    addLine({{neck.x - kSpread * along.y, neck.y + kSpread * along.x},
             tip,
             {neck.x + kSpread * along.y, neck.y - kSpread * along.x}});
  }
  void addCross(const Point& at) {
    constexpr double kHalf = 3.5;
    addLine({{at.x - kHalf, at.y - kHalf}, {at.x + kHalf, at.y + kHalf}});
    addLine({{at.x - kHalf, at.y + kHalf}, {at.x + kHalf, at.y - kHalf}});
  }
  void draw(Canvas& canvas, Color color, double width) const {
    canvas.line(lines_, color, width);
    canvas.dots(dots_, color, 1);
  }

 private:
  void addLine(std::initializer_list<Point> points) {
    lines_.insert(lines_.end(), points);
    lines_.push_back({std::nan(""), 0});  // lifts the pen
  }

  std::vector<Point> lines_, dots_;
};

constexpr double kArrowWidth = 1.1, kCrossWidth = 1.6;

/// Pixels of the picture for the unit of the arrows: most are as long as arrows are apart.
double enlargement(const std::vector<Arrow>& arrows, const Axes& axes) {
  constexpr double kShare = 0.9;
  constexpr double kFar = std::numeric_limits<double>::infinity();
  Point least{kFar, kFar}, most{-kFar, -kFar};
  std::vector<double> lengths;
  for (const Arrow& arrow : arrows) {
    const double length = std::hypot(arrow.by.x, arrow.by.y);
    const Point at = axes.at(arrow.at);
    if (!std::isfinite(length) || !isFinite(at)) continue;
    lengths.push_back(length);
    least = {std::min(least.x, at.x), std::min(least.y, at.y)};
    most = {std::max(most.x, at.x), std::max(most.y, at.y)};
  }
  if (lengths.empty()) return 0;
  const auto at = lengths.begin() +
                  static_cast<std::ptrdiff_t>(kShare * static_cast<double>(lengths.size() - 1));
  std::nth_element(lengths.begin(), at, lengths.end());
  const double apart =
      std::sqrt((most.x - least.x) * (most.y - least.y) / static_cast<double>(lengths.size()));
  const double scale = std::clamp(1.1 * apart, 14.0, 45.0) / *at;
  return std::isfinite(scale) ? scale : 0;
}

double signOf(const Range& range) { return range.to < range.from ? -1 : 1; }

/// Values between those of the map.
class Surface {
 public:
  explicit Surface(const SensorMap& map) : map_(map) {}

  /// @param x, y  0 ... 1
  double at(double x, double y) const {
    const Position column = positionOf(x, map_.columns), row = positionOf(y, map_.rows);
    const double upper =
        mix(value(column.first, row.first), value(column.first + 1, row.first), column.share);
    const double lower = mix(value(column.first, row.first + 1),
                             value(column.first + 1, row.first + 1), column.share);
    return mix(upper, lower, row.share);
  }

 private:
  struct Position {
    int first;
    double share;
  };

  static Position positionOf(double share, int count) {
    const double place = share * (count - 1);
    const int first = std::clamp(static_cast<int>(place), 0, count - 2);
    return {first, place - first};
  }
  static double mix(double a, double b, double share) { return a + share * (b - a); }
  double value(int column, int row) const {
    return map_.values[static_cast<std::size_t>(row) * static_cast<std::size_t>(map_.columns) +
                       static_cast<std::size_t>(column)];
  }

  const SensorMap& map_;
};

ColorScale scaleOf(const SensorMap& map) {
  const auto [low, high] = endsOf(map.values);
  ColorScale scale{ColorMap::find("viridis"), low, high};
  scale.isLogarithmic = low > 0;
  if (map.most > low && map.most < high) {
    scale.high = map.most;
    scale.higherValues = true;
  }
  return scale;
}

/// Two digits: what is read off a picture.
std::string roughText(double value) {
  if (!(value > 0 && std::isfinite(value))) return numberText(value);
  const int exponent = static_cast<int>(std::floor(std::log10(value / 0.995)));  // once rounded
  if (exponent < -4 || exponent > 4) return fmt::format("{:.1e}", value);
  if (exponent < 1) return fmt::format("{:.{}f}", value, 1 - exponent);
  const double power = std::pow(10.0, exponent - 1);
  return fmt::format("{:.0f}", std::round(value / power) * power);
}

/// Some of the numbers, so that the picture is read without colours, too.
void drawNumbers(Canvas& canvas, const Surface& surface, const Box& area) {
  const auto countIn = [](double length, double each) {
    return std::clamp(static_cast<int>(length / each), 2, 7);
  };
  const int columns = countIn(area.width, 90), rows = countIn(area.height, 75);
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const double x = (column + 0.5) / columns, y = (row + 0.5) / rows;
      const std::string text = roughText(surface.at(x, y));
      const Point at{area.left + x * area.width, area.top + y * area.height};
      const double width = std::ceil(Canvas::textWidth(text, kSmall)) + 8;
      canvas.fill({std::round(at.x - width / 2), std::round(at.y) - 8, width, 17}, kPaper);
      canvas.text({at.x, std::round(at.y) + 0.5}, text, {kSmall.size, kInk, Anchor::kMiddle});
    }
  }
}

void drawOn(Canvas& canvas, const SensorMap& map, const Layout& layout) {
  const Box& area = layout.axes.area();
  const ColorScale scale = scaleOf(map);
  const Surface surface(map);
  const int width = static_cast<int>(area.width), height = static_cast<int>(area.height);
  std::vector<Color> pixels;
  pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double value = surface.at((x + 0.5) / width, (y + 0.5) / height);
      pixels.push_back(std::isfinite(value) ? scale.at(value) : scale.colors->missing());
    }
  }
  canvas.image({area.left, area.top}, width, height, pixels);
  drawOutline(canvas, layout.axes, map.measured);
  drawNumbers(canvas, surface, area);
  layout.axes.draw(canvas);
  const double below = isDrawn(map.measured) ? kLine : 0;
  const double top = layout.legend.y + 20;
  if (std::isfinite(scale.low)) {
    ColorBar(scale, fitted(map.title, kLegend - kLegendGap))
        .drawUpright(
            canvas, {layout.legend.x, top, ColorBar::kThickness, area.bottom() - top - below - 10});
  }
  if (below > 0) {
    drawOutlineName(canvas, {layout.legend.x, area.bottom() - 8}, map.measured);
  }
}

void drawOn(Canvas& canvas, const ArrowFigure& figure, const Layout& layout) {
  const Axes& axes = layout.axes;
  axes.drawGrid(canvas);
  for (const Outline& outline : figure.outlines) drawOutline(canvas, axes, outline);
  const double scale = enlargement(figure.arrows, axes);
  const Point along{scale * signOf(figure.x), -scale * signOf(figure.y)};
  Strokes arrows, crosses;
  for (const Arrow& arrow : figure.arrows) {
    const Point by{arrow.by.x * along.x, arrow.by.y * along.y};
    if (isFinite(arrow.at) && isFinite(by)) arrows.addArrow(axes.at(arrow.at), by);
  }
  for (const Point& cross : figure.crosses) {
    if (isFinite(cross)) crosses.addCross(axes.at(cross));
  }
  {
    const Canvas::Clip clip(canvas, axes.area());
    arrows.draw(canvas, kBlue, kArrowWidth);
    crosses.draw(canvas, kVermilion, kCrossWidth);
  }
  axes.draw(canvas);
  Point at{layout.legend.x, layout.legend.y + 8};
  const double room = kLegend - kLegendGap - 36;
  if (scale > 0) {
    const double length = roundStep(75 / scale);
    canvas.text(at, fitted(numberText(length) + " " + figure.unit, room + 30, kSmall), kSmall);
    at.y += 18;
    Strokes sample;
    sample.addArrow(at, {length * scale, 0});
    sample.draw(canvas, kBlue, kArrowWidth);
    at.y += kLine + 4;
  }
  if (!figure.crosses.empty()) {
    Strokes sample;
    sample.addCross({at.x + 12, at.y});
    sample.draw(canvas, kVermilion, kCrossWidth);
    canvas.text({at.x + 32, at.y}, fitted(figure.crossName, room, kSmall), kSmall);
    at.y += kLine;
  }
  for (const Outline& outline : figure.outlines) {
    if (!isDrawn(outline)) continue;
    drawOutlineName(canvas, at, outline);
    at.y += kLine;
  }
}

}  // namespace

Drawing drawSensorMap(const SensorMap& map) {
  const Layout layout({-0.5, map.width - 0.5, "column (pixels)"},
                      {map.height - 0.5, -0.5, "row (pixels)"});
  return {kEstimationWidth, layout.height,
          [map, layout](Canvas& canvas) { drawOn(canvas, map, layout); }};
}

Drawing drawArrows(const ArrowFigure& figure) {
  const Layout layout(figure.x, figure.y);
  return {kEstimationWidth, layout.height,
          [figure, layout](Canvas& canvas) { drawOn(canvas, figure, layout); }};
}

EvenChoice::EvenChoice(double width, double height, std::size_t most)
    : width_(width), height_(height), most_(std::max<std::size_t>(most, 1)) {
  const double columns = std::sqrt(static_cast<double>(most_) * width / height);
  columns_ = static_cast<std::size_t>(std::clamp(columns, 1.0, static_cast<double>(most_)));
  rows_ = most_ / columns_;
}

void EvenChoice::offer(Point at) {
  const std::size_t place = offered_++;
  if (!isFinite(at)) return;
  if (cells_.empty()) cells_.resize(columns_ * rows_);
  const auto positionOf = [](double value, double size, std::size_t count) {
    return std::clamp((value + 0.5) / size, 0.0, 1.0) * static_cast<double>(count);
  };
  const double x = positionOf(at.x, width_, columns_), y = positionOf(at.y, height_, rows_);
  const std::size_t column = std::min(static_cast<std::size_t>(x), columns_ - 1);
  const std::size_t row = std::min(static_cast<std::size_t>(y), rows_ - 1);
  const double dx = x - static_cast<double>(column) - 0.5;
  const double dy = y - static_cast<double>(row) - 0.5;
  const double distance = dx * dx + dy * dy;
  std::optional<Candidate>& best = cells_[row * columns_ + column];
  if (!best || distance < best->distance) best = Candidate{place, distance};
}

std::vector<std::size_t> EvenChoice::chosen() const {
  std::vector<std::size_t> places;
  if (offered_ <= most_) {
    for (std::size_t i = 0; i < offered_; ++i) places.push_back(i);
    return places;
  }
  for (const auto& cell : cells_) {
    if (cell) places.push_back(cell->place);
  }
  std::sort(places.begin(), places.end());
  return places;
}

}  // namespace planex::report
