#include "planex/model/calibrated_bounds.h"

#include <cstddef>
#include <limits>

#include "planex/foundation/box.h"
#include "planex/foundation/interval.h"
#include "planex/infra/containers.h"
#include "planex/infra/float_environment.h"
#include "planex/model/model_checks.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"
#include "planex/model/spacing_fit.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;
using PointList = etl::Vector<Vec<2, double>>;

constexpr int kSteps = 19;
constexpr std::size_t kRows = kSteps + 1;

/// Evenly spaced from `first` to `last`, by index: rounding neither adds up nor moves the ends.
double sampleAt(double first, double last, int i) {
  const double step = (last - first) / kSteps;
  return i == kSteps ? last : first + i * step;
}

/// Three points a row, left, right and middle, for kRows rows; then the inner columns' ends.
PointList sampleSensor(const Vec<2, double>& pixMin, const Vec<2, double>& pixMax) {
  const double middle = (pixMin.x + pixMax.x) / 2;
  PointList points;
  points.reserve(3 * kRows + 2 * (kRows - 2));
  for (int row = 0; row <= kSteps; ++row) {
    const double y = sampleAt(pixMin.y, pixMax.y, row);
    points.push_back({pixMin.x, y});
    points.push_back({pixMax.x, y});
    points.push_back({middle, y});
  }
  for (int column = 1; column < kSteps; ++column) {
    const double x = sampleAt(pixMin.x, pixMax.x, column);
    points.push_back({x, pixMin.y});
    points.push_back({x, pixMax.y});
  }
  return points;
}

/// The distance of neighbouring points over Z, from the mapped rows.
SpacingFit fitSpacing(const PointList& points, double columns) {
  SpacingFit fit(columns);
  for (std::size_t row = 0; row < kRows; ++row) {
    const Vec<2, double>* ends = &points[3 * row];
    fit.Add(ends[1].x - ends[0].x, ends[1].y - ends[0].y, ends[2].y);
  }
  return fit;
}

}  // namespace

bool calculateImageBounds(const CalibrationModel& model, const cmnalg::Image& image, double zMin,
                          double zMax, Vec<3, double>& min, Vec<3, double>& max,
                          CoordinateSystem from, CoordinateSystem to, int supersampling) {
  const base::DefaultFloatEnvironment environment;
  if (zMin > zMax) {
    return refuse(
        "Range limits for Z must be in proper order. Minimum must be a smaller value than "
        "maximum.");
  }
  const double lastColumn = image.GetWidth() - 1.0;
  const double lastRow = image.GetHeight() - 1.0;
  const auto box = cmnalg::shape3d::Box::FromCorners(
      {image.Origin.x, image.Origin.y, zMin}, {image.Origin.x + lastColumn * image.PixelSize.x,
                                               image.Origin.y + lastRow * image.PixelSize.y, zMax});
  return mapBox(model, box, min, max, from, to, 0.0, 1.0, supersampling);
}

bool calculateCalibratedBounds(const CalibrationModel& model, bool aligned,
                               const Vec<2, double>& pixMin, const Vec<2, double>& pixMax,
                               Vec<2, double>& min, Vec<2, double>& max, double& resSlope,
                               double& resOffset) {
  const base::DefaultFloatEnvironment environment;
  PointList points = sampleSensor(pixMin, pixMax);
  const auto target = aligned ? CoordinateSystem::Aligned : CoordinateSystem::Calibrated;
  if (!mapPoints<double>(model, points, points, CoordinateSystem::Pixel, target)) return false;

  constexpr double kLargest = std::numeric_limits<double>::max();
  cmnalg::math::Interval x{kLargest, -kLargest}, z = x;
  for (const Vec<2, double>& point : points) {
    x.Include(point.x);
    z.Include(point.y);
  }

  const double columns = pixMax.x - pixMin.x;
  double slope = 1.0;
  double offset = (x.max - x.min) / columns;
  fitSpacing(points, columns).Solve(slope, offset);
  min = {x.min, z.min};
  max = {x.max, z.max};
  resSlope = slope;
  resOffset = offset;
  return true;
}

bool calculateCalibratedBounds(const CalibrationModel& model, bool aligned, Vec<2, double>& min,
                               Vec<2, double>& max, double& resSlope, double& resOffset) {
  return calculateCalibratedBounds(model, aligned, {0.0, 0.0},
                                   {model.SensorSize.x - 1.0, model.SensorSize.y - 1.0}, min, max,
                                   resSlope, resOffset);
}

}  // namespace datafusion::planex
