#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/io/raster.h"
#include "planex/report/axes.h"

namespace planex::report {

/// Where the cells of a height map lie, and what its levels mean.
struct MapGrid {
  int columnCount = 1, rowCount = 1;
  io::Axis columns, rows;      ///< at the centres of cells
  io::Axis heights;            ///< of a level; 0 is no measurement
  bool rowsAreLengths = true;  ///< else rows are numbered, and drawn as far apart as columns
  std::string unit;
};

/// How a height map is to look.
struct HeightStyle {
  const ColorMap* colors = ColorMap::find("viridis");
  bool shade = false;  ///< as if lit from the upper left, which shows what is steep
};

/// A picture of a height map in colours, with axes, legend and scale bar.
///
/// Cells are true to scale. The map takes at most kMostPixels in each direction, and of larger maps
/// some cells are shown; small ones are enlarged. Colours spread over the heights but for a few at
/// both ends, so that single faulty points do not take the colours from all others.
class HeightPicture {
 public:
  static constexpr int kMostPixels = 1400;

  explicit HeightPicture(const MapGrid& grid);

  /// Looks at the next rows of the map, which come in order.
  void addRows(int count, const std::uint16_t* levels);

  /// The bytes of the picture's file.
  std::string draw(const HeightStyle& style, PictureFormat format) const;

 private:
  ColorScale scaleOf(const ColorMap& colors) const;
  std::vector<Color> pixels(const ColorScale& scale, bool shade) const;
  double shadeAt(int x, int y, double steepness) const;
  Axes axesIn(const Box& area) const;
  double heightOf(double level) const { return level * grid_.heights.scale + grid_.heights.origin; }
  std::uint16_t levelAt(int x, int y) const {
    return levels_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                   static_cast<std::size_t>(x)];
  }

  const MapGrid grid_;
  double pixelSize_;   // in the unit
  double columnStep_;  // cells of a row from one pixel to the next
  double rowStep_;     // rows likewise
  int width_, height_;
  std::vector<std::uint16_t> levels_;
  int nextRow_ = 0;   // of the map
  int nextLine_ = 0;  // of the picture
};

}  // namespace planex::report
