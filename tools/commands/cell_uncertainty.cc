#include "tools/commands/cell_uncertainty.h"

#include <planex/io/library_warnings.h>
#include <planex/model/point_mapping.h>

namespace planex::tools {

using datafusion::planex::CoordinateSystem;

CellUncertainty::CellUncertainty(const RectifyOptions& options, const MapSource& source,
                                 const datafusion::planex::HeightGrid& grid, const io::Axis& y)
    : source_(source),
      grid_(grid),
      y_(y),
      turn_(PlaneTurn::of(source.scan.model, options.model, options.aligned)),
      aligned_(options.aligned),
      modelName_(options.model) {}

const UncertaintyLayers& CellUncertainty::next(int rows, const std::uint16_t* levels,
                                               const float* heights) {
  const auto width = static_cast<std::size_t>(grid_.width);
  const std::size_t count = static_cast<std::size_t>(rows) * width;
  cells_.clear();
  points_.clear();
  for (std::size_t cell = 0; cell < count; ++cell) {
    if (levels[cell] == 0) continue;
    const std::size_t line = cell / width;
    const double level = levels[cell], row = row_ + static_cast<double>(line);
    const double z = heights != nullptr ? static_cast<double>(heights[cell])
                                        : grid_.levels.scale * level + grid_.levels.origin;
    cells_.push_back(cell);
    points_.push_back({grid_.x.scale * static_cast<double>(cell % width) + grid_.x.origin,
                       y_.scale * row + y_.origin, z});
  }
  row_ += rows;
  places_.resize(cells_.size());
  layers_.resize(count);
  map(0, cells_.size());
  return layers_;
}

/// Cells first ... end - 1 of those with a height.
void CellUncertainty::map(std::size_t first, std::size_t end) {
  const datafusion::planex::CalibrationModel& model = source_.scan.model;
  const std::size_t count = end - first;
  auto* const points = points_.data() + first;
  bool mapped = !aligned_ || datafusion::planex::mapPoints<double>(
                                 model, points, points, count, CoordinateSystem::Aligned,
                                 CoordinateSystem::Calibrated, 0, 1);
  for (std::size_t i = first; i < end; ++i) places_[i] = {points_[i].x, points_[i].z};
  auto* const places = places_.data() + first;
  mapped = mapped &&
           datafusion::planex::mapPoints<double>(
               model, places, places, count, CoordinateSystem::Calibrated, CoordinateSystem::Pixel);
  if (!mapped) {
    io::failWithLibraryWarnings(modelName_, "cannot lead cells back to the sensor",
                                "see planex check");
  }
  for (std::size_t i = first; i < end; ++i) {
    const PlaneCovariance covariance =
        turn_.apply(source_.uncertainty->at(places_[i].x, places_[i].y));
    layers_.set(cells_[i], covariance.xx, covariance.xz, covariance.zz);
  }
}

}  // namespace planex::tools
