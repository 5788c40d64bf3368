#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/report/canvas.h"

namespace planex::report {

/// A frame of a camera, and the line that was found in it.
struct FrameView {
  int columns = 0, rows = 0;
  std::vector<std::uint8_t> levels;  ///< row by row
  std::vector<double> line;          ///< row of the line in each column; NaN without
  bool alongRows = true;             ///< else the line has a column in each row
};

/// A picture of a frame in grey, with what is clipped in blue and the line in red. Of frames of
/// more than 1600 columns or rows it shows every second pixel, third pixel, and so on.
std::string drawFrame(const FrameView& view, PictureFormat format);

}  // namespace planex::report
