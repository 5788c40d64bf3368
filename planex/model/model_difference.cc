#include "planex/model/model_difference.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "planex/infra/containers.h"
#include "planex/infra/float_environment.h"
#include "planex/infra/refusal.h"
#include "planex/model/point_mapping.h"

namespace datafusion::planex {
namespace {

using Point = cmnalg::Vec<2, double>;
using PointList = etl::Vector<Point>;

constexpr double kMostPoints = 1 << 22;
constexpr std::int64_t kBlock = 65536;  // points mapped at a time

/// The places 0, step, 2 step, ... and the last one of a side of the sensor.
struct Places {
  std::int64_t last, step;

  Places(int size, int step_) : last(size - 1), step(step_) {}
  std::int64_t count() const { return (last + step - 1) / step + 1; }
  double at(std::int64_t i) const { return static_cast<double>(std::min(i * step, last)); }
};

void include(const Point& at, const Point& a, const Point& b, ModelDifference& sum,
             double& squares) {
  const bool finiteA = std::isfinite(a.x) && std::isfinite(a.y);
  const bool finiteB = std::isfinite(b.x) && std::isfinite(b.y);
  if (finiteA != finiteB) ++sum.unmatched;
  if (!finiteA || !finiteB) return;
  const double distance = std::hypot(b.x - a.x, b.y - a.y);
  squares += distance * distance;
  if (sum.points++ > 0 && !(distance > sum.largest)) return;
  sum.largest = distance;
  sum.pixel = at;
  sum.worldA = a;
  sum.worldB = b;
}

}  // namespace

int differenceStep(const cmnalg::Vec<2, std::int32_t>& sensorSize) {
  const base::DefaultFloatEnvironment environment;
  const double pixels = static_cast<double>(sensorSize.x) * sensorSize.y;
  const double longest = std::max(sensorSize.x, sensorSize.y);  // of sensors that are but a line
  return static_cast<int>(
      std::ceil(std::max({std::sqrt(pixels / kMostPoints), longest / kMostPoints, 1.0})));
}

bool compareModels(const CalibrationModel& a, const CalibrationModel& b, CoordinateSystem system,
                   int step, ModelDifference& difference,
                   const std::function<void(std::int64_t)>& advance) {
  const base::DefaultFloatEnvironment environment;
  constexpr const char* kLogger = "Image.Planex.Model";
  if (a.SensorSize != b.SensorSize) {
    return base::refuse(kLogger, "The models have sensors of different sizes.");
  }
  if (a.SensorSize.x < 1 || a.SensorSize.y < 1 || step < 1) {
    return base::refuse(kLogger, "The sensor has no size, or the step is below 1.");
  }
  const Places columns(a.SensorSize.x, step), rows(a.SensorSize.y, step);
  ModelDifference sum;
  double squares = 0;
  PointList pixels, worldA, worldB;
  for (std::int64_t row = 0; row < rows.count(); ++row) {
    for (std::int64_t column = 0; column < columns.count();) {
      pixels.clear();
      const std::int64_t end = std::min(column + kBlock, columns.count());
      for (; column < end; ++column) pixels.push_back({columns.at(column), rows.at(row)});
      if (!mapPoints<double>(a, pixels, worldA, CoordinateSystem::Pixel, system) ||
          !mapPoints<double>(b, pixels, worldB, CoordinateSystem::Pixel, system)) {
        return false;
      }
      for (std::size_t i = 0; i < pixels.size(); ++i) {
        include(pixels[i], worldA[i], worldB[i], sum, squares);
      }
      if (advance) advance(static_cast<std::int64_t>(pixels.size()));
    }
  }
  sum.rms = std::sqrt(squares / static_cast<double>(sum.points));
  difference = sum;
  return true;
}

}  // namespace datafusion::planex
