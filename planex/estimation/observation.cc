#include "planex/estimation/observation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace planex::estimation {
namespace {

using Pixel = cmnalg::Vec<2, double>;

constexpr int kNewtonSteps = 12;
constexpr double kSettled = 1e-5;  // pixels; the next step would be far smaller, as its square
constexpr double kFarOff = 1e6;    // pixels; stands for what has no place on the sensor

void differentiateAs(Derivatives wanted, const CameraTerms& terms, double radius, Pixel pixel,
                     MapDerivative& result) {
  if (wanted == Derivatives::kAll) {
    result = differentiate(terms, radius, pixel);
  } else {
    differentiateByPixel(terms, radius, pixel, result);
  }
}

/// Steps over the sensor to where `step` finds nothing left to go.
/// @return false when it does not settle
template <typename Step>
bool settle(Pixel& pixel, double radius, const Step& step) {
  const Pixel start = pixel;
  for (int i = 0; i < kNewtonSteps; ++i) {
    const Pixel by = step(pixel);
    pixel = {pixel.x - by.x, pixel.y - by.y};
    const double away = std::hypot(pixel.x - start.x, pixel.y - start.y);
    if (!(away < radius)) return false;
    if (std::hypot(by.x, by.y) < kSettled) return true;
  }
  return false;
}

/// J^-1 (x, z) for the derivative of the plane by the pixel.
Pixel solve(const double (&j)[2][2], double x, double z) {
  const double determinant = j[0][0] * j[1][1] - j[0][1] * j[1][0];
  return {(j[1][1] * x - j[0][1] * z) / determinant, (j[0][0] * z - j[1][0] * x) / determinant};
}

void makeFarOff(SensorResidual& residual) {
  residual.value[0] = residual.value[1] = kFarOff;
  residual.grazing = 1;
  for (double& value : residual.placement) value = 0;
  for (double& value : residual.size) value = 0;
  for (double& value : residual.corners) value = 0;
  for (auto& row : residual.terms) {
    for (double& value : row) value = 0;
  }
  residual.scatter[0] = residual.scatter[2] = 1;
  residual.scatter[1] = 0;
}

bool isFinite(const SensorResidual& residual, Derivatives wanted) {
  double sum = residual.grazing;
  for (int i = 0; i < residual.count; ++i) {
    sum += residual.value[i];
    if (wanted == Derivatives::kNone) continue;
    for (const double value : residual.terms[i]) sum += value;
  }
  for (const double value : residual.scatter) sum += value;
  return std::isfinite(sum);
}

/// Of a point with both coordinates.
SensorResidual residualOfPlace(const CameraTerms& terms, double radius, Pixel measured,
                               const Pixel& point, Derivatives wanted) {
  MapDerivative d;
  Pixel predicted = measured;
  const bool isPlace = settle(predicted, radius, [&](const Pixel& pixel) {
    differentiateByPixel(terms, radius, pixel, d);
    return solve(d.pixel, d.value[0] - point.x, d.value[1] - point.y);
  });
  differentiateAs(wanted, terms, radius, isPlace ? predicted : measured, d);
  SensorResidual residual;
  // Of a place that is not found, as far as one step leads.
  const Pixel by = isPlace ? Pixel{measured.x - predicted.x, measured.y - predicted.y}
                           : solve(d.pixel, d.value[0] - point.x, d.value[1] - point.y);
  residual.value[0] = by.x;
  residual.value[1] = by.y;
  for (int i = 0; wanted == Derivatives::kAll && i < kTermCount; ++i) {
    const Pixel moved = solve(d.pixel, d.terms[0][i], d.terms[1][i]);
    residual.terms[0][i] = moved.x;
    residual.terms[1][i] = moved.y;
  }
  const Pixel ofX = solve(d.pixel, 1, 0), ofZ = solve(d.pixel, 0, 1);
  residual.scatter[0] = ofX.x * ofX.x + ofZ.x * ofZ.x;
  residual.scatter[1] = ofX.x * ofX.y + ofZ.x * ofZ.y;
  residual.scatter[2] = ofX.y * ofX.y + ofZ.y * ofZ.y;
  return residual;
}

/// Of a point with one coordinate, 0 for X: from the curve of the sensor that has it.
SensorResidual residualOfCurve(const CameraTerms& terms, double radius, Pixel measured,
                               int coordinate, double known, Derivatives wanted) {
  MapDerivative d;
  const auto stepOf = [&](const MapDerivative& at) {
    const double* const gradient = at.pixel[coordinate];
    const double square = gradient[0] * gradient[0] + gradient[1] * gradient[1];
    const double by = (at.value[coordinate] - known) / square;
    return Pixel{by * gradient[0], by * gradient[1]};
  };
  Pixel predicted = measured;
  const bool isPlace = settle(predicted, radius, [&](const Pixel& pixel) {
    differentiateByPixel(terms, radius, pixel, d);
    return stepOf(d);
  });
  differentiateAs(wanted, terms, radius, isPlace ? predicted : measured, d);
  const double* const gradient = d.pixel[coordinate];
  const double length = std::hypot(gradient[0], gradient[1]);
  const Pixel by = isPlace ? Pixel{measured.x - predicted.x, measured.y - predicted.y} : stepOf(d);
  SensorResidual residual;
  residual.count = 1;
  residual.value[0] = (by.x * gradient[0] + by.y * gradient[1]) / length;
  residual.value[1] = 0;
  for (int i = 0; wanted == Derivatives::kAll && i < kTermCount; ++i) {
    residual.terms[0][i] = d.terms[coordinate][i] / length;
    residual.terms[1][i] = 0;
  }
  residual.scatter[0] = 1 / (length * length);
  residual.scatter[1] = residual.scatter[2] = 0;
  return residual;
}

/// From an edge, along the column.
SensorResidual residualOfEdge(const CameraTerms& terms, double radius, Pixel measured,
                              const PlacedEdge& edge, Derivatives wanted) {
  const Pixel from = edge.place(edge.from), to = edge.place(edge.to);
  const double length = std::hypot(to.x - from.x, to.y - from.y);
  const Pixel along{(to.x - from.x) / length, (to.y - from.y) / length};
  const Pixel normal{-along.y, along.x};
  MapDerivative d;
  const auto byRow = [&] { return normal.x * d.pixel[0][1] + normal.y * d.pixel[1][1]; };
  const auto step = [&] {
    return (normal.x * (d.value[0] - from.x) + normal.y * (d.value[1] - from.y)) / byRow();
  };
  Pixel predicted = measured;
  const bool isPlace = settle(predicted, radius, [&](const Pixel& pixel) {
    differentiateByPixel(terms, radius, pixel, d);
    return Pixel{0, step()};
  });
  differentiateAs(wanted, terms, radius, isPlace ? predicted : measured, d);
  SensorResidual residual;
  residual.count = 1;
  residual.value[0] = isPlace ? measured.y - predicted.y : step();
  residual.value[1] = 0;
  residual.scatter[0] = residual.scatter[1] = residual.scatter[2] = 0;
  constexpr double kGrazing = 0.2;  // sine of the angle between column and edge
  const double slope = byRow();
  const double sine = std::abs(slope) / std::hypot(d.pixel[0][1], d.pixel[1][1]);
  residual.grazing = std::max(1.0, kGrazing / sine);
  if (wanted == Derivatives::kNone) return residual;

  for (int i = 0; i < kTermCount; ++i) {
    residual.terms[0][i] = (normal.x * d.terms[0][i] + normal.y * d.terms[1][i]) / slope;
    residual.terms[1][i] = 0;
  }
  // A shift of the place on the edge moves the row by -normal / slope.
  const Pixel n{-normal.x / slope, -normal.y / slope};
  const auto turned = [&](double x, double z) {
    return n.x * (edge.c * x - edge.s * z) + n.y * (edge.s * x + edge.c * z);
  };
  const double part = (along.x * (d.value[0] - from.x) + along.y * (d.value[1] - from.y)) / length;
  const Pixel place{(1 - part) * edge.from.x + part * edge.to.x,
                    (1 - part) * edge.from.y + part * edge.to.y};
  residual.placement[kPlaceX] = n.x;
  residual.placement[kPlaceZ] = n.y;
  residual.placement[kPlaceAngle] = turned(-edge.ofZ * place.y, edge.ofX * place.x);
  residual.placement[kPlaceWidening] = residual.size[kSizeWidening] = turned(place.x, 0);
  residual.size[kSizeScale] = turned(place.x, place.y);
  const double ofX = turned(edge.ofX, 0), ofZ = turned(0, edge.ofZ);
  residual.corners[0] = (1 - part) * ofX;
  residual.corners[1] = (1 - part) * ofZ;
  residual.corners[2] = part * ofX;
  residual.corners[3] = part * ofZ;
  return residual;
}

}  // namespace

