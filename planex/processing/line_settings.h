#pragma once

#include "planex/infra/export.h"

namespace datafusion::planex {

/// How the place of a line in a column is found.
enum class LineMethod {
  DERIVATIVE,         ///< zero crossing of a smooth derivative filter
  CENTRE_OF_GRAVITY,  ///< centre of gravity in a window that moves to its own result
};

/// Which line counts where a column sees several.
enum class LineChoice {
  STRONGEST,  ///< the one that outshines its surroundings most; the first of equal ones
  FIRST,      ///< that with the smallest row
  LAST,       ///< that with the greatest row
  NEAREST,    ///< the nearest to LineSettings::nearestRow; the first of equally near ones
};

/// Why a column has no point: values of the quality below kLeastConfidence.
enum class LineReason {
  NOTHING = 1,      ///< nothing outshines its surroundings by the threshold
  CUT = 2,          ///< the line reaches over the border of the frame, or of the searched rows
  TOO_WIDE = 3,     ///< wider than LineSettings::maximumWidth
  TOO_NARROW = 4,   ///< narrower than LineSettings::minimumWidth: hot pixels are 1 row wide
  NO_CROSSING = 5,  ///< the brightness has no middle
  FRAME_LOST = 6,   ///< the camera did not deliver the frame; extractLines() gives it to no column
};
constexpr int kLeastConfidence = 16;  ///< the quality of points is this to 255

/// How extractLines() looks for lines. Levels are the values of pixels; rows count from 0, at the
/// centre of the first row of the frame.
struct LineSettings {
  LineMethod method = LineMethod::DERIVATIVE;  ///< how the place is found
  double lineWidth = 5;                        ///< of the line at half height, in rows: 1 to 60
  double threshold = 0;                        ///< levels; 0: 4 % of fullScale
  double fullScale = 0;                        ///< greatest level, of clipped lines; 0: of the type
  LineChoice choice = LineChoice::STRONGEST;   ///< among several lines
  int nearestRow = 0;                          ///< for NEAREST
  int firstRow = 0;                            ///< of those that are searched
  int endRow = 0;                              ///< behind the last one; 0: all rows
  double minimumWidth = 1.2;                   ///< of lines at half height, in rows
  double maximumWidth = 0;                     ///< likewise, to 240 rows; 0: 4 lineWidth
  double gain = 0;       ///< variance of shot noise in levels^2 a level; for LineLayers::deviation
  double readNoise = 0;  ///< standard deviation of a dark pixel in levels; likewise
};

}  // namespace datafusion::planex
