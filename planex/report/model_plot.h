#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "planex/report/plot.h"

namespace planex::report {

/// A number for each cell of a rectangle, such as residuals in the laser plane.
struct CellMap {
  std::string title;
  int columns = 0, rows = 0;
  Point least, most;           ///< the corners of the rectangle
  std::vector<double> values;  ///< row by row, the lowest first; NaN for cells without one
  std::string xTitle, yTitle;  ///< of the sides of the rectangle
  std::string unit;            ///< of the values
  std::string missing;         ///< what is said of cells without a value
  std::optional<std::pair<double, double>> range;  ///< of the colours; else that of the values
  bool trueToScale = true;                         ///< a unit is as long in both directions
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
  std::vector<Point> scan;                      ///< around what a scan measured, closed
};

/// The field of view, true to scale, without the title. @param width  pixels
Drawing drawView(const ModelFigure& figure, double width);

/// One map, or several, two beside each other.
/// @param colors  of values of one sign; others are shown diverging from 0
Drawing drawCells(const std::vector<CellMap>& maps, const ColorMap& colors, double width);

/// A picture of 1200 pixels width: the field of view, and below it the residuals.
Drawing drawModel(const ModelFigure& figure, const ColorMap& colors);

}  // namespace planex::report
