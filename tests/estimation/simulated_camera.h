#pragma once

#include <Eigen/Dense>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "planex/estimation/estimation.h"

namespace test {

using Place = cmnalg::Vec<2, double>;

/// Numbers that are the same with every standard library.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  double Between(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_()) / 4294967296.0;
  }
  /// Source: Box and Muller, A note on the generation of random normal deviates, Annals of
  /// Mathematical Statistics 29(2), 1958.
  double Normal() {
    const double radius = std::sqrt(-2 * std::log(Between(1e-12, 1)));
    return radius * std::cos(Between(0, 6.283185307179586));
  }
  bool Coin() { return Between(0, 1) < 0.5; }

 private:
  std::mt19937 engine_;
};

/// A camera with a bent laser sheet: what the estimator must find, in formulas of the test's own.
struct SimulatedCamera {
  static constexpr int kParameters = 21;
  using Parameters = Eigen::Matrix<double, kParameters, 1>;

  int columns, rows;
  double radius;     // half the diagonal
  double halfWidth;  // of the field, in mm
  Parameters p;      // homography, lens, centre, sheet: see Map()

  /// 1280 to 4096 columns, fields of 40 to 300 mm, the sheet at 25 to 45 degrees, seen from either
  /// side; lens and sheet as far from ideal as real ones are.
  explicit SimulatedCamera(Random& random) {
    columns = static_cast<int>(random.Between(1280, 4096));
    rows = static_cast<int>(columns * random.Between(0.3, 0.75));
    radius = std::sqrt(double(columns) * columns + double(rows) * rows) / 2;
    const double field = random.Between(40, 300);
    const double distance = field * random.Between(2, 5);
    const double angle = random.Between(25, 45) * 3.14159265358979 / 180;
    const double zoom = columns * distance / field / radius;
    const auto side = [&] { return random.Coin() ? -1.0 : 1.0; };
    Eigen::Matrix3d toSensor;
    toSensor << side() * zoom, 0, 0, 0, side() * zoom * std::sin(angle), 0, 0,
        side() * std::cos(angle), distance;
    const Eigen::Matrix3d toPlane = toSensor.inverse() / toSensor.inverse()(2, 2);
    for (int i = 0; i < 8; ++i) p[i] = toPlane(i / 3, i % 3);
    halfWidth = field / 2;
    for (int i = 8; i < kParameters; ++i) p[i] = Mean(i) + 0.7 * Deviation(i) * random.Normal();
  }

  /// Of the parameters behind the homography, as cameras are made.
  double Mean(int i) const {
    return i == 15 ? (columns - 1) / 2.0 : i == 16 ? (rows - 1) / 2.0 : 0;
  }
  double Deviation(int i) const {
    const double w = halfWidth;
    const double deviations[] = {0.05,    0.015,    0.005,         0.005,         0.005,
                                 0.01,    0.01,     0.02 * radius, 0.02 * radius, 0.1 * w,
                                 0.5 / w, 0.01 / w, 0.01 / w / w};
    return deviations[i - 8];
  }

  Place Map(const Parameters& q, Place pixel) const {
    const double x = (pixel.x - q[15]) / radius, y = (pixel.y - q[16]) / radius;
    const double r2 = x * x + y * y;
    const double stretch = 1 + q[8] * r2 + q[9] * r2 * r2 + q[10] * r2 * r2 * r2;
    const double a = x * stretch + 2 * q[11] * x * y + q[12] * (3 * x * x + y * y) + q[13] * r2;
    const double b = y * stretch + q[11] * (x * x + 3 * y * y) + 2 * q[12] * x * y + q[14] * r2;
    const double w = q[6] * a + q[7] * b + 1;
    const double X = (q[0] * a + q[1] * b + q[2]) / w, Z = (q[3] * a + q[4] * b + q[5]) / w;
    const double d = (X - q[17]) * (1 + q[18] * Z);
    return {X, Z + q[19] * d * d + q[20] * d * d * d};
  }
  Place Map(Place pixel) const { return Map(p, pixel); }

  /// By central differences.
  Eigen::Matrix<double, 2, kParameters> ByParameters(Place pixel) const {
    Eigen::Matrix<double, 2, kParameters> d;
    for (int i = 0; i < kParameters; ++i) {
      const double step = 1e-6 * (i < 8 ? std::abs(p[i]) + 1e-3 : Deviation(i));
      Parameters low = p, high = p;
      low[i] -= step;
      high[i] += step;
      const Place a = Map(low, pixel), b = Map(high, pixel);
      d.col(i) << (b.x - a.x) / (2 * step), (b.y - a.y) / (2 * step);
    }
    return d;
  }
  Eigen::Matrix2d ByPixel(Place pixel) const {
    const double h = 1e-3;
    const Place left = Map({pixel.x - h, pixel.y}), right = Map({pixel.x + h, pixel.y});
    const Place up = Map({pixel.x, pixel.y - h}), down = Map({pixel.x, pixel.y + h});
    Eigen::Matrix2d d;
    d << right.x - left.x, down.x - up.x, right.y - left.y, down.y - up.y;
    return d / (2 * h);
  }

  /// The Cramer-Rao bound of the parameters, with what is known of cameras before.
  Eigen::Matrix<double, kParameters, kParameters> Bound(const std::vector<Place>& pixels,
                                                        double noise, double tolerance) const {
    Eigen::Matrix<double, kParameters, kParameters> information;
    information.setZero();
    for (const Place& pixel : pixels) {
      const auto d = ByParameters(pixel);
      const Eigen::Matrix2d j = ByPixel(pixel);
      const Eigen::Matrix2d spread =
          noise * noise * j * j.transpose() + tolerance * tolerance * Eigen::Matrix2d::Identity();
      information += d.transpose() * spread.inverse() * d;
    }
    for (int i = 8; i < kParameters; ++i) information(i, i) += 1 / std::pow(Deviation(i), 2);
    const Parameters scale = information.diagonal().cwiseSqrt().cwiseInverse();
    const Eigen::MatrixXd scaled = scale.asDiagonal() * information * scale.asDiagonal();
    return scale.asDiagonal() * scaled.ldlt().solve(Eigen::MatrixXd::Identity(21, 21)) *
           scale.asDiagonal();
  }

  /// Measured points: noise in the pixels, tolerance in the points.
  planex::estimation::ScanMeasurement Measure(Random& random, const std::vector<Place>& pixels,
                                              double noise, double tolerance) const {
    planex::estimation::ScanMeasurement scan;
    scan.name = "a";
    for (const Place& pixel : pixels) {
      const Place point = Map(pixel);
      scan.pixels.push_back({pixel.x + noise * random.Normal(), pixel.y + noise * random.Normal()});
      scan.points.push_back(
          {point.x + tolerance * random.Normal(), point.y + tolerance * random.Normal()});
    }
    return scan;
  }

  /// Places all over the part of the sensor around its middle that has this share of its sides.
  std::vector<Place> Pixels(Random& random, int count, double share = 1) const {
    std::vector<Place> pixels;
    const double edge = 1;
    const auto along = [&](int size) {
      const double half = share * (size - 1 - 2 * edge) / 2;
      return (size - 1) / 2.0 + random.Between(-half, half);
    };
    for (int i = 0; i < count; ++i) {
      const double u = along(columns);
      pixels.push_back({u, along(rows)});
    }
    return pixels;
  }

  planex::estimation::EstimationOptions Options(double tolerance = 0) const {
    planex::estimation::EstimationOptions options;
    options.sensorSize = {columns, rows};
    options.pointTolerance = tolerance;
    return options;
  }
};

}  // namespace test
