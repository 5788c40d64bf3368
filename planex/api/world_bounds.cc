#include "planex/api/world_bounds.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "planex/api/calibration_exception.h"
#include "planex/api/sensor_traits_check.h"
#include "planex/foundation/line_fit.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/model/coordinate_system.h"
#include "planex/model/point_mapping.h"

namespace tavik::planex {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using Point = cmnalg::Vec<3, double>;
using PointList = etl::Vector<Point>;

constexpr int kBlock = 4096;                   // samples mapped at a time
constexpr double kMaxRangeCount = 16777216.0;  // 2^24

/// A straight run of samples of the range image, in steps of one column or one range value.
struct SampleRun {
  double column, row, value;  // the first sample
  double columnStep, valueStep;
  int count;
};

SampleRun outline(ImageSize size, double row, double value) {
  return {0.0, row, value, 1.0, 0.0, size.width};
}

/// Starts at 1: range value 0 means that nothing was measured.
SampleRun column(double at, double row, int rangeCount) {
  return {at, row, 1.0, 0.0, 1.0, rangeCount};
}

/// Samples of runs in world coordinates.
class WorldSampler {
 public:
  WorldSampler(const CalibrationModel& model, SensorTraits traits)
      : model_(model), traits_(traits) {}

  /// Replaces `points` by the samples of `run` from number `begin` on, one block at most.
  void map(const SampleRun& run, int begin, PointList& points) const {
    points.clear();
    for (int i = begin; i < std::min(run.count, begin + kBlock); ++i) {
      const double c = run.column + i * run.columnStep;
      const double r = run.value + i * run.valueStep;
      points.push_back(
          {traits_.scaleX * c + traits_.originX, run.row, traits_.scaleZ * r + traits_.originZ});
    }
    const bool mapped = datafusion::planex::mapPoints<double>(
        model_, points, points, CoordinateSystem::Pixel, CoordinateSystem::Calibrated, 0.0, 1.0);
    CalibrationException::throwUnless(mapped,
                                      "The sensor region could not be mapped to world coordinates");
  }

 private:
  const CalibrationModel& model_;
  SensorTraits traits_;
};

struct Interval {
  double min = std::numeric_limits<double>::infinity();
  double max = -std::numeric_limits<double>::infinity();

  /// A NaN changes nothing.
  void include(double value) {
    if (value < min) min = value;
    if (value > max) max = value;
  }
};

struct Box {
  Interval x, y, z;

  void include(const Point& point) {
    x.include(point.x);
    y.include(point.y);
    z.include(point.z);
  }
};

/// Maps at least one block, if an empty one: a model that cannot be mapped is refused in any case.
void include(Box& box, const WorldSampler& sampler, const SampleRun& run) {
  PointList points;
  int begin = 0;
  do {
    sampler.map(run, begin, points);
    for (const Point& point : points) box.include(point);
    begin += kBlock;
  } while (begin < run.count);
}

/// The distance of neighbouring points over Z, from three columns of row 0.
cmnalg::math::LineFit fitSpacing(const WorldSampler& sampler, ImageSize size, int rangeCount) {
  const int last = size.width - 1;
  cmnalg::math::LineFit fit;
  PointList first, end, middle;
  for (int begin = 0; begin < rangeCount; begin += kBlock) {
    sampler.map(column(0.0, 0.0, rangeCount), begin, first);
    sampler.map(column(last, 0.0, rangeCount), begin, end);
    sampler.map(column(last * 0.5, 0.0, rangeCount), begin, middle);
    for (std::size_t i = 0; i < middle.size(); ++i) {
      const double dx = end[i].x - first[i].x;
      const double dz = end[i].z - first[i].z;
      fit.Add(middle[i].z, std::sqrt(dx * dx + dz * dz) / last);
    }
  }
  return fit;
}

/// trunc(rMax) where that is a number of samples that can be worked through.
int rangeCountOf(double rMax) {
  CalibrationException::throwUnless(std::isfinite(rMax) && std::trunc(rMax) <= kMaxRangeCount,
                                    kInvalidScaleMessage);
  return std::max(static_cast<int>(rMax), 0);
}

}  // namespace

void calculateCalibrationBoundsModel(const CalibrationModel& model, SensorTraits traits,
                                     ImageSize size, WorldRangeTraits& bounds,
                                     SplatSettings& splatSettings) {
  checkSensorTraitsConsistent(model, traits, size);
  const double rMax = traits.height / std::abs(traits.scaleZ) - 1;
  const int rangeCount = rangeCountOf(rMax);
  const int lastColumn = size.width - 1;
  const int lastRow = size.height - 1;

  const WorldSampler sampler(model, traits);
  Box box;
  for (const SampleRun& run :
       {outline(size, 0.0, 1.0), outline(size, 0.0, rMax), outline(size, lastRow, 1.0),
        outline(size, lastRow, rMax), column(0.0, 0.0, rangeCount),
        column(0.0, lastRow, rangeCount), column(lastColumn, 0.0, rangeCount),
        column(lastColumn, lastRow, rangeCount), column(lastColumn * 0.5, 0.0, rangeCount)}) {
    include(box, sampler, run);
  }

  SplatSettings splat = {2.0, (box.x.max - box.x.min) / lastColumn, 1.0};
  static_cast<void>(fitSpacing(sampler, size, rangeCount).Solve(splat.splatA, splat.splatB));

  bounds = {box.x.min,   box.x.max, size.width, box.y.min, box.y.max,
            size.height, box.z.min, box.z.max,  65536};
  splatSettings = splat;
}

RangeTransform transformOf(const WorldRangeTraits& traits) {
  const auto steps = [](std::uint32_t count, int without) {
    return static_cast<double>(std::int64_t{static_cast<std::int32_t>(count)} - without);
  };
  RangeTransform transform;
  transform.scaleX = (traits.xMax - traits.xMin) / steps(traits.xCount, 1);
  transform.originX = traits.xMin;
  transform.scaleY = (traits.yMax - traits.yMin) / steps(traits.yCount, 1);
  transform.originY = traits.yMin;
  transform.scaleZ = (traits.zMax - traits.zMin) / steps(traits.zLevels, 2);
  transform.originZ = traits.zMin - transform.scaleZ;
  return transform;
}

}  // namespace tavik::planex