int Observation::dimensions() const {
  if (edge != kPoint) return edge == kNothing ? 0 : 1;
  return (std::isnan(point.x) ? 0 : 1) + (std::isnan(point.y) ? 0 : 1);
}

PlacedEdge::PlacedEdge(const double* placement, const double* size, Pixel begin, Pixel end)
    : from(begin),
      to(end),
      c(std::cos(placement[kPlaceAngle])),
      s(std::sin(placement[kPlaceAngle])),
      ofX(1 + size[kSizeScale] + size[kSizeWidening] + placement[kPlaceWidening]),
      ofZ(1 + size[kSizeScale]),
      shift{placement[kPlaceX], placement[kPlaceZ]} {}

PlacedEdge::PlacedEdge(const Unknowns& unknowns, const Unknowns::Scan& scan, int edge)
    : PlacedEdge(unknowns.at(scan.placement), unknowns.at(unknowns.targetOf(scan).size),
                 unknowns.corner(unknowns.targetOf(scan), edge),
                 unknowns.corner(unknowns.targetOf(scan), edge + 1)) {}

Pixel PlacedEdge::place(Pixel own) const {
  const double x = ofX * own.x, z = ofZ * own.y;
  return {shift.x + c * x - s * z, shift.y + s * x + c * z};
}

