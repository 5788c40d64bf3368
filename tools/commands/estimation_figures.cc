#include "tools/commands/estimation_figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "planex/report/plot.h"

namespace planex::tools {
namespace {

using estimation::Estimation;
using estimation::MapUncertainty;
using report::ArrowFigure;
using report::Point;
using Place = cmnalg::Vec<2, double>;

std::vector<Point> pointsOf(const std::vector<Place>& places) {
  std::vector<Point> points;
  points.reserve(places.size());
  for (const Place& place : places) points.push_back({place.x, place.y});
  return points;
}

/// Corners of the area of the sensor that was measured, so many that a picture shows no more.
std::vector<Point> measuredArea(const MapUncertainty& uncertainty) {
  constexpr std::size_t kMost = 200;
  const std::vector<Place>& corners = uncertainty.parts().measured;
  const std::size_t step = corners.size() / kMost + 1;
  std::vector<Place> some;
  for (std::size_t i = 0; i < corners.size(); i += step) some.push_back(corners[i]);
  return pointsOf(some);
}

/// The edge of the sensor, and the area of it that was measured.
std::vector<report::Outline> outlinesOf(const MapUncertainty& uncertainty) {
  const cmnalg::Vec<2, int>& size = uncertainty.parts().sensorSize;
  const double right = size.x - 0.5, bottom = size.y - 0.5;
  return {{"edge of the sensor",
           {{-0.5, -0.5}, {right, -0.5}, {right, bottom}, {-0.5, bottom}},
           report::kGrey},
          {"measured area", measuredArea(uncertainty), report::kInk}};
}

/// The same in the laser plane.
std::vector<report::Outline> mappedOutlinesOf(const Estimation& result) {
  constexpr int kPieces = 24;
  std::vector<report::Outline> outlines = outlinesOf(result.uncertainty);
  for (report::Outline& outline : outlines) {
    if (outline.corners.size() < 3) continue;
    std::vector<Place> line;
    for (std::size_t i = 0; i < outline.corners.size(); ++i) {
      const Point &from = outline.corners[i],
                  &to = outline.corners[(i + 1) % outline.corners.size()];
      for (int k = 0; k < kPieces; ++k) {
        const double share = static_cast<double>(k) / kPieces;
        line.push_back({from.x + share * (to.x - from.x), from.y + share * (to.y - from.y)});
      }
    }
    mapToPoints(result.model, line);
    outline.corners = pointsOf(line);
  }
  return outlines;
}

/// The residuals on the sensor: from the pixel that was measured to the one that the model expects.
ArrowFigure sensorFigure(const Estimation& result, const std::vector<PlaceResidual>& residuals) {
  ArrowFigure figure;
  const double width = result.model.SensorSize.x, height = result.model.SensorSize.y;
  figure.x = {-0.04 * width, 1.04 * width, "column (pixels)"};
  figure.y = {1.04 * height, -0.04 * height, "row (pixels)"};
  figure.unit = "pixels";
  figure.outlines = outlinesOf(result.uncertainty);
  std::vector<Place> around;
  for (const PlaceResidual& residual : residuals) {
    for (const Place& place : PixelSlopes::around(residual.pixel)) around.push_back(place);
  }
  mapToPoints(result.model, around);
  const auto known = [](double value) { return std::isnan(value) ? 0 : value; };
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    const PlaceResidual& residual = residuals[i];
    const Point at{residual.pixel.x, residual.pixel.y};
    const Place by =
        PixelSlopes::between(&around[4 * i]).pixels({known(residual.dx), known(residual.dz)});
    if (residual.used) {
      figure.arrows.push_back({at, {by.x, by.y}});
    } else {
      figure.crosses.push_back(at);
    }
  }
  return figure;
}

/// The numbers that an axis shows for these, with room around them, and for those of the edge that
/// are not far away, as they are near a horizon.
report::Range rangeOf(const std::vector<double>& values, const std::vector<double>& edge,
                      const char* name, const std::string& unit) {
  double least = std::numeric_limits<double>::infinity(), most = -least;
  for (const double value : values) {
    if (!std::isfinite(value)) continue;
    least = std::min(least, value);
    most = std::max(most, value);
  }
  const double reach = 5 * (most - least), from = least - reach, to = most + reach;
  for (const double value : edge) {
    if (!(value > from && value < to)) continue;
    least = std::min(least, value);
    most = std::max(most, value);
  }
  const double room = 0.08 * (most - least);
  return {least - room, most + room, report::titleWithUnit(name, unit)};
}

/// The residuals in the laser plane: from where the model puts a pixel to where it was measured.
ArrowFigure planeFigure(const Estimation& result, const std::vector<PlaceResidual>& residuals,
                        const std::string& unit) {
  const SmallUnit small(unit);
  ArrowFigure figure;
  figure.unit = small.name;
  figure.outlines = mappedOutlinesOf(result);
  std::vector<double> x, z;
  const auto known = [&small](double value) {
    return std::isnan(value) ? 0 : value * small.factor;
  };
  for (const PlaceResidual& residual : residuals) {
    const Point at{residual.place.x, residual.place.y};
    x.push_back(at.x);
    z.push_back(at.y);
    if (residual.used) {
      figure.arrows.push_back({at, {known(residual.dx), known(residual.dz)}});
    } else {
      figure.crosses.push_back(at);
    }
  }
  std::vector<double> edgeX, edgeZ;
  for (const Point& point : figure.outlines.front().corners) {
    edgeX.push_back(point.x);
    edgeZ.push_back(point.y);
  }
  figure.x = rangeOf(x, edgeX, "X", unit);
  figure.y = rangeOf(z, edgeZ, "Z", unit);
  return figure;
}

}  // namespace

