#include "planex/model/shape_mapping.h"

#include <limits>
#include <utility>

#include "planex/foundation/interval.h"
#include "planex/infra/float_environment.h"
#include "planex/model/outline_sampling.h"
#include "planex/model/point_mapping.h"

namespace datafusion::planex {

using cmnalg::Vec;
using cmnalg::shape::Polyline;
using cmnalg::shape::Rectangle;
using cmnalg::shape3d::Box;

bool mapBox(const CalibrationModel& model, const Box& box, etl::Vector<Vec<3, double>>& points,
            CoordinateSystem from, CoordinateSystem to, const double& yOffset, const double& yScale,
            int supersampling) {
  const base::DefaultFloatEnvironment environment;
  etl::Vector<Vec<3, double>> samples;
  if (!sampleBox(box, supersampling, samples)) return false;
  if (!mapPoints<double>(model, samples, samples, from, to, yOffset, yScale)) return false;
  points = std::move(samples);
  return true;
}

bool mapBox(const CalibrationModel& model, const Box& box, Vec<3, double>& min, Vec<3, double>& max,
            CoordinateSystem from, CoordinateSystem to, const double& yOffset, const double& yScale,
            int supersampling) {
  const base::DefaultFloatEnvironment environment;
  etl::Vector<Vec<3, double>> points;
  if (!mapBox(model, box, points, from, to, yOffset, yScale, supersampling)) return false;
  const Vec<3, double>& first = points.front();
  cmnalg::math::Interval x{first.x, first.x}, y{first.y, first.y}, z{first.z, first.z};
  for (const Vec<3, double>& point : points) {
    x.Include(point.x);
    y.Include(point.y);
    z.Include(point.z);
  }
  min = {x.min, y.min, z.min};
  max = {x.max, y.max, z.max};
  return true;
}

bool mapBox(const CalibrationModel& model, const Box& box, Box& out, CoordinateSystem from,
            CoordinateSystem to, const double& yOffset, const double& yScale, int supersampling) {
  Vec<3, double> min;
  Vec<3, double> max;
  if (!mapBox(model, box, min, max, from, to, yOffset, yScale, supersampling)) return false;
  out = Box::FromCorners(min, max);
  return true;
}

bool mapRectangle(const CalibrationModel& model, const Rectangle& rectangle, Polyline& out,
                  CoordinateSystem from, CoordinateSystem to, int supersampling) {
  const base::DefaultFloatEnvironment environment;
  etl::Vector<Vec<2, double>> samples;
  if (!sampleRectangle(rectangle, supersampling, samples)) return false;
  if (!mapPoints<double>(model, samples, samples, from, to)) return false;
  out.Points = std::move(samples);
  return true;
}

bool mapRectangle(const CalibrationModel& model, const Rectangle& rectangle, Rectangle& out,
                  CoordinateSystem from, CoordinateSystem to, int supersampling) {
  Polyline outline;
  if (!mapRectangle(model, rectangle, outline, from, to, supersampling)) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    out.Center = {kNan, kNan};
    return false;
  }
  out = outline.GetBoundingBox();
  return true;
}

}  // namespace datafusion::planex
