#include "planex/estimation/observation.h"

#include <cmath>

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
  for (auto& row : residual.terms) {
    for (double& value : row) value = 0;
  }
  residual.scatter[0] = residual.scatter[2] = 1;
  residual.scatter[1] = 0;
}

bool isFinite(const SensorResidual& residual, Derivatives wanted) {
  double sum = 0;
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

}  // namespace

int PointObservation::dimensions() const {
  return (std::isnan(point.x) ? 0 : 1) + (std::isnan(point.y) ? 0 : 1);
}

SensorResidual residualOf(const CameraTerms& terms, double radius,
                          const PointObservation& observation, Derivatives wanted) {
  const Pixel& point = observation.point;
  const Pixel& pixel = observation.pixel;
  SensorResidual residual =
      std::isnan(point.x)   ? residualOfCurve(terms, radius, pixel, 1, point.y, wanted)
      : std::isnan(point.y) ? residualOfCurve(terms, radius, pixel, 0, point.x, wanted)
                            : residualOfPlace(terms, radius, pixel, point, wanted);
  if (!isFinite(residual, wanted)) makeFarOff(residual);
  return residual;
}

Whitening Whitening::of(const SensorResidual& residual, double weight, double noise,
                        double tolerance) {
  const double own = noise * weight * (noise * weight);
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
}

}  // namespace planex::estimation
