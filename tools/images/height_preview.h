#pragma once

#include <planex/io/output_file.h>
#include <planex/io/raster.h>

#include <cstdint>
#include <string>
#include <vector>

namespace planex::tools {

/// A picture of a height map in false colours, with legend and scale bar.
///
/// It is true to scale, at most kMostPixels wide and high; of larger maps it shows some cells.
class HeightPreview {
 public:
  static constexpr int kMostPixels = 1400;

  /// @param rows the distance of rows; `squareCells`: not known, take that of columns
  HeightPreview(int columnCount, int rowCount, const io::Axis& columns, const io::Axis& rows,
                bool squareCells);

  /// Looks at the next rows of the map, which come in order.
  void addRows(int count, const std::uint16_t* heights);

  /// Draws the picture; the caller commits.
  void write(io::OutputFile& file, const io::Axis& values, const std::string& unit) const;

 private:
  const int columnCount_;
  double columnStep_;  // cells of a row from one pixel to the next
  double rowStep_;     // rows likewise
  double pixelSize_;   // in the unit
  int width_, height_;
  std::vector<std::uint16_t> levels_;
  int nextRow_ = 0;   // of the map
  int nextLine_ = 0;  // of the picture
};

}  // namespace planex::tools
