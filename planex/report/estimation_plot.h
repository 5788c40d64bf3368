#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "planex/report/axes.h"

namespace planex::report {

/// A closed line with a name in the legend.
struct Outline {
  std::string name;
  std::vector<Point> corners;  ///< fewer than three: not drawn
  Color color = kInk;
};

/// A number for places all over a sensor. Points are columns and rows, rows downwards.
struct SensorMap {
  double width = 1, height = 1;  ///< of the sensor in pixels
  int columns = 2, rows = 2;     ///< of places, at equal distances, in the corners the outer ones
  std::vector<double> values;    ///< row by row; what is not finite is missing
  std::string title;             ///< of the colours
  double most = 0;               ///< colours end there at the latest, if it is above 0
  Outline measured;              ///< the part that counts
};

/// A picture of kEstimationWidth pixels width: colours, some of the numbers, and a bar of the
/// colours.
Drawing drawSensorMap(const SensorMap& map);

/// A displacement at a place of a figure.
struct Arrow {
  Point at;  ///< in the figure, where the arrow begins
  Point by;  ///< along its axes, in a unit of its own
};

/// Small displacements over an area, all enlarged alike.
struct ArrowFigure {
  Range x, y;
  std::string unit;           ///< of displacements
  std::vector<Arrow> arrows;  ///< those not finite are left out
  std::vector<Point> crosses;
  std::string crossName;
  std::vector<Outline> outlines;
};

/// A picture of kEstimationWidth pixels width, with an arrow that tells the scale.
Drawing drawArrows(const ArrowFigure& figure);

/// Pixels.
inline constexpr double kEstimationWidth = 900;

/// Chooses some of many places, evenly spread: of each cell of a grid the one nearest its middle.
class EvenChoice {
 public:
  /// @param most of what is chosen; fewer are all chosen
  EvenChoice(double width, double height, std::size_t most);

  /// Offers the next place, of the sensor's pixels.
  void offer(Point at);
  /// Which of those offered were chosen, counted from 0; growing.
  std::vector<std::size_t> chosen() const;

 private:
  struct Candidate {
    std::size_t place = 0;
    double distance = 0;  // squared, in cells, from the middle
  };

  double width_, height_;
  std::size_t most_, columns_, rows_;
  std::size_t offered_ = 0;
  std::vector<std::optional<Candidate>> cells_;
};

}  // namespace planex::report
