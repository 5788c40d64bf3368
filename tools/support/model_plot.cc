#include "tools/support/model_plot.h"

#include <fmt/format.h>
#include <planex/foundation/vec.h>
#include <planex/infra/containers.h>
#include <planex/model/coordinate_system.h>
#include <planex/model/point_mapping.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

#include "tools/support/picture.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using Point = cmnalg::Vec<2, double>;
using PointList = etl::Vector<Point>;

constexpr int kWidth = 1200;
constexpr int kViewHeight = 800;
constexpr int kMapHeight = 300;
constexpr int kMargin = 70;
constexpr int kTextScale = 2;
constexpr Color kGrid{44, 48, 56};
constexpr Color kRegion{110, 200, 230};

/// The view of the laser plane: X to the right, Z up.
class PlaneView {
 public:
  PlaneView(Picture& picture, const scan::FieldOfView& view)
      : picture_(picture),
        scale_(std::min((kWidth - 2 * kMargin) / (view.xMax - view.xMin),
                        (kViewHeight - 2 * kMargin) / (view.zMax - view.zMin))),
        middleX_((view.xMin + view.xMax) / 2),
        middleZ_((view.zMin + view.zMax) / 2) {}

  double pixelsPerUnit() const { return scale_; }
  double column(double x) const { return kWidth / 2.0 + (x - middleX_) * scale_; }
  double row(double z) const { return kViewHeight / 2.0 - (z - middleZ_) * scale_; }
  double xAt(double column) const { return middleX_ + (column - kWidth / 2.0) / scale_; }
  double zAt(double row) const { return middleZ_ - (row - kViewHeight / 2.0) / scale_; }

  void draw(const PointList& points, Color color) {
    for (std::size_t i = 1; i < points.size(); ++i) {
      picture_.line(column(points[i - 1].x), row(points[i - 1].y), column(points[i].x),
                    row(points[i].y), color);
    }
  }

 private:
  Picture& picture_;
  const double scale_, middleX_, middleZ_;
};

void drawGrid(Picture& picture, const PlaneView& plane, std::string_view unit) {
  const double step = roundStep(150 / plane.pixelsPerUnit());
  for (const double x : roundValues(plane.xAt(0), plane.xAt(kWidth), step)) {
    const double column = plane.column(x);
    picture.line(column, 0, column, kViewHeight, kGrid);
    picture.text(static_cast<int>(column) + 4, kViewHeight - 20, labelText(x, step), kFaint,
                 kTextScale);
  }
  for (const double z : roundValues(plane.zAt(kViewHeight), plane.zAt(0), step)) {
    const double row = plane.row(z);
    picture.line(0, row, kWidth, row, kGrid);
    picture.text(4, static_cast<int>(row) + 4, labelText(z, step), kFaint, kTextScale);
  }
  const std::string title = fmt::format("X to the right, Z up, in {}", unit);
  picture.text(kWidth - Picture::textWidth(title, kTextScale) - 10, 10, title, kInk, kTextScale);
}

/// Every eighth of the sensor's columns and rows, mapped like its border.
void drawSensorLines(const CalibrationModel& model, PlaneView& plane) {
  constexpr int kLines = 8, kPieces = 64;
  const double lastColumn = model.SensorSize.x - 1;
  const double lastRow = model.SensorSize.y - 1;
  for (int k = 1; k < kLines; ++k) {
    const double part = static_cast<double>(k) / kLines;
    PointList alongColumn, alongRow;
    for (int i = 0; i <= kPieces; ++i) {
      const double at = static_cast<double>(i) / kPieces;
      alongColumn.push_back({lastColumn * part, lastRow * at});
      alongRow.push_back({lastColumn * at, lastRow * part});
    }
    for (PointList* points : {&alongColumn, &alongRow}) {
      if (datafusion::planex::mapPoints<double>(model, *points, *points, CoordinateSystem::Pixel,
                                                CoordinateSystem::Calibrated)) {
        plane.draw(*points, kFaint);
      }
    }
  }
}

