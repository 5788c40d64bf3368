#pragma once

#include <cstdint>

#include "planex/api/records.h"
#include "planex/model/sensor_region.h"
#include "planex/processing/height_grid.h"

namespace tavik::planex {

// The records of the C interface as the classes take them.

inline datafusion::planex::SensorRegion regionOf(const SensorTraits& traits) {
  return {traits.scaleX,  traits.originX, traits.scaleZ,
          traits.originZ, traits.width,   traits.height};
}

/// Counts are taken as signed numbers.
inline std::int32_t signedCount(std::uint32_t count) { return static_cast<std::int32_t>(count); }

inline datafusion::planex::GridAxis columnsOf(const WorldRangeTraits& traits) {
  return datafusion::planex::sampleAxis(traits.xMin, traits.xMax, signedCount(traits.xCount));
}
inline datafusion::planex::GridAxis rowsOf(const WorldRangeTraits& traits) {
  return datafusion::planex::sampleAxis(traits.yMin, traits.yMax, signedCount(traits.yCount));
}
inline datafusion::planex::GridAxis levelsOf(const WorldRangeTraits& traits) {
  return datafusion::planex::levelAxis(traits.zMin, traits.zMax, signedCount(traits.zLevels));
}

/// Not consistent where no height map can be of that size and scale.
inline datafusion::planex::HeightGrid gridOf(const WorldRangeTraits& traits) {
  return {signedCount(traits.xCount), signedCount(traits.yCount), columnsOf(traits),
          levelsOf(traits)};
}

}  // namespace tavik::planex
