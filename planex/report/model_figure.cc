#include "planex/report/model_figure.h"

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/model/coordinate_system.h"
#include "planex/model/point_mapping.h"

namespace planex::report {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using PointList = etl::Vector<cmnalg::Vec<2, double>>;

template <typename List>
std::vector<Point> pointsOf(const List& list, bool closed) {
  std::vector<Point> points;
  points.reserve(list.size() + 1);
  for (const auto& point : list) points.push_back({point.x, point.y});
  if (closed && !points.empty()) points.push_back(points.front());
  return points;
}

/// Every eighth of the sensor's columns and rows, mapped like its border.
std::vector<std::vector<Point>> sensorLines(const CalibrationModel& model) {
  constexpr int kLines = 8, kPieces = 64;
  const double lastColumn = model.SensorSize.x - 1;
  const double lastRow = model.SensorSize.y - 1;
  std::vector<std::vector<Point>> lines;
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
        lines.push_back(pointsOf(*points, false));
      }
    }
  }
  return lines;
}

CellMap cellMap(const scan::RegionSummary& region, const char* title, const cmnalg::Image& image,
                const std::string& unit) {
  const auto& area = region.area;
  CellMap map{title,
              region.columns,
              region.rows,
              {area.Center.x - area.Width / 2, area.Center.y - area.Height / 2},
              {area.Center.x + area.Width / 2, area.Center.y + area.Height / 2},
              {},
              titleWithUnit("X", unit),
              titleWithUnit("Z", unit),
              unit,
              "no points",
              {}};
  for (int row = 0; row < region.rows; ++row) {
    for (int column = 0; column < region.columns; ++column) {
      map.values.push_back(region.count.GetPixel(column, row) > 0
                               ? image.GetPixel(column, row)
                               : std::numeric_limits<double>::quiet_NaN());
    }
  }
  return map;
}

}  // namespace

ModelFigure figureOf(const CalibrationModel& model, const scan::FieldOfView& view,
                     const std::optional<scan::RegionSummary>& region, const std::string& unit) {
  ModelFigure figure;
  figure.title = "What the sensor sees of the laser plane";
  figure.unit = unit;
  figure.least = {view.xMin, view.zMin};
  figure.most = {view.xMax, view.zMax};
  figure.border = pointsOf(view.outline.Points, true);
  figure.sensorLines = sensorLines(model);
  // The outline starts with the corner of column 0 and row 0, and has as many points on each edge.
  const std::size_t edge = view.outline.Points.size() / 4;
  const char* names[] = {"column 0, row 0", "last column, row 0", "last column, last row",
                         "column 0, last row"};
  for (std::size_t i = 0; i < 4 && edge > 0; ++i) {
    figure.corners.push_back({figure.border[i * edge], names[i]});
  }
  if (!region) return figure;
  figure.region = pointsOf(region->area.GetCorners(), true);
  figure.residuals = {cellMap(*region, "Average residual in X", region->averageX, unit),
                      cellMap(*region, "Average residual in Z", region->averageZ, unit),
                      cellMap(*region, "Maximum residual in X", region->maximumX, unit),
                      cellMap(*region, "Maximum residual in Z", region->maximumZ, unit)};
  return figure;
}

bool hasArea(const scan::FieldOfView& view) {
  const double width = view.xMax - view.xMin;
  const double height = view.zMax - view.zMin;
  return width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height);
}

}  // namespace planex::report
