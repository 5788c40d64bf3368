#include "planex/report/model_plot.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

constexpr double kWidth = 1200, kMargin = 24;

double viewHeightOf(double width) { return std::round(width / 1.5); }
/// Of a row of maps.
double mapHeightOf(double width) { return std::round(150 + 0.15 * width); }

ColorScale scaleOf(const CellMap& map, const ColorMap& colors) {
  const auto [low, high] = map.range ? *map.range : endsOf(map.values);
  return ColorScale::of(low < 0 && high > 0 ? *ColorMap::find("diverging") : colors, low, high);
}

std::vector<Color> pixelsOf(const CellMap& map, const ColorScale& scale, int width, int height) {
  std::vector<Color> pixels;
  for (int y = 0; y < height; ++y) {
    const auto row = (height - 1 - y) * static_cast<std::size_t>(map.rows) /
                     static_cast<std::size_t>(height);  // the lowest is the last line
    for (int x = 0; x < width; ++x) {
      const auto column = static_cast<std::size_t>(x) * static_cast<std::size_t>(map.columns) /
                          static_cast<std::size_t>(width);
      const double value = map.values[row * static_cast<std::size_t>(map.columns) + column];
      pixels.push_back(std::isfinite(value) ? scale.at(value) : scale.colors->missing());
    }
  }
  return pixels;
}

void drawMap(Canvas& canvas, const Box& box, const CellMap& map, const ColorMap& colors) {
  constexpr double kHeading = 30;
  const double legendWidth = box.width > 450 ? 150 : 110;
  canvas.text({box.left, box.top + 10}, map.title, {14, kInk, Anchor::kStart, true});
  const Range x{map.least.x, map.most.x, map.xTitle};
  const Range z{map.least.y, map.most.y, map.yTitle};
  const double top = box.top + kHeading + Axes::kAbove;
  const double height = box.bottom() - top - Axes::kBelow;
  const double left = std::ceil(box.left + Axes({0, 0, 100, height}, x, z).left());
  const double width = box.right() - legendWidth - left;
  // As large as fits, true to scale where that leaves something to look at.
  const double scale =
      std::min(width / (map.most.x - map.least.x), height / (map.most.y - map.least.y));
  const auto fit = [&](double from, double to, double most) {
    const double size = std::round((to - from) * scale);
    return map.trueToScale && std::isfinite(size) ? std::clamp(size, 1.0, std::floor(most))
                                                  : std::floor(most);
  };
  const Box area{left, top, fit(map.least.x, map.most.x, width),
                 fit(map.least.y, map.most.y, height)};
  const ColorScale shown = scaleOf(map, colors);
  canvas.image({area.left, area.top}, static_cast<int>(area.width), static_cast<int>(area.height),
               pixelsOf(map, shown, static_cast<int>(area.width), static_cast<int>(area.height)));
  Axes(area, x, z).draw(canvas);
  const double legend = area.right() + 28;
  const bool missing = !std::all_of(map.values.begin(), map.values.end(),
                                    [](double value) { return std::isfinite(value); });
  const Box bar{legend, top + 6, ColorBar::kThickness, height - (missing ? 24 : 6)};
  if (std::isfinite(shown.low))
    ColorBar(shown, fitted(map.unit, legendWidth - 40)).drawUpright(canvas, bar);
  if (missing) {
    drawSwatch(canvas, {legend, bar.bottom() + 24}, shown.colors->missing(), map.missing);
  }
}

Plot planeOf(const ModelFigure& figure) {
  Plot plot;
  plot.title = figure.title;
  plot.xTitle = titleWithUnit("X", figure.unit);
  plot.yTitle = titleWithUnit("Z", figure.unit);
  plot.least = figure.least;
  plot.most = figure.most;
  plot.trueToScale = true;
  plot.notes = figure.corners;
  plot.series = {{"rows and columns of the sensor, every eighth", kGrey, figure.sensorLines, 1},
                 {"border of the sensor", kBlue, {figure.border}, 2}};
  if (!figure.region.empty()) {
    plot.series.push_back({"calibrated region", kVermilion, {figure.region}, 2});
  }
  if (!figure.scan.empty()) plot.series.push_back({"scan", kGreen, {figure.scan}, 2});
  return plot;
}

/// @param barRow  of the scale bar
void drawViewOn(Canvas& canvas, const ModelFigure& figure, const Box& view, double barRow) {
  const Axes axes = planeOf(figure).draw(canvas, view);
  const double unitsPerPixel =
      (figure.most.x - figure.least.x) / (axes.column(figure.most.x) - axes.column(figure.least.x));
  drawScaleBar(canvas, {axes.area().right() - 200, barRow}, 200, unitsPerPixel, figure.unit);
}

/// @param top  of the first row
void drawCellsOn(Canvas& canvas, const std::vector<CellMap>& maps, const ColorMap& colors,
                 double width, double top) {
  const double height = mapHeightOf(width);
  for (std::size_t i = 0; i < maps.size(); ++i) {
    const std::size_t column = i % 2;
    const std::size_t row = i / 2;
    const Box box{kMargin + static_cast<double>(column) * (width / 2 - kMargin / 2 + 6),
                  top + height * static_cast<double>(row),
                  maps.size() == 1 ? width - 2 * kMargin : width / 2 - 1.5 * kMargin,
                  height - kMargin};
    drawMap(canvas, box, maps[i], colors);
  }
}

double heightOf(const std::vector<CellMap>& maps, double width) {
  const std::size_t rows = (maps.size() + 1) / 2;
  return mapHeightOf(width) * static_cast<double>(rows);
}

}  // namespace

Drawing drawView(const ModelFigure& figure, double width) {
  const double height = viewHeightOf(width);
  ModelFigure untitled = figure;
  untitled.title.clear();
  return {width, height, [figure = std::move(untitled), width, height](Canvas& canvas) {
            drawViewOn(canvas, figure, {kMargin, 0, width - 2 * kMargin, height}, 20);
          }};
}

Drawing drawCells(const std::vector<CellMap>& maps, const ColorMap& colors, double width) {
  return {width, heightOf(maps, width),
          [maps, colors, width](Canvas& canvas) { drawCellsOn(canvas, maps, colors, width, 0); }};
}

Drawing drawModel(const ModelFigure& figure, const ColorMap& colors) {
  const double top = viewHeightOf(kWidth);
  return {kWidth, top + heightOf(figure.residuals, kWidth), [figure, colors, top](Canvas& canvas) {
            drawViewOn(canvas, figure, {kMargin, kMargin, kWidth - 2 * kMargin, top - 2 * kMargin},
                       kMargin + 40);
            drawCellsOn(canvas, figure.residuals, colors, kWidth, top);
          }};
}

}  // namespace planex::report
