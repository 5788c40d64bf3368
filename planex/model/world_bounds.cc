#include "planex/model/world_bounds.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "planex/infra/containers.h"
#include "planex/infra/float_environment.h"
#include "planex/model/coordinate_system.h"
#include "planex/model/point_mapping.h"
#include "planex/model/spacing_fit.h"

namespace datafusion::planex {
namespace {

using PointList = etl::Vector<cmnalg::Vec<3, double>>;

constexpr int kBlock = 4096;                   // samples of a run mapped at a time
constexpr double kMaxRangeCount = 16777216.0;  // 2^24

/// Maps samples of range images to world coordinates and includes them in the bounds.
class WorldSampler {
 public:
  WorldSampler(const CalibrationModel& model, const SensorRegion& region, WorldBounds& bounds)
      : model_(model), region_(region), bounds_(bounds) {}

  /// Maps the samples (column, value) = sampleAt(i) for i in [begin, end), one block at most.
  /// Without samples it tells all the same whether the model can be mapped.
  template <typename SampleAt>
  bool map(std::int64_t begin, std::int64_t end, SampleAt sampleAt, PointList& points) {
    points.clear();
    for (std::int64_t i = begin; i < std::min(end, begin + kBlock); ++i) {
      const cmnalg::Vec<2, double> sample = sampleAt(static_cast<double>(i));
      points.push_back({region_.scaleX * sample.x + region_.originX, 0.0,
                        region_.scaleZ * sample.y + region_.originZ});
    }
    if (!mapPoints<double>(model_, points, points, CoordinateSystem::Pixel,
                           CoordinateSystem::Calibrated, 0.0, 1.0)) {
      return false;
    }
    for (const cmnalg::Vec<3, double>& point : points) {
      bounds_.x.Include(point.x);
      bounds_.z.Include(point.z);
    }
    return true;
  }

  /// One range value over all columns.
  bool mapRow(double value, std::int64_t columns) {
    const auto sampleAt = [value](double i) { return cmnalg::Vec<2, double>{i, value}; };
    PointList points;
    std::int64_t begin = 0;
    do {
      if (!map(begin, columns, sampleAt, points)) return false;
      begin += kBlock;
    } while (begin < columns);
    return true;
  }

  /// A part of one column. Starts at 1: range value 0 means that nothing was measured.
  bool mapColumn(double column, int begin, int rangeCount, PointList& points) {
    return map(
        begin, rangeCount,
        [column](double i) {
          return cmnalg::Vec<2, double>{column, 1.0 + i};
        },
        points);
  }

 private:
  const CalibrationModel& model_;
  const SensorRegion& region_;
  WorldBounds& bounds_;
};

/// The first, last and middle column, and the distance of the outer two.
bool mapColumns(WorldSampler& sampler, double last, int rangeCount, SpacingFit& spacing) {
  PointList first, end, middle;
  for (int begin = 0; begin < rangeCount; begin += kBlock) {
    if (!sampler.mapColumn(0.0, begin, rangeCount, first) ||
        !sampler.mapColumn(last, begin, rangeCount, end) ||
        !sampler.mapColumn(last * 0.5, begin, rangeCount, middle)) {
      return false;
    }
    for (std::size_t i = 0; i < middle.size(); ++i) {
      spacing.Add(end[i].x - first[i].x, end[i].z - first[i].z, middle[i].z);
    }
  }
  return true;
}

}  // namespace

WorldBoundsResult calculateWorldBounds(const CalibrationModel& model, const SensorRegion& region,
                                       int columns, WorldBounds& bounds) {
  const base::DefaultFloatEnvironment environment;
  if (!isOnSensor(model, region)) return WorldBoundsResult::OutsideSensor;
  const double rMax = lastRangeValue(region);
  if (!(std::isfinite(rMax) && std::trunc(rMax) <= kMaxRangeCount)) {
    return WorldBoundsResult::InvalidRangeValues;
  }
  const int rangeCount = static_cast<int>(std::max(rMax, 0.0));
  const double last = columns - 1.0;

  WorldBounds found;
  WorldSampler sampler(model, region, found);
  SpacingFit spacing(last);
  if (!sampler.mapRow(1.0, columns) || !sampler.mapRow(rMax, columns) ||
      !mapColumns(sampler, last, rangeCount, spacing)) {
    return WorldBoundsResult::NotMappable;
  }
  found.lateralSpacing = {2.0, (found.x.max - found.x.min) / last};
  spacing.Solve(found.lateralSpacing.x, found.lateralSpacing.y);
  bounds = found;
  return WorldBoundsResult::Calculated;
}

}  // namespace datafusion::planex
