#pragma once

#include <Eigen/Dense>
#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <utility>
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

  /// Where a target stands, and how it is turned.
  struct Pose {
    double x, z, angle;
    Place place(Place own) const {
      const double c = std::cos(angle), s = std::sin(angle);
      return {x + c * own.x - s * own.y, z + s * own.x + c * own.y};
    }
  };
  /// A sensor pixel that shows an edge, and the unit normal of that edge in the plane.
  struct EdgePixel {
    Place pixel;
    Eigen::Vector2d normal;
  };

  /// The Cramer-Rao bound of the parameters, with what is known of cameras before.
  Eigen::MatrixXd Bound(const std::vector<Place>& pixels, double noise, double tolerance) const {
    Eigen::MatrixXd information = Eigen::MatrixXd::Zero(kParameters, kParameters);
    for (const Place& pixel : pixels) {
      const auto d = ByParameters(pixel);
      const Eigen::Matrix2d j = ByPixel(pixel);
      const Eigen::Matrix2d spread =
          noise * noise * j * j.transpose() + tolerance * tolerance * Eigen::Matrix2d::Identity();
      information += d.transpose() * spread.inverse() * d;
    }
    return Inverted(information);
  }
  /// Of scans of targets in unknown poses: of the parameters alone.
  Eigen::MatrixXd BoundOfScans(const std::vector<std::vector<EdgePixel>>& scans,
                               double noise) const {
    const auto count = static_cast<Eigen::Index>(kParameters + 3 * scans.size());
    Eigen::MatrixXd information = Eigen::MatrixXd::Zero(count, count);
    Eigen::Index pose = kParameters;
    for (const auto& scan : scans) {
      for (const EdgePixel& seen : scan) {
        const Place place = Map(seen.pixel);
        Eigen::VectorXd row = Eigen::VectorXd::Zero(count);
        row.head(kParameters) = ByParameters(seen.pixel).transpose() * seen.normal;
        row.segment(pose, 3) << seen.normal[0], seen.normal[1],
            seen.normal.dot(Eigen::Vector2d(-place.y, place.x));
        row /= noise * seen.normal.dot(ByPixel(seen.pixel).col(1));
        information += row * row.transpose();
      }
      pose += 3;
    }
    // The frame is that of one of the scans.
    information.block(kParameters, kParameters, 3, 3) += 1e12 * Eigen::Matrix3d::Identity();
    return Inverted(information).topLeftCorner(kParameters, kParameters);
  }
  /// With what is known of cameras before.
  Eigen::MatrixXd Inverted(Eigen::MatrixXd information) const {
    for (int i = 8; i < kParameters; ++i) information(i, i) += 1 / std::pow(Deviation(i), 2);
    const Eigen::VectorXd scale = information.diagonal().cwiseSqrt().cwiseInverse();
    const Eigen::MatrixXd scaled = scale.asDiagonal() * information * scale.asDiagonal();
    const auto one = Eigen::MatrixXd::Identity(information.rows(), information.cols());
    return scale.asDiagonal() * scaled.ldlt().solve(one) * scale.asDiagonal();
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

  /// The pixel that shows a place of the plane, by Newton's method.
  Place Inverse(Place place, Place pixel) const {
    for (int i = 0; i < 20; ++i) {
      const Place now = Map(pixel);
      const Eigen::Vector2d step =
          ByPixel(pixel).inverse() * Eigen::Vector2d(now.x - place.x, now.y - place.y);
      pixel = {pixel.x - step[0], pixel.y - step[1]};
      if (step.norm() < 1e-9) break;
    }
    return pixel;
  }

  /// What every `step`-th column sees of a target, without noise.
  std::vector<EdgePixel> Profile(const std::vector<Place>& corners, const Pose& pose,
                                 int step) const {
    std::vector<EdgePixel> seen;
    const Place middle{columns / 2.0, rows / 2.0};
    for (std::size_t i = 1; i < corners.size(); ++i) {
      const Place a = pose.place(corners[i - 1]), b = pose.place(corners[i]);
      const auto at = [&](double part) {
        return Inverse({a.x + part * (b.x - a.x), a.y + part * (b.y - a.y)}, middle);
      };
      const double from = at(0).x, to = at(1).x;
      const bool isSeen = std::abs(from - middle.x) < columns && std::abs(to - middle.x) < columns;
      if (!isSeen) continue;  // or far beyond what the lens can show
      const Eigen::Vector2d normal = Eigen::Vector2d(a.y - b.y, b.x - a.x).normalized();
      const double first = std::max(std::ceil(std::min(from, to) / step) * step, 0.0);
      for (double u = first; u < std::max(from, to) && u < columns; u += step) {
        double low = 0, high = 1, part = (u - from) / (to - from);
        Place pixel = at(part);
        for (int k = 0; k < 30 && std::abs(pixel.x - u) > 1e-7; ++k) {  // Newton, bracketed
          ((pixel.x < u) == (from < to) ? low : high) = part;
          part += (u - pixel.x) / ((at(part + 1e-6).x - pixel.x) / 1e-6);
          if (!(part > low && part < high)) part = (low + high) / 2;
          pixel = at(part);
        }
        const bool isSolved = std::abs(pixel.x - u) < 1e-6;
        if (isSolved && pixel.y > 0 && pixel.y < rows - 1) seen.push_back({pixel, normal});
      }
    }
    return seen;
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

/// Twelve scans of a sawtooth that fills the field: at four heights, level and tilted either way.
struct SawtoothScene {
  explicit SawtoothScene(unsigned seed) : random(seed), camera(random) {
    double low = 1e300, high = -1e300;
    for (const double v : {0.0, camera.rows - 1.0}) {
      for (const double u : {0.0, camera.columns / 2.0, camera.columns - 1.0}) {
        const double z = camera.Map({u, v}).y;
        low = std::min(low, z);
        high = std::max(high, z);
      }
    }
    pitch = camera.halfWidth / 5;
    for (int i = -14; i <= 14; ++i) profile.corners.push_back({i * pitch / 2, i % 2 * 0.4 * pitch});
    for (auto& corner : profile.corners) corner.y = std::abs(corner.y);
    profile.tolerance = 0;
    profile.margin = 0.03 * pitch;
    const double middle = camera.Map({camera.columns / 2.0, camera.rows / 2.0}).x;
    for (int i = 0; i < 12; ++i) {
      const int level = i / 3;
      const double height = low + (high - low) * (0.18 + 0.64 * level / 3) - 0.2 * pitch;
      const double x = middle + 0.1 * pitch * random.Normal();
      poses.push_back({x, height, tilt * (i % 3 - 1)});
    }
  }

  /// What the scans see of a target that is not quite as it is described.
  void Measure(double noise) {
    std::vector<Place> real = profile.corners;
    for (Place& corner : real) {
      corner.x = stretch * corner.x + tolerance * random.Normal();
      corner.y += tolerance * random.Normal();
    }
    profile.tolerance = tolerance;
    const auto target = std::make_shared<planex::estimation::TargetProfile>(profile);
    for (const auto& pose : poses) {
      // The section of a target that is turned out of the plane is wider.
      const double wider = 1 / std::cos(turn * random.Normal());
      std::vector<Place> section = real;
      for (Place& corner : section) corner.x *= wider;
      seen.push_back(camera.Profile(section, pose, step));
      planex::estimation::ScanMeasurement scan;
      scan.name = std::string(1, static_cast<char>('a' + scans.size()));
      scan.target = target;
      double before = 0;
      for (const SimulatedCamera::EdgePixel& edge : seen.back()) {
        // Noise of neighbours goes together where it is correlated.
        before = correlation * before + std::sqrt(1 - correlation * correlation) * random.Normal();
        scan.pixels.push_back({edge.pixel.x, edge.pixel.y + noise * before});
      }
      scans.push_back(std::move(scan));
    }
    options = camera.Options();
    const Eigen::Matrix2d j = camera.ByPixel({camera.columns / 2.0, camera.rows / 2.0});
    options.up = j(1, 1) > 0 ? 1 : -1;
    options.right = j(0, 0) > 0 ? 1 : -1;
    options.turn = turn;
  }

  Random random;
  SimulatedCamera camera;
  int step = 8;  // columns
  double pitch, tilt = 0.15, stretch = 1, tolerance = 0, correlation = 0, turn = 0;
  planex::estimation::TargetProfile profile;
  std::vector<SimulatedCamera::Pose> poses;
  std::vector<std::vector<SimulatedCamera::EdgePixel>> seen;
  std::vector<planex::estimation::ScanMeasurement> scans;
  planex::estimation::EstimationOptions options;
};

}  // namespace test
