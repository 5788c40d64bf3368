#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/model/model_difference.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"
#include "planex/model/world_bounds.h"

namespace planex_python {
namespace {

using cmnalg::Vec;
using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using datafusion::planex::ModelDifference;

/// The way that points take.
struct Way {
  CoordinateSystem from;
  CoordinateSystem to;
  double yOffset;
  double yScale;
};

template <typename T>
bool mapSome(const CalibrationModel& model, const Way& way, const Vec<2, T>* in, Vec<2, T>* out,
             std::size_t count) {
  return mapPoints(model, in, out, count, way.from, way.to);
}
template <typename T>
bool mapSome(const CalibrationModel& model, const Way& way, const Vec<3, T>* in, Vec<3, T>* out,
             std::size_t count) {
  return mapPoints(model, in, out, count, way.from, way.to, way.yOffset, way.yScale);
}

template <typename Point>
void mapAll(const CalibrationModel& model, const Way& way, const PointArray& in,
            const PointArray& out) {
  const auto* const from = reinterpret_cast<const Point*>(in.data);
  auto* const to = reinterpret_cast<Point*>(out.data);
  forEachBlock(in.count, kPixelsPerBlock / 2, 0, [&](std::int64_t first, int count) {
    return mapSome(model, way, from + first, to + first, static_cast<std::size_t>(count));
  });
}

py::object mapPointArray(const CalibrationModel& model, const py::object& points, int from, int to,
                         double yOffset, double yScale, py::object out) {
  const PointArray in = readPoints(points, "points");
  if (out.is_none()) out = py::module_::import("numpy").attr("empty_like")(points);
  const PointArray target = writtenPoints(out, "out", points);
  const Way way{static_cast<CoordinateSystem>(from), static_cast<CoordinateSystem>(to), yOffset,
                yScale};
  const bool single = in.type == cmnalg::IMAGE_TYPE_FLOAT32;
  if (in.dimensions == 2) {
    single ? mapAll<Vec<2, float>>(model, way, in, target)
           : mapAll<Vec<2, double>>(model, way, in, target);
  } else {
    single ? mapAll<Vec<3, float>>(model, way, in, target)
           : mapAll<Vec<3, double>>(model, way, in, target);
  }
  return out;
}

template <int N>
py::array arrayOf(const etl::Vector<Vec<N, double>>& points) {
  return py::array_t<double>({static_cast<py::ssize_t>(points.size()), py::ssize_t{N}},
                             reinterpret_cast<const double*>(points.data()));
}

py::array mapRectangleOutline(const CalibrationModel& model, double centerX, double centerY,
                              double width, double height, double rotation, int from, int to,
                              int supersampling) {
  const cmnalg::shape::Rectangle rectangle{{centerX, centerY}, width, height, rotation};
  cmnalg::shape::Polyline outline;
  call([&] {
    return mapRectangle(model, rectangle, outline, static_cast<CoordinateSystem>(from),
                        static_cast<CoordinateSystem>(to), supersampling);
  });
  return arrayOf(outline.Points);
}

using Triple = std::array<double, 3>;

py::array mapBoxSurface(const CalibrationModel& model, const Triple& low, const Triple& high,
                        int from, int to, double yOffset, double yScale, int supersampling) {
  const auto box =
      cmnalg::shape3d::Box::FromCorners({low[0], low[1], low[2]}, {high[0], high[1], high[2]});
  etl::Vector<Vec<3, double>> points;
  call([&] {
    return mapBox(model, box, points, static_cast<CoordinateSystem>(from),
                  static_cast<CoordinateSystem>(to), yOffset, yScale, supersampling);
  });
  return arrayOf(points);
}

py::tuple bounds(const CalibrationModel& model, py::handle sensor, int columns) {
  using datafusion::planex::WorldBoundsResult;
  const datafusion::planex::SensorRegion region = regionOf(sensor);
  datafusion::planex::WorldBounds bounds;
  WorldBoundsResult result{};
  call([&] {
    result = calculateWorldBounds(model, region, columns, bounds);
    return result != WorldBoundsResult::NotMappable;
  });
  if (result == WorldBoundsResult::OutsideSensor) raiseOutsideSensor(model);
  if (result == WorldBoundsResult::InvalidRangeValues) {
    raise("Error", "the sensor region has too many range values; correct scale_z");
  }
  return py::make_tuple(bounds.x.min, bounds.x.max, bounds.z.min, bounds.z.max,
                        bounds.lateralSpacing.x, bounds.lateralSpacing.y);
}

py::tuple compare(const CalibrationModel& a, const CalibrationModel& b, bool aligned, int step) {
  ModelDifference difference;
  call([&] {
    const int every = step > 0 ? step : datafusion::planex::differenceStep(a.SensorSize);
    return compareModels(a, b, aligned ? CoordinateSystem::Aligned : CoordinateSystem::Calibrated,
                         every, difference);
  });
  const auto pair = [](const cmnalg::Vec<2, double>& p) { return py::make_tuple(p.x, p.y); };
  return py::make_tuple(difference.points, difference.unmatched, difference.rms, difference.largest,
                        pair(difference.pixel), pair(difference.worldA), pair(difference.worldB));
}

}  // namespace

void bindPoints(py::module_& module) {
  module.def("map_points", &mapPointArray);
  module.def("map_rectangle", &mapRectangleOutline);
  module.def("map_box", &mapBoxSurface);
  module.def("bounds", &bounds);
  module.def("compare_models", &compare);
}

}  // namespace planex_python
