#include "planex/scan/model_summary.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/io/library_warnings.h"
#include "planex/model/calibrated_bounds.h"
#include "planex/model/coordinate_system.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"

namespace planex::scan {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using Point = cmnalg::Vec<2, double>;

constexpr int kOutlinePoints = 63;  // along each edge of the sensor

double distance(const Point& a, const Point& b) { return std::hypot(b.x - a.x, b.y - a.y); }

/// Resolution in sensor row v, against the row `next`.
bool resolutionOf(const CalibrationModel& model, double v, double next, Resolution& resolution) {
  const double last = model.SensorSize.x - 1;
  etl::Vector<Point> points = {{0, v}, {last, v}, {last / 2, v}, {last / 2, next}};
  if (!datafusion::planex::mapPoints<double>(model, points, points, CoordinateSystem::Pixel,
                                             CoordinateSystem::Calibrated)) {
    return false;
  }
  resolution = {points[2].y, distance(points[0], points[1]) / last, distance(points[2], points[3])};
  return true;
}

cmnalg::shape::Rectangle sensorOf(const CalibrationModel& model) {
  const double width = model.SensorSize.x - 1;
  const double height = model.SensorSize.y - 1;
  return {{width / 2, height / 2}, width, height, 0};
}

/// Sums of one direction over the cells.
class ResidualSums {
 public:
  void add(double count, double average, double maximum) {
    count_ += count;
    sum_ += count * average;
    squares_ += count * (average * average);
    maximum_ = std::max(maximum_, maximum);
  }
  ResidualSummary summary() const {
    return {sum_ / count_, std::sqrt(squares_ / count_), maximum_};
  }

 private:
  double count_ = 0, sum_ = 0, squares_ = 0, maximum_ = 0;
};

}  // namespace

std::optional<FieldOfView> fieldOfView(const CalibrationModel& model, std::string& reason) {
  if (model.SensorSize.x < 2 || model.SensorSize.y < 2) {
    reason = "the sensor has no size";
    return std::nullopt;
  }
  FieldOfView view{};
  Point min, max;
  double slope, offset;
  const double bottom = model.SensorSize.y - 1;
  const bool mapped = calculateCalibratedBounds(model, false, min, max, slope, offset) &&
                      mapRectangle(model, sensorOf(model), view.outline, CoordinateSystem::Pixel,
                                   CoordinateSystem::Calibrated, kOutlinePoints) &&
                      resolutionOf(model, 0, 1, view.near) &&
                      resolutionOf(model, bottom, bottom - 1, view.far);
  if (!mapped) {
    reason = io::takeLibraryWarnings();
    return std::nullopt;
  }
  view.xMin = min.x;
  view.xMax = max.x;
  view.zMin = min.y;
  view.zMax = max.y;
  if (view.near.lateral > view.far.lateral) std::swap(view.near, view.far);
  return view;
}

std::optional<RegionSummary> summarizeRegion(const CalibrationModel& model) {
  RegionSummary region{};
  const datafusion::planex::CalibratedRegion& images = model.CalibratedRegion;
  if (!images.IsValid() || !images.GetRegion(region.area) || !images.GetPointCount(region.count) ||
      !images.GetAverageResiduals(region.averageX, region.averageZ) ||
      !images.GetMaximumResiduals(region.maximumX, region.maximumZ)) {
    io::takeLibraryWarnings();
    return std::nullopt;
  }
  region.columns = region.count.GetWidth();
  region.rows = region.count.GetHeight();
  ResidualSums x, z;
  for (int row = 0; row < region.rows; ++row) {
    for (int column = 0; column < region.columns; ++column) {
      const double count = region.count.GetPixel(column, row);
      if (!(count > 0)) continue;
      region.points += static_cast<std::int64_t>(count);
      ++region.filledCells;
      x.add(count, region.averageX.GetPixel(column, row), region.maximumX.GetPixel(column, row));
      z.add(count, region.averageZ.GetPixel(column, row), region.maximumZ.GetPixel(column, row));
    }
  }
  region.x = x.summary();
  region.z = z.summary();
  return region;
}

}  // namespace planex::scan
