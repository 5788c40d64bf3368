#include "planex/report/profile_plot.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "planex/report/plot.h"

namespace planex::report {

std::string drawProfile(const scan::Profile& profile, const std::string& title,
                        const std::string& unit, PictureFormat format) {
  constexpr double kWidth = 1200, kHeight = 600, kMargin = 24;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  Plot plot;
  plot.title = title;
  plot.xTitle = titleWithUnit("X", unit);
  plot.yTitle = titleWithUnit("Z", unit);
  plot.least = {kInfinity, kInfinity};
  plot.most = {-kInfinity, -kInfinity};
  std::vector<Point> points;
  points.reserve(profile.z.size());
  for (std::size_t i = 0; i < profile.z.size(); ++i) {
    const Point point{profile.x[i], profile.z[i]};
    points.push_back(point);  // one without Z interrupts the line
    if (!std::isfinite(point.x) || !std::isfinite(point.y)) continue;
    plot.least = {std::min(plot.least.x, point.x), std::min(plot.least.y, point.y)};
    plot.most = {std::max(plot.most.x, point.x), std::max(plot.most.y, point.y)};
  }
  plot.series = {{"", kBlue, {points}, 1, 1.2}};
  Canvas canvas(kWidth, kHeight, format);
  plot.draw(canvas, {kMargin, kMargin, kWidth - 2 * kMargin, kHeight - 2 * kMargin});
  return canvas.finish();
}

}  // namespace planex::report
