#include "planex/estimation/map_uncertainty.h"

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
}

PlaceCovariance MapUncertainty::at(Pixel pixel) const {
  const MapDerivative d = differentiate(parts_.terms, parts_.radius, pixel);
  const std::array<double, 3> own = propagate(d.terms, parts_.covariance);
  PlaceCovariance sum{own[0], own[1], own[2]};
  for (const OtherMinimum& other : parts_.others) {
    const Pixel place = laserFromSensor(other.terms, parts_.radius, pixel);
    const double x = place.x - d.value[0], z = place.y - d.value[1];
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

}  // namespace planex::estimation