void drawCorners(Picture& picture, const PlaneView& plane, const PointList& outline) {
  // The outline starts with the corner of column 0 and row 0, and has as many points on each edge.
  const std::size_t edge = outline.size() / 4;
  const std::string_view names[] = {"row 0, column 0", "row 0", "last row", ""};
  for (std::size_t i = 0; i < 4; ++i) {
    const Point& corner = outline[i * edge];
    const double column = plane.column(corner.x);
    const double row = plane.row(corner.y);
    if (!(column > -1e6 && column < 1e6 && row > -1e6 && row < 1e6)) continue;
    const int width = Picture::textWidth(names[i], kTextScale);
    const int x = std::clamp(static_cast<int>(column) - width / 2, 4, kWidth - width - 4);
    const int y = static_cast<int>(row) + (row < kViewHeight / 2.0 ? -22 : 10);
    picture.text(x, y, names[i], kAccent, kTextScale);
  }
}

void drawPlane(Picture& picture, const CalibrationModel& model, const scan::FieldOfView& view,
               const std::optional<scan::RegionSummary>& region, const std::string& unit) {
  PlaneView plane(picture, view);
  drawGrid(picture, plane, unit);
  drawSensorLines(model, plane);
  PointList outline = view.outline.Points;
  if (!outline.empty()) outline.push_back(outline.front());
  plane.draw(outline, kAccent);
  if (!view.outline.Points.empty()) drawCorners(picture, plane, view.outline.Points);
  if (region) {
    const auto corners = region->area.GetCorners();
    PointList border(corners.begin(), corners.end());
    border.push_back(corners.front());
    plane.draw(border, kRegion);
    picture.text(static_cast<int>(std::clamp(plane.column(corners[3].x), 0.0, 1.0 * kWidth)) + 6,
                 static_cast<int>(std::clamp(plane.row(corners[3].y), 0.0, 1.0 * kViewHeight)) + 6,
                 "calibrated region", kRegion, kTextScale);
  }
  drawScaleBar(picture, 20, 14, 220, plane.pixelsPerUnit(), unit, kTextScale);
}

/// One map of the region in a panel of half the picture's width.
void drawMap(Picture& picture, int left, int top, std::string_view title,
             const scan::RegionSummary& region, const cmnalg::Image& values,
             const std::string& unit) {
  double min = std::numeric_limits<double>::infinity(), max = -min;
  const auto valueAt = [&](int column, int row) {
    return region.count.GetPixel(column, row) > 0 ? values.GetPixel(column, row)
                                                  : std::numeric_limits<double>::quiet_NaN();
  };
  for (int row = 0; row < region.rows; ++row) {
    for (int column = 0; column < region.columns; ++column) {
      const double value = valueAt(column, row);
      if (!std::isfinite(value)) continue;
      min = std::min(min, value);
      max = std::max(max, value);
    }
  }
  picture.text(left, top, title, kInk, kTextScale);
  constexpr int kTitle = 40, kLegend = 190;
  const int width = kWidth / 2 - kLegend - 30;
  const int height = kMapHeight - kTitle - 30;
  for (int y = 0; y < height; ++y) {
    const auto row =
        static_cast<int>((height - 1 - y) * std::int64_t{region.rows} / height);  // Z up
    for (int x = 0; x < width; ++x) {
      const auto column = static_cast<int>(x * std::int64_t{region.columns} / width);
      const double share = max > min ? (valueAt(column, row) - min) / (max - min) : 0.5;
      picture.set(left + x, top + kTitle + y,
                  std::isfinite(valueAt(column, row)) ? falseColor(share) : kPaper);
    }
  }
  picture.frame(left - 1, top + kTitle - 1, width + 2, height + 2, kFaint);
  if (max >= min) {
    drawLegend(picture, left + width + 20, top + kTitle, height, min, max, unit, kTextScale);
  }
}

}  // namespace

void plotModel(const CalibrationModel& model, const scan::FieldOfView& view,
               const std::optional<scan::RegionSummary>& region, const std::string& unit,
               io::OutputFile& file) {
  Picture picture(kWidth, kViewHeight + (region ? 2 * kMapHeight + 20 : 0));
  drawPlane(picture, model, view, region, unit);
  if (region) {
    picture.fill(0, kViewHeight, picture.width(), picture.height() - kViewHeight, kPaper);
    const int top = kViewHeight + 20, right = kWidth / 2 + 10;
    drawMap(picture, 20, top, "average residual X", *region, region->averageX, unit);
    drawMap(picture, right, top, "average residual Z", *region, region->averageZ, unit);
    drawMap(picture, 20, top + kMapHeight, "maximum residual X", *region, region->maximumX, unit);
    drawMap(picture, right, top + kMapHeight, "maximum residual Z", *region, region->maximumZ,
            unit);
  }
  picture.writePng(file);
}

}  // namespace planex::tools
