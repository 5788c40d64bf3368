#pragma once

#include <string>
#include <vector>

#include "planex/report/plot.h"

namespace planex::report {

/// A number for each cell of a rectangle of the laser plane, such as residuals.
struct CellMap {
  std::string title;
  int columns = 0, rows = 0;
  Point least, most;           ///< the corners of the rectangle
  std::vector<double> values;  ///< row by row, the lowest first; NaN for cells without one
};

/// What is drawn of a model. X is to the right, Z up.
struct ModelFigure {
  std::string title;
  std::string unit;                             ///< of all lengths
  Point least, most;                            ///< the field of view
  std::vector<Point> border;                    ///< of the sensor, closed
  std::vector<std::vector<Point>> sensorLines;  ///< some rows and columns of it
  std::vector<Note> corners;                    ///< names of corners of the border
  std::vector<Point> region;                    ///< the border of the calibrated region, closed
  std::vector<CellMap> residuals;               ///< in that region
};

/// The bytes of a picture of 1200 pixels width: the field of view, and below it the residuals, two
/// beside each other, all true to scale.
/// @param colors  of residuals of one sign; others are shown diverging from 0
std::string drawModel(const ModelFigure& figure, const ColorMap& colors, PictureFormat format);

}  // namespace planex::report
