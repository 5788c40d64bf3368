#pragma once

#include <algorithm>
#include <cmath>

#include "planex/report/canvas.h"

namespace planex::report {

/// Cuts the line from a to b off where it leaves the box (Liang and Barsky): Cairo's coordinates
/// end at some eight million. False when nothing is left.
inline bool clipTo(const Box& box, Point& a, Point& b) {
  const Point start = a;
  const double dx = b.x - a.x, dy = b.y - a.y;
  double enter = 0, leave = 1;
  const auto cut = [&](double direction, double distance) {
    if (direction == 0) return distance >= 0;
    const double at = distance / direction;
    if (direction < 0) enter = std::max(enter, at);
    if (direction > 0) leave = std::min(leave, at);
    return enter <= leave;
  };
  if (!std::isfinite(dx) || !std::isfinite(dy) || !cut(-dx, a.x - box.left) ||
      !cut(dx, box.right() - a.x) || !cut(-dy, a.y - box.top) || !cut(dy, box.bottom() - a.y)) {
    return false;
  }
  if (leave < 1) b = {start.x + leave * dx, start.y + leave * dy};
  if (enter > 0) a = {start.x + enter * dx, start.y + enter * dy};
  return true;
}

}  // namespace planex::report
