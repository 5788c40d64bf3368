#include "planex/estimation/initial_homography.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>

namespace planex::estimation {
namespace {

constexpr int kDraws = 400;
constexpr std::size_t kMostScored = 1000;  // pairs that a draw is tried on
constexpr double kQuantile = 0.6;
constexpr double kNear = 3;  // quantiles
constexpr int kRefinements = 3;

using Eigen::Matrix3d;
using Place = cmnalg::Vec<2, double>;

/// Shift and scale to centroid 0 and mean distance sqrt 2.
template <typename Get>
Matrix3d normalisation(const std::vector<PlacePair>& pairs, const Get& get) {
  Place centre;
  const double share = 1 / static_cast<double>(pairs.size());
  for (const PlacePair& pair : pairs) {
    centre.x += share * get(pair).x;
    centre.y += share * get(pair).y;
  }
  double distance = 0;
  for (const PlacePair& pair : pairs) {
    distance += share * std::hypot(get(pair).x - centre.x, get(pair).y - centre.y);
  }
  const double scale = std::sqrt(2.0) / distance;
  Matrix3d matrix;
  matrix << scale, 0, -scale * centre.x, 0, scale, -scale * centre.y, 0, 0, 1;
  return matrix;
}

std::optional<Matrix3d> fit(const std::vector<PlacePair>& pairs) {
  if (pairs.size() < 4) return std::nullopt;
  const Matrix3d ofSensor = normalisation(pairs, [](const PlacePair& p) { return p.sensor; });
  const Matrix3d ofPlane = normalisation(pairs, [](const PlacePair& p) { return p.plane; });
  // The eigenvector of the least eigenvalue of A^T A, which is 9 x 9 however many pairs there are.
  Eigen::Matrix<double, 9, 9> square = Eigen::Matrix<double, 9, 9>::Zero();
  for (const PlacePair& pair : pairs) {
    const Eigen::Vector3d s = ofSensor * Eigen::Vector3d(pair.sensor.x, pair.sensor.y, 1);
    const Eigen::Vector3d w = ofPlane * Eigen::Vector3d(pair.plane.x, pair.plane.y, 1);
    Eigen::Matrix<double, 9, 2> rows;
    rows << s, Eigen::Vector3d::Zero(), Eigen::Vector3d::Zero(), s, -w.x() * s, -w.y() * s;
    square += rows * rows.transpose();
  }
  if (!square.allFinite()) return std::nullopt;
  const Eigen::SelfAdjointEigenSolver<decltype(square)> solver(square);
  const auto h = solver.eigenvectors().col(0);
  Matrix3d matrix;
  matrix << h.segment<3>(0).transpose(), h.segment<3>(3).transpose(), h.segment<3>(6).transpose();
  matrix = ofPlane.inverse() * matrix * ofSensor;
  matrix /= matrix(2, 2);
  if (!matrix.allFinite() || matrix.determinant() == 0) return std::nullopt;
  return matrix;
}

/// Squared distances on the sensor, infinite for what is not before the camera.
std::vector<double> distances(const std::vector<PlacePair>& pairs, const Matrix3d& homography) {
  const Matrix3d inverse = homography.inverse();
  std::vector<double> squares;
  squares.reserve(pairs.size());
  for (const PlacePair& pair : pairs) {
    const Eigen::Vector3d s = inverse * Eigen::Vector3d(pair.plane.x, pair.plane.y, 1);
    const double x = s.x() / s.z() - pair.sensor.x;
    const double y = s.y() / s.z() - pair.sensor.y;
    const double square = x * x + y * y;
    squares.push_back(std::isfinite(square) ? square : std::numeric_limits<double>::infinity());
  }
  return squares;
}

double quantileOf(std::vector<double> values) {
  const auto place =
      values.begin() + static_cast<std::ptrdiff_t>(kQuantile * static_cast<double>(values.size()));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

PlaneHomography listOf(const Matrix3d& matrix) {
  PlaneHomography list;
  for (int i = 0; i < 9; ++i) list[static_cast<std::size_t>(i)] = matrix(i / 3, i % 3);
  return list;
}

}  // namespace

std::optional<PlaneHomography> initialHomography(const std::vector<PlacePair>& pairs) {
  if (pairs.size() < 4) return std::nullopt;
  std::mt19937 random(1);  // its numbers are the same with every standard library
  std::vector<PlacePair> scored = pairs;
  if (scored.size() > kMostScored) {
    for (PlacePair& pair : scored) pair = pairs[random() % pairs.size()];
    scored.resize(kMostScored);
  }
  std::optional<Matrix3d> best;
  double least = std::numeric_limits<double>::infinity();
  for (int draw = 0; draw < kDraws; ++draw) {
    std::vector<PlacePair> four(4);
    for (PlacePair& pair : four) pair = pairs[random() % pairs.size()];
    const std::optional<Matrix3d> homography = fit(four);
    if (!homography) continue;
    const double quantile = quantileOf(distances(scored, *homography));
    if (quantile >= least) continue;
    least = quantile;
    best = homography;
  }
  for (int i = 0; best && i < kRefinements; ++i) {
    const std::vector<double> squares = distances(scored, *best);
    const double most = kNear * kNear * quantileOf(squares);
    std::vector<PlacePair> near;
    for (std::size_t k = 0; k < scored.size(); ++k) {
      if (squares[k] <= most) near.push_back(scored[k]);
    }
    const std::optional<Matrix3d> refined = fit(near);
    if (!refined) break;
    best = refined;
  }
  return best ? std::optional(listOf(*best)) : std::nullopt;
}

std::optional<PlaneHomography> fitHomography(const std::vector<PlacePair>& pairs) {
  const std::optional<Matrix3d> homography = fit(pairs);
  return homography ? std::optional(listOf(*homography)) : std::nullopt;
}

double rmsOnSensor(const std::vector<PlacePair>& pairs, const PlaneHomography& homography) {
  Matrix3d matrix;
  for (int i = 0; i < 9; ++i) matrix(i / 3, i % 3) = homography[static_cast<std::size_t>(i)];
  double sum = 0;
  for (const double square : distances(pairs, matrix)) sum += square;
  return std::sqrt(sum / static_cast<double>(pairs.size()));
}

}  // namespace planex::estimation
