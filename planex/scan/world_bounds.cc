#include "planex/scan/world_bounds.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/io/failure.h"
#include "planex/io/library_warnings.h"
#include "planex/model/coordinate_system.h"
#include "planex/model/point_mapping.h"

namespace planex::scan {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using Points = etl::Vector<cmnalg::Vec<3, double>>;

constexpr int kBlock = 4096;                   // samples mapped at a time
constexpr double kMaxRangeCount = 16777216.0;  // 2^24
constexpr int kLevels = 65536;

/// Maps samples of the range image, (column, range value), to calibrated coordinates.
class Sampler {
 public:
  Sampler(const CalibrationModel& model, const SensorTraits& traits, const std::string& modelName)
      : model_(model), traits_(traits), modelName_(modelName) {}

  void clear() { samples_.clear(); }
  void add(double column, double value) {
    samples_.push_back(
        {traits_.scaleX * column + traits_.originX, 0.0, traits_.scaleZ * value + traits_.originZ});
  }
  const Points& map() {
    if (!datafusion::planex::mapPoints<double>(model_, samples_, samples_, CoordinateSystem::Pixel,
                                               CoordinateSystem::Calibrated, 0.0, 1.0)) {
      io::failWithLibraryWarnings(modelName_, "does not map pixels to the laser plane",
                                  "see planex check");
    }
    return samples_;
  }

 private:
  const CalibrationModel& model_;
  const SensorTraits traits_;
  const std::string& modelName_;
  Points samples_;
};

void include(WorldBounds& bounds, const Points& points) {
  for (const cmnalg::Vec<3, double>& p : points) {  // a comparison with NaN is false
    if (p.x < bounds.xMin) bounds.xMin = p.x;
    if (p.x > bounds.xMax) bounds.xMax = p.x;
    if (p.z < bounds.zMin) bounds.zMin = p.z;
    if (p.z > bounds.zMax) bounds.zMax = p.z;
  }
}

/// Sums of the normal equations for d = a z + b.
struct LineSums {
  double n = 0, z = 0, zz = 0, d = 0, dz = 0;

  void add(double zi, double di) {
    n += 1;
    z += zi;
    zz += zi * zi;
    d += di;
    dz += di * zi;
  }

  void solve(SplatSettings& splat) const {
    const double det = n * zz - z * z;
    if (!(std::abs(det) > 0.001)) return;
    splat.splatA = (n * dz - z * d) / det;
    splat.splatB = (zz * d - z * dz) / det;
  }
};

/// The rows of the outline, value 1 and the last one.
void includeOutline(WorldBounds& bounds, Sampler& sampler, int columns, double value) {
  for (int begin = 0; begin < columns; begin += kBlock) {
    sampler.clear();
    for (int i = begin; i < std::min(columns, begin + kBlock); ++i) sampler.add(i, value);
    include(bounds, sampler.map());
  }
}

/// The first, middle and last column, and the distance of the outer two over Z.
LineSums includeColumns(WorldBounds& bounds, Sampler& sampler, int columns, int rangeCount) {
  LineSums sums;
  const int last = columns - 1;
  for (int begin = 0; begin < rangeCount; begin += kBlock) {
    sampler.clear();
    for (int i = begin; i < std::min(rangeCount, begin + kBlock); ++i) {
      for (const double column : {0.0, last * 0.5, static_cast<double>(last)}) {
        sampler.add(column, 1.0 + i);
      }
    }
    const Points& points = sampler.map();
    include(bounds, points);
    for (std::size_t i = 0; i + 2 < points.size(); i += 3) {
      const double dx = points[i + 2].x - points[i].x;
      const double dz = points[i + 2].z - points[i].z;
      sums.add(points[i + 1].z, std::sqrt(dx * dx + dz * dz) / last);
    }
  }
  return sums;
}

double signOf(double value) { return value > 0 ? 1 : value < 0 ? -1 : 0; }

bool inside(double origin, double size, double scale, double limit) {
  const double end = origin + size * signOf(scale);
  return origin >= 0 && origin <= limit && end >= 0 && end <= limit;
}

}  // namespace

void checkSensorRegion(const CalibrationModel& model, const SensorTraits& traits,
                       const std::string& modelName) {
  if (inside(traits.originX, traits.width, traits.scaleX, model.SensorSize.x) &&
      inside(traits.originZ, traits.height, traits.scaleZ, model.SensorSize.y)) {
    return;
  }
  throw io::Failure(modelName,
                    "its sensor of " + std::to_string(model.SensorSize.x) + " x " +
                        std::to_string(model.SensorSize.y) +
                        " pixels does not hold the sensor region; correct --origin-x, --origin-z, "
                        "--sensor-width and --sensor-height");
}

WorldBounds worldBounds(const CalibrationModel& model, const SensorTraits& traits, int columns,
                        const std::string& modelName) {
  checkSensorRegion(model, traits, modelName);
  const double lastValue = traits.height / std::abs(traits.scaleZ) - 1;
  if (!(std::trunc(lastValue) <= kMaxRangeCount)) {
    throw io::Failure(modelName, "its sensor region has too many range values; correct --scale-z");
  }
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  WorldBounds bounds{kInfinity, -kInfinity, kInfinity, -kInfinity, {}};
  Sampler sampler(model, traits, modelName);
  includeOutline(bounds, sampler, columns, 1.0);
  includeOutline(bounds, sampler, columns, lastValue);
  const LineSums sums =
      includeColumns(bounds, sampler, columns, std::max(static_cast<int>(lastValue), 0));
  bounds.splat = {2.0, (bounds.xMax - bounds.xMin) / (columns - 1), 1.0};
  sums.solve(bounds.splat);
  return bounds;
}

ValueTransform valueTransformOf(double zMin, double zMax) {
  const double scale = (zMax - zMin) / (kLevels - 2);
  return {scale, zMin - scale};
}

}  // namespace planex::scan