Pixel PlacedEdge::own(Pixel place) const {
  const double x = place.x - shift.x, z = place.y - shift.y;
  return {(c * x + s * z) / ofX, (c * z - s * x) / ofZ};
}

SensorResidual residualOf(const CameraTerms& terms, double radius, const Observation& observation,
                          const PlacedEdge* edge, Derivatives wanted) {
  const Pixel& point = observation.point;
  const Pixel& pixel = observation.pixel;
  SensorResidual residual =
      edge != nullptr       ? residualOfEdge(terms, radius, pixel, *edge, wanted)
      : std::isnan(point.x) ? residualOfCurve(terms, radius, pixel, 1, point.y, wanted)
      : std::isnan(point.y) ? residualOfCurve(terms, radius, pixel, 0, point.x, wanted)
                            : residualOfPlace(terms, radius, pixel, point, wanted);
  if (!isFinite(residual, wanted)) makeFarOff(residual);
  return residual;
}

SensorResidual residualOf(const Unknowns& unknowns, double radius, const Observation& observation,
                          Derivatives wanted) {
  const CameraTerms terms = unknowns.terms();
  if (observation.edge < 0) return residualOf(terms, radius, observation, nullptr, wanted);
  const PlacedEdge edge(unknowns, unknowns.scans[static_cast<std::size_t>(observation.scan)],
                        observation.edge);
  return residualOf(terms, radius, observation, &edge, wanted);
}

Whitening Whitening::of(const SensorResidual& residual, double weight, double noise,
                        double tolerance) {
  const double deviation = noise * weight * residual.grazing;
  const double own = deviation * deviation;
  const double square = tolerance * tolerance;
  const double xx = own + square * residual.scatter[0];
  const double xy = square * residual.scatter[1];
  const double yy = own + square * residual.scatter[2];
  Whitening whitening;
  const double a = std::sqrt(xx);
  const double b = xy / a;
  const double c = std::sqrt(yy - b * b);
  whitening.xx = 1 / a;
  whitening.yy = residual.count == 2 ? 1 / c : 0;
  whitening.yx = residual.count == 2 ? -b / (a * c) : 0;
  return whitening;
}

void Whitening::apply(SensorResidual& residual, Derivatives wanted) const {
  const auto whiten = [this](double& x, double& y) {
    y = yx * x + yy * y;
    x = xx * x;
  };
  whiten(residual.value[0], residual.value[1]);
  for (int i = 0; wanted == Derivatives::kAll && i < kTermCount; ++i)
    whiten(residual.terms[0][i], residual.terms[1][i]);
  if (wanted == Derivatives::kNone || residual.count == 2) return;
  for (double& value : residual.placement) value *= xx;
  for (double& value : residual.size) value *= xx;
  for (double& value : residual.corners) value *= xx;
}

}  // namespace planex::estimation
