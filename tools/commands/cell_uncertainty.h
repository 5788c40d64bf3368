#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/commands/rectify_options.h"
#include "tools/commands/uncertain_points.h"

namespace planex::tools {

/// Uncertainties of the cells of a height map. A cell leads back from its place in the map, through
/// the pose where the map is aligned, to the place of the sensor that sees it.
class CellUncertainty {
 public:
  /// @param source outlives the object, and has an uncertainty
  /// @param grid   the columns and levels of the map
  /// @param y      its rows
  CellUncertainty(const RectifyOptions& options, const MapSource& source,
                  const datafusion::planex::HeightGrid& grid, const io::Axis& y);

  /// The uncertainties of the next rows.
  /// @param levels  of the heights; 0 stands for none
  /// @param heights in floats, as the map has them; null: the map has the levels
  const UncertaintyLayers& next(int rows, const std::uint16_t* levels, const float* heights);

 private:
  using Place = cmnalg::Vec<2, double>;
  void map(std::size_t first, std::size_t end);

  const MapSource& source_;
  const datafusion::planex::HeightGrid grid_;
  const io::Axis y_;
  const PlaneTurn turn_;
  const bool aligned_;
  const std::string& modelName_;
  int row_ = 0;
  std::vector<std::size_t> cells_;  // of those that have a height
  std::vector<cmnalg::Vec<3, double>> points_;
  std::vector<Place> places_;
  UncertaintyLayers layers_;
};

}  // namespace planex::tools