report::Picture uncertaintyPicture(const MapUncertainty& uncertainty, double largest95,
                                   const std::string& unit) {
  constexpr int kColumns = 97;
  const SmallUnit small(unit);
  report::SensorMap map;
  map.width = uncertainty.parts().sensorSize.x;
  map.height = uncertainty.parts().sensorSize.y;
  map.columns = kColumns;
  map.rows = std::clamp(static_cast<int>(kColumns * map.height / map.width), 17, kColumns);
  for (int row = 0; row < map.rows; ++row) {
    for (int column = 0; column < map.columns; ++column) {
      const Place pixel{(map.width - 1) * column / (map.columns - 1),
                        (map.height - 1) * row / (map.rows - 1)};
      map.values.push_back(small.factor * uncertainty.at(pixel).radius95());
    }
  }
  map.title = report::titleWithUnit("95 % radius", small.name);
  map.most = 100 * small.factor * largest95;
  map.measured = outlinesOf(uncertainty).back();
  const std::string inside =
      map.measured.corners.size() < 3
          ? "No area of the sensor was measured;"
          : fmt::format("Inside of the measured area it is {} at most; outside,",
                        small.withName(largest95));
  return {drawSensorMap(map), "Map of the 95 % uncertainty over the sensor in " + small.name,
          fmt::format("For each pixel, the radius around its place in the laser plane that holds "
                      "the true place in 95 of 100 cases, in {}. {} the model relies on what is "
                      "expected of cameras.",
                      small.name, inside)};
}

std::vector<report::Picture> residualPictures(const Estimation& result,
                                              const std::vector<PlaceResidual>& residuals,
                                              const std::string& unit) {
  std::string about =
      "Arrows lead from where points were measured to where the model expects them. ";
  about += result.stretches.empty()
               ? "They should point in all directions, and neighbours in different ones."
               : "On edges of a target they run along the columns; neighbours should point up as "
                 "often as down.";
  const auto used = static_cast<std::size_t>(
      std::count_if(residuals.begin(), residuals.end(),
                    [](const PlaceResidual& residual) { return residual.used; }));
  if (residuals.size() < result.given) {
    about += fmt::format(" Shown are {} of {} points used and {} of {} left out, evenly spread.",
                         used, result.used, residuals.size() - used, result.given - result.used);
  }
  ArrowFigure onSensor = sensorFigure(result, residuals);
  ArrowFigure inPlane = planeFigure(result, residuals, unit);
  onSensor.crossName = inPlane.crossName = "left out";
  return {{drawArrows(onSensor), "Residuals over the sensor, as arrows", about},
          {drawArrows(inPlane), "Residuals over the laser plane, as arrows",
           "The same points in the laser plane: arrows lead from where the model puts them to "
           "where they were measured."}};
}

}  // namespace planex::tools
