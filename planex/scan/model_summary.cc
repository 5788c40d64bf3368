#include "planex/scan/model_summary.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "planex/foundation/interval.h"
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
constexpr int kSideSteps = 64;      // along each edge, when extremes are looked for
constexpr int kParts = 16;          // of what is looked at more closely, each time
constexpr int kRounds = 8;          // then 2 / 64 (2 / 16)^8 of an edge is left, some 2e-9 of it

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

/// A part of an edge of the sensor.
struct Edge {
  Point from, to;

  Point at(int i, int steps) const {
    const double t = static_cast<double>(i) / steps;
    return {(1 - t) * from.x + t * to.x, (1 - t) * from.y + t * to.y};
  }
};

/// The bounds of the sensor's outline in the laser plane.
///
/// They are the bounds of the whole sensor: where neither lens nor sheet curve fold and the horizon
/// is off the sensor, the mapping carries a place with all around it to a place with all around
/// it, so that no inner place is the outermost in any direction.
///
/// Along an edge X and Z are smooth functions of one number. Each of their local extremes among
/// evenly spaced places is looked at more closely, between its neighbours: the best of some places
/// and its neighbours, in rounds. Near an extreme a function changes with the square of the
/// distance, so the last round is as good as rounding lets it be. The work does not depend on the
/// size of the sensor.
class OutlineBounds {
 public:
  OutlineBounds(const CalibrationModel& model, const Point& min, const Point& max)
      : model_(model), x_{min.x, max.x}, z_{min.y, max.y} {}

  bool includeEdge(const Edge& edge) {
    etl::Vector<Point> points;
    if (!map(edge, kSideSteps, points)) return false;
    for (const Quantity quantity : kQuantities) {
      for (int i = 0; i <= kSideSteps; ++i) {
        const double here = quantity(at(points, i));
        if (i > 0 && !(here > quantity(at(points, i - 1)))) continue;
        if (i < kSideSteps && !(here >= quantity(at(points, i + 1)))) continue;
        if (!includeGreatest(around(edge, i, kSideSteps), quantity)) return false;
      }
    }
    return true;
  }

  const cmnalg::math::Interval& x() const { return x_; }
  const cmnalg::math::Interval& z() const { return z_; }

 private:
  using Quantity = double (*)(const Point&);
  static constexpr Quantity kQuantities[] = {
      [](const Point& p) { return p.x; }, [](const Point& p) { return -p.x; },
      [](const Point& p) { return p.y; }, [](const Point& p) { return -p.y; }};

  static const Point& at(const etl::Vector<Point>& points, int i) {
    return points[static_cast<std::size_t>(i)];
  }

  /// From the place before i to the one behind it.
  static Edge around(const Edge& edge, int i, int steps) {
    return {edge.at(std::max(i - 1, 0), steps), edge.at(std::min(i + 1, steps), steps)};
  }

  /// Maps evenly spaced places of an edge, its ends first and last, and includes them.
  bool map(const Edge& edge, int steps, etl::Vector<Point>& points) {
    points.clear();
    for (int i = 0; i <= steps; ++i) points.push_back(edge.at(i, steps));
    if (!datafusion::planex::mapPoints<double>(model_, points, points, CoordinateSystem::Pixel,
                                               CoordinateSystem::Calibrated)) {
      return false;
    }
    for (const Point& point : points) {
      x_.Include(point.x);
      z_.Include(point.y);
    }
    return true;
  }

  bool includeGreatest(Edge edge, Quantity quantity) {
    etl::Vector<Point> points;
    for (int round = 0; round < kRounds; ++round) {
      if (!map(edge, kParts, points)) return false;
      int best = 0;
      for (int i = 1; i <= kParts; ++i) {
        if (quantity(at(points, i)) > quantity(at(points, best))) best = i;
      }
      edge = around(edge, best, kParts);
    }
    return true;
  }

  const CalibrationModel& model_;
  cmnalg::math::Interval x_, z_;
};

/// Widens the bounds to those of the outline.
bool includeOutline(const CalibrationModel& model, Point& min, Point& max) {
  const double right = model.SensorSize.x - 1.0, bottom = model.SensorSize.y - 1.0;
  const Point corners[] = {{0, 0}, {right, 0}, {right, bottom}, {0, bottom}, {0, 0}};
  OutlineBounds bounds(model, min, max);
  for (int i = 0; i < 4; ++i) {
    if (!bounds.includeEdge({corners[i], corners[i + 1]})) return false;
  }
  min = {bounds.x().min, bounds.z().min};
  max = {bounds.x().max, bounds.z().max};
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
                      includeOutline(model, min, max) &&
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
