#pragma once

#include <string>
#include <vector>

#include "planex/report/axes.h"

namespace planex::report {

/// Colours of lines and dots that people with all kinds of colour vision tell apart.
inline constexpr Color kBlue{0, 92, 158}, kVermilion{204, 82, 0}, kGreen{0, 135, 100},
    kGrey{173, 180, 188};

/// Numbers of one kind in a plot: lines, or a dot for each.
struct Series {
  std::string name;  ///< in the legend; none for an empty name
  Color color = kBlue;
  std::vector<std::vector<Point>> lines;
  double width = 1.5;  ///< of lines in pixels; 0: none
  double radius = 0;   ///< of dots; 0: none
};

/// A text beside a point.
struct Note {
  Point at;
  std::string text;
  Color color = kInk;
};

/// Lines and dots over axes.
struct Plot {
  std::string title, xTitle, yTitle;
  std::vector<Series> series;  ///< later ones are drawn over earlier ones
  std::vector<Note> notes;
  Point least{0, 0}, most{1, 1};  ///< what is to be seen of the plane, at least
  bool trueToScale = false;       ///< a unit is as long in both directions

  /// Draws into the box, with room for titles, legend and numbers inside of it.
  /// @return the axes, for what else is to be drawn
  Axes draw(Canvas& canvas, const Box& box) const;
};

}  // namespace planex::report
