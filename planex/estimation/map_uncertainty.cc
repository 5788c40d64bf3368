#include "planex/estimation/map_uncertainty.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "planex/estimation/normal_matrix.h"

namespace planex::estimation {
namespace {

using Pixel = cmnalg::Vec<2, double>;

constexpr double kChiSquare95 = 5.991464547107979;  // of two degrees of freedom

/// Twice the area of a triangle, above 0 where it turns left.
double turn(const Pixel& a, const Pixel& b, const Pixel& c) {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

/// Source: Andrew, Another efficient algorithm for convex hulls in two dimensions, Information
/// Processing Letters 9(5), 1979.
std::vector<Pixel> convexHull(std::vector<Pixel> pixels) {
  std::sort(pixels.begin(), pixels.end(),
            [](const Pixel& a, const Pixel& b) { return a.x != b.x ? a.x < b.x : a.y < b.y; });
  std::vector<Pixel> hull;
  const auto add = [&hull](const Pixel& pixel, std::size_t least) {
    while (hull.size() >= least + 2 && turn(hull[hull.size() - 2], hull.back(), pixel) <= 0) {
      hull.pop_back();
    }
    hull.push_back(pixel);
  };
  for (const Pixel& pixel : pixels) add(pixel, 0);
  const std::size_t lower = hull.size() - 1;
  for (auto pixel = pixels.rbegin() + 1; pixel != pixels.rend(); ++pixel) add(*pixel, lower);
  hull.pop_back();
  return hull;
}

/// Leaves so many corners that a document of them stays small.
void thin(std::vector<Pixel>& hull) {
  const std::size_t step =
      (hull.size() + MapUncertainty::kMostCorners - 1) / MapUncertainty::kMostCorners;
  if (step < 2) return;
  std::vector<Pixel> some;
  for (std::size_t i = 0; i < hull.size(); i += step) some.push_back(hull[i]);
  hull = std::move(some);
}

}  // namespace

double PlaceCovariance::ofX() const { return std::sqrt(xx); }

double PlaceCovariance::ofZ() const { return std::sqrt(zz); }

double PlaceCovariance::correlation() const { return xz / std::sqrt(xx * zz); }

double PlaceCovariance::radius95() const {
  const double mean = (xx + zz) / 2;
  const double greatest = mean + std::hypot((xx - zz) / 2, xz);
  return std::sqrt(kChiSquare95 * greatest);
}

MapUncertainty::MapUncertainty(Parts parts) : parts_(std::move(parts)) {
  if (parts_.measured.size() > 2) parts_.measured = convexHull(std::move(parts_.measured));
  thin(parts_.measured);
  // A document holds one half of it.
  for (std::size_t row = 0; row < kTermCount; ++row) {
    for (std::size_t column = 0; column < row; ++column) {
      parts_.covariance[column * kTermCount + row] = parts_.covariance[row * kTermCount + column];
    }
  }
  ofOthers_.resize(parts_.others.size());
  if (parts_.frame == Frame::kRigid) fitMotions();
}

// Least squares: the displacements of places by each term, and to each other minimum, are taken up
// by motions as far as these can.
void MapUncertainty::fitMotions() {
  constexpr int kColumns = 33, kRows = 17;
  const std::vector<Pixel>& hull = parts_.measured;
  Pixel low{1e300, 1e300}, high{-1e300, -1e300};
  for (const Pixel& pixel : hull) {
    low = {std::min(low.x, pixel.x), std::min(low.y, pixel.y)};
    high = {std::max(high.x, pixel.x), std::max(high.y, pixel.y)};
  }
  const std::size_t others = parts_.others.size();
  const auto sides = static_cast<Eigen::Index>(kTermCount + others);
  Eigen::Matrix3d square = Eigen::Matrix3d::Zero();
  Eigen::Matrix3Xd right = Eigen::Matrix3Xd::Zero(3, sides);
  for (int i = 0; i < kColumns * kRows; ++i) {
    const int column = i % kColumns, row = i / kColumns;
    const Pixel pixel{low.x + (high.x - low.x) * column / (kColumns - 1),
                      low.y + (high.y - low.y) * row / (kRows - 1)};
    if (!isMeasured(pixel)) continue;
    const MapDerivative d = differentiate(parts_.terms, parts_.radius, pixel);
    const Eigen::Vector3d rows[2] = {{1, 0, -d.value[1]}, {0, 1, d.value[0]}};
    for (int k = 0; k < 2; ++k) {
      square += rows[k] * rows[k].transpose();
      for (int term = 0; term < kTermCount; ++term) right.col(term) += rows[k] * d.terms[k][term];
    }
    for (std::size_t other = 0; other < others; ++other) {
      const Pixel place = laserFromSensor(parts_.others[other].terms, parts_.radius, pixel);
      right.col(static_cast<Eigen::Index>(kTermCount + other)) +=
          rows[0] * (place.x - d.value[0]) + rows[1] * (place.y - d.value[1]);
    }
  }
  const Eigen::Matrix3Xd motions = square.ldlt().solve(right);
  for (Eigen::Index side = 0; side < sides; ++side) {
    const auto i = static_cast<std::size_t>(side);
    Motion& motion = i < kTermCount ? ofTerms_[i] : ofOthers_[i - kTermCount];
    for (std::size_t k = 0; k < kMotions; ++k) {
      motion[k] = motions(static_cast<Eigen::Index>(k), side);
    }
  }
}

PlaceCovariance MapUncertainty::at(Pixel pixel) const {
  MapDerivative d = differentiate(parts_.terms, parts_.radius, pixel);
  const auto without = [&d](const Motion& motion, double& x, double& z) {
    x -= motion[0] - motion[2] * d.value[1];
    z -= motion[1] + motion[2] * d.value[0];
  };
  for (std::size_t i = 0; i < kTermCount; ++i) {
    without(ofTerms_[i], d.terms[0][i], d.terms[1][i]);
  }
  const std::array<double, 3> own = propagate(d.terms, parts_.covariance);
  PlaceCovariance sum{own[0], own[1], own[2]};
  for (std::size_t i = 0; i < parts_.others.size(); ++i) {
    const OtherMinimum& other = parts_.others[i];
    const Pixel place = laserFromSensor(other.terms, parts_.radius, pixel);
    double x = place.x - d.value[0], z = place.y - d.value[1];
    without(ofOthers_[i], x, z);
    const double share = other.weight / (1 + other.weight);
    sum.xx += share * x * x;
    sum.xz += share * x * z;
    sum.zz += share * z * z;
  }
  return sum;
}

bool MapUncertainty::isMeasured(Pixel pixel) const {
  const std::vector<Pixel>& hull = parts_.measured;
  for (std::size_t i = 0; i < hull.size(); ++i) {
    if (turn(hull[i], hull[(i + 1) % hull.size()], pixel) < 0) return false;
  }
  return hull.size() > 2;
}

double MapUncertainty::measuredShare(cmnalg::Vec<2, int> sensorSize) const {
  const std::vector<Pixel>& hull = parts_.measured;
  double area = 0;
  for (std::size_t i = 1; i + 1 < hull.size(); ++i) area += turn(hull[0], hull[i], hull[i + 1]) / 2;
  return area / (static_cast<double>(sensorSize.x) * sensorSize.y);
}

const char* MapUncertainty::frameName() const {
  return parts_.frame == Frame::kRigid ? "rigid" : "fixed";
}

double MapUncertainty::largestRadius95() const {
  constexpr int kColumns = 33, kRows = 17;
  double largest = 0;
  for (int row = 0; row < kRows; ++row) {
    for (int column = 0; column < kColumns; ++column) {
      const Pixel pixel{(parts_.sensorSize.x - 1) * (column / (kColumns - 1.0)),
                        (parts_.sensorSize.y - 1) * (row / (kRows - 1.0))};
      if (isMeasured(pixel)) largest = std::max(largest, at(pixel).radius95());
    }
  }
  return largest;
}

}  // namespace planex::estimation
