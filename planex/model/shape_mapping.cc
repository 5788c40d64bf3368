#include "planex/model/shape_mapping.h"

#include <algorithm>
#include <limits>
#include <utility>

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
  etl::Vector<Vec<3, double>> samples;
  if (!sampleBox(box, supersampling, samples)) return false;
  if (!mapPoints<double>(model, samples, samples, from, to, yOffset, yScale)) return false;
  points = std::move(samples);
  return true;
}

bool mapBox(const CalibrationModel& model, const Box& box, Vec<3, double>& min, Vec<3, double>& max,
            CoordinateSystem from, CoordinateSystem to, const double& yOffset, const double& yScale,
            int supersampling) {
  etl::Vector<Vec<3, double>> points;
  if (!mapBox(model, box, points, from, to, yOffset, yScale, supersampling)) return false;
  Vec<3, double> low = points.front();
  Vec<3, double> high = low;
  for (const Vec<3, double>& point : points) {
    low = {std::min(low.x, point.x), std::min(low.y, point.y), std::min(low.z, point.z)};
    high = {std::max(high.x, point.x), std::max(high.y, point.y), std::max(high.z, point.z)};
  }
  min = low;
  max = high;
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
