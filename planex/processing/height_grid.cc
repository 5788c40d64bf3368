#include "planex/processing/height_grid.h"

#include <cmath>
#include <limits>

#include "planex/infra/float_environment.h"

namespace datafusion::planex {
namespace {

bool isConsistent(const GridAxis& axis) {
  return std::isfinite(axis.scale) && axis.scale >= 0.0 && std::isfinite(axis.origin);
}

}  // namespace

GridAxis sampleAxis(double first, double last, std::int64_t count) {
  const base::DefaultFloatEnvironment environment;
  return {(last - first) / static_cast<double>(count - 1), first};
}

GridAxis levelAxis(double first, double last, std::int64_t levels) {
  const base::DefaultFloatEnvironment environment;
  const double scale = sampleAxis(first, last, levels - 1).scale;
  return {scale, first - scale};
}

bool HeightGrid::IsConsistent() const {
  const base::DefaultFloatEnvironment environment;
  return width >= 1 && height >= 1 &&
         std::int64_t{width} * height <= std::numeric_limits<std::int32_t>::max() &&
         isConsistent(x) && isConsistent(levels);
}

}  // namespace datafusion::planex
