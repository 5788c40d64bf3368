#include "planex/estimation/point_estimator.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>

#include "planex/estimation/initial_homography.h"

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;

constexpr std::size_t kLeastPoints = 12;
constexpr std::size_t kMostPoints = std::size_t{1} << 22;
constexpr std::size_t kThinned = 3000;
constexpr std::size_t kMostFitted = std::size_t{1} << 18;
constexpr double kRejected = 4.5;         // standard deviations
constexpr double kNormalMedian = 1.4826;  // standard deviation of normal numbers over median size
constexpr double kLeastNoise = 1e-6;      // pixels
constexpr double kNear = 30;              // of chi-square, between thinned minima that go on
constexpr double kReach = 60;             // of chi-square over correlation: exp(-30) is nothing
constexpr int kNeighbours = 24;
constexpr double kDegree = 0.017453292519943295;

Place middleOf(const EstimationOptions& options) {
  return {(options.sensorSize.x - 1) / 2.0, (options.sensorSize.y - 1) / 2.0};
}

double radiusOf(const EstimationOptions& options) {
  return std::hypot(options.sensorSize.x, options.sensorSize.y) / 2;
}

/// The least extent of points in any direction over the greatest.
double flatness(const std::vector<Place>& places) {
  Place mean;
  for (const Place& p : places) {
    mean.x += p.x / static_cast<double>(places.size());
    mean.y += p.y / static_cast<double>(places.size());
  }
  double xx = 0, xy = 0, yy = 0;
  for (const Place& p : places) {
    xx += (p.x - mean.x) * (p.x - mean.x);
    xy += (p.x - mean.x) * (p.y - mean.y);
    yy += (p.y - mean.y) * (p.y - mean.y);
  }
  const double middle = (xx + yy) / 2, half = std::hypot((xx - yy) / 2, xy);
  return std::sqrt(std::max(middle - half, 0.0) / (middle + half));
}

void check(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options) {
  if (options.sensorSize.x < 2 || options.sensorSize.y < 2) {
    throw EstimationFailure("the sensor must have two columns and two rows at least");
  }
  const auto isNotNegative = [](double value) { return value >= 0 && std::isfinite(value); };
  if (!isNotNegative(options.focalLength) || !isNotNegative(options.pointTolerance) ||
      !isNotNegative(options.noise)) {
    throw EstimationFailure("focal length, tolerance and noise must be 0 or more");
  }
  std::size_t points = 0;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    const ScanMeasurement& scan = scans[s];
    if (scan.points.size() != scan.pixels.size() ||
        (!scan.deviations.empty() && scan.deviations.size() != scan.pixels.size())) {
      throw EstimationFailure("needs a point for each pixel", s);
    }
    points += scan.pixels.size();
    for (std::size_t i = 0; i < scan.pixels.size(); ++i) {
      const Place& pixel = scan.pixels[i];
      const Place& point = scan.points[i];
      if (!std::isfinite(pixel.x) || !std::isfinite(pixel.y) || std::isinf(point.x) ||
          std::isinf(point.y) || (std::isnan(point.x) && std::isnan(point.y))) {
        throw EstimationFailure("is not finite; leave it out", s, i);
      }
      if (!(pixel.x >= -0.5 && pixel.x < options.sensorSize.x - 0.5 && pixel.y >= -0.5 &&
            pixel.y < options.sensorSize.y - 0.5)) {
        throw EstimationFailure("lies off the sensor of " + std::to_string(options.sensorSize.x) +
                                    " x " + std::to_string(options.sensorSize.y) +
                                    " pixels; are rows in sixteenths, or u and v exchanged?",
                                s, i);
      }
      if (!scan.deviations.empty() && !(scan.deviations[i] > 0 && scan.deviations[i] < 1e6)) {
        throw EstimationFailure("has a standard deviation that is not above 0", s, i);
      }
    }
  }
  if (points < kLeastPoints) {
    throw EstimationFailure("needs " + std::to_string(kLeastPoints) + " points or more, and has " +
                            std::to_string(points) + "; measure more places of the sensor");
  }
  if (points > kMostPoints) {
    throw EstimationFailure("has more than " + std::to_string(kMostPoints) +
                            " points; thin them out");
  }
}

/// All points as they are given; those with one coordinate last.
std::vector<PointObservation> observationsOf(const std::vector<ScanMeasurement>& scans) {
  std::vector<PointObservation> points;
  std::vector<double> deviations;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    for (std::size_t i = 0; i < scans[s].pixels.size(); ++i) {
      PointObservation point;
      point.pixel = scans[s].pixels[i];
      point.point = scans[s].points[i];
      point.weight = scans[s].deviations.empty() ? 1 : scans[s].deviations[i];
      point.scan = static_cast<int>(s);
      deviations.push_back(point.weight);
      points.push_back(point);
    }
  }
  const auto middle = deviations.begin() + static_cast<std::ptrdiff_t>(deviations.size() / 2);
  std::nth_element(deviations.begin(), middle, deviations.end());
  for (PointObservation& point : points) point.weight /= *middle;
  return points;
}

/// Every k-th, so that no more than `most` are left.
std::vector<const PointObservation*> thinned(const std::vector<PointObservation>& points,
                                             std::size_t most) {
  const std::size_t step = (points.size() + most - 1) / most;
  std::vector<const PointObservation*> some;
  for (std::size_t i = 0; i < points.size(); i += step) some.push_back(&points[i]);
  return some;
}

PlaneHomography startOf(const std::vector<PointObservation>& points,
                        const EstimationOptions& options) {
  const Place middle = middleOf(options);
  const double radius = radiusOf(options);
  std::vector<PlacePair> pairs;
  std::vector<Place> pixels, places;
  for (const PointObservation& point : points) {
    if (point.dimensions() < 2) continue;
    pairs.push_back(
        {{(point.pixel.x - middle.x) / radius, (point.pixel.y - middle.y) / radius}, point.point});
    pixels.push_back(point.pixel);
    places.push_back(point.point);
  }
  constexpr double kFlat = 1e-3;
  if (pairs.size() < kLeastPoints) {
    throw EstimationFailure("needs " + std::to_string(kLeastPoints) +
                            " points with both x and z; X or Z is not determined");
  }
  if (!(flatness(pixels) > kFlat) || !(flatness(places) > kFlat)) {
    throw EstimationFailure("has all points on one line; move the target in height");
  }
  const std::optional<PlaneHomography> start = initialHomography(pairs);
  if (!start) throw EstimationFailure("has points that agree with no camera; see the columns");
  return *start;
}

/// What is expected where the measurements are silent. Source: how far lenses and laser sheets
/// depart from the ideal at the corner of the sensor, in half diagonals and half widths of the
/// field.
TermPriors priorsOf(const CameraTerms& start, const EstimationOptions& options) {
  const Place middle = middleOf(options);
  const double radius = radiusOf(options);
  const double right = options.sensorSize.x - 1;
  const double width = std::abs(laserFromSensor(start, radius, {right, middle.y}).x -
                                laserFromSensor(start, radius, {0, middle.y}).x) /
                       2;
  TermPriors priors;
  const double lens[] = {0.05, 0.015, 0.005, 0.005, 0.005, 0.01, 0.01};
  std::copy(std::begin(lens), std::end(lens), priors.deviation.begin() + kLensTerms);
  priors.mean[kCentreTerms] = middle.x;
  priors.mean[kCentreTerms + 1] = middle.y;
  priors.deviation[kCentreTerms] = priors.deviation[kCentreTerms + 1] = 0.02 * radius;
  const double none = options.hasSheetCurve ? 1 : 1e-9;
  const double curve[] = {0.1 * width, 0.5 / width, 0.01 / width, 0.01 / (width * width)};
  for (std::size_t i = 0; i < 4; ++i) priors.deviation[kCurveTerms + i] = none * curve[i];
  priors.mean[kCurveTerms] = laserFromSensor(start, radius, middle).x;
  return priors;
}

/// Half the width of the field, as the priors have it.
double halfWidth(const TermPriors& priors) { return priors.deviation[kCurveTerms] / 0.1; }

/// A fit on its way.
class Search {
 public:
  Search(PointFit& fit, const EstimationOptions& options) : fit_(fit), options_(options) {}

  void run() {
    const auto some = thinned(fit_.points, kThinned);
    FitProblem rough = fit_.problem;
    rough.noise = medianScale(fit_.terms, some);
    for (const Loss loss : {Loss::kCauchy, Loss::kCauchy, Loss::kTukey, Loss::kTukey}) {
      rough.loss = loss;
      fitTerms(rough, some, fit_.terms);
      rough.noise = medianScale(fit_.terms, some);
    }
    const std::vector<CameraTerms> starts = minimaFrom(rough, some);
    const auto all = thinned(fit_.points, kMostFitted);
    std::vector<CameraTerms> ends;
    std::vector<double> noises;
    for (CameraTerms terms : starts) {
      double noise = rough.noise;
      for (int round = 0; round < 3; ++round) refine(terms, noise, all);
      ends.push_back(terms);
      noises.push_back(noise);
    }
    choose(ends, noises, all);
  }

 private:
  double medianScale(const CameraTerms& terms,
                     const std::vector<const PointObservation*>& observations) const {
    std::vector<double> sizes;
    for (const PointObservation* observation : observations) {
      const SensorResidual r =
          residualOf(terms, fit_.problem.radius, *observation, Derivatives::kNone);
      for (int i = 0; i < r.count; ++i) {
        sizes.push_back(std::abs(r.value[i]) / observation->weight);
      }
    }
    const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
    std::nth_element(sizes.begin(), middle, sizes.end());
    return std::max(kNormalMedian * *middle, kLeastNoise);
  }

  SensorResidual whitened(const CameraTerms& terms, const PointObservation& observation,
                          double noise, double tolerance) const {
    SensorResidual residual =
        residualOf(terms, fit_.problem.radius, observation, Derivatives::kNone);
    Whitening::of(residual, observation.weight, noise, tolerance)
        .apply(residual, Derivatives::kNone);
    return residual;
  }

  static double sizeOf(const SensorResidual& residual) {
    double size = 0;
    for (int i = 0; i < residual.count; ++i) size = std::max(size, std::abs(residual.value[i]));
    return size;
  }

  /// Chi-square where what lies beyond the limit counts as if it lay on it.
  double limitedSquares(const CameraTerms& terms,
                        const std::vector<const PointObservation*>& observations, double noise,
                        double tolerance) const {
    NormalEquations priors;
    priors.add(fit_.problem.priors, terms);
    double sum = priors.squares;
    for (const PointObservation* observation : observations) {
      const SensorResidual r = whitened(terms, *observation, noise, tolerance);
      const double square = r.value[0] * r.value[0] + (r.count > 1 ? r.value[1] * r.value[1] : 0);
      sum += std::min(square, r.count * kRejected * kRejected);
    }
    return sum;
  }

  /// The sheet curve has several minima: starts with either sign of both of its bends, as far as
  /// they lead to something about as good as the best.
  std::vector<CameraTerms> minimaFrom(const FitProblem& rough,
                                      const std::vector<const PointObservation*>& some) const {
    std::vector<CameraTerms> minima = {fit_.terms};
    if (options_.hasSheetCurve) {
      const double width = halfWidth(fit_.problem.priors);
      for (const double s1 : {-0.15 / width, 0.15 / width}) {
        for (const double sign : {-1.0, 1.0}) {
          CameraTerms start = fit_.terms;
          const double s4 = std::abs(start[kCurveTerms + 2]);
          start[kCurveTerms + 1] = s1;
          start[kCurveTerms + 2] = sign * std::max(s4, 0.001 / width);
          fitTerms(rough, some, start);
          minima.push_back(start);
        }
      }
    }
    std::vector<double> squares;
    squares.reserve(minima.size());
    for (const CameraTerms& terms : minima) {
      squares.push_back(limitedSquares(terms, some, rough.noise, 0));
    }
    const double least = *std::min_element(squares.begin(), squares.end());
    std::vector<CameraTerms> apart;
    std::vector<double> ofApart;
    for (std::size_t i = 0; i < minima.size(); ++i) {
      if (squares[i] > least + kNear) continue;
      const bool isKnown = std::any_of(ofApart.begin(), ofApart.end(), [&](double other) {
        return std::abs(other - squares[i]) < 1e-4;
      });
      if (isKnown) continue;
      apart.push_back(minima[i]);
      ofApart.push_back(squares[i]);
    }
    return apart;
  }

  /// One round of least squares over what lies within the limit, and the noise from it.
  void refine(CameraTerms& terms, double& noise,
              const std::vector<const PointObservation*>& all) const {
    FitProblem problem = fit_.problem;
    problem.noise = noise;
    std::vector<const PointObservation*> near;
    for (const PointObservation* observation : all) {
      if (sizeOf(whitened(terms, *observation, noise, problem.tolerance)) < kRejected) {
        near.push_back(observation);
      }
    }
    fitTerms(problem, near, terms);
    noise = options_.noise > 0 ? options_.noise : noiseOf(terms, near, noise);
  }

  /// The noise for which chi-square is what it should be.
  double noiseOf(const CameraTerms& terms, const std::vector<const PointObservation*>& near,
                 double before) const {
    int count = 0;
    for (const PointObservation* observation : near) count += observation->dimensions();
    const double wanted = std::max(count - kTermCount, 1);
    const auto squares = [&](double noise) {
      double sum = 0;
      for (const PointObservation* observation : near) {
        const SensorResidual r = whitened(terms, *observation, noise, fit_.problem.tolerance);
        for (int i = 0; i < r.count; ++i) sum += r.value[i] * r.value[i];
      }
      return sum;
    };
    if (fit_.problem.tolerance == 0) {
      return std::max(before * std::sqrt(squares(before) / wanted), kLeastNoise);
    }
    // Between what the tolerance leaves over and what would explain everything alone.
    double low = kLeastNoise, high = std::max(before, 1e-3);
    while (squares(high) > wanted && high < 1e6) high *= 2;
    for (int i = 0; i < 40; ++i) {
      const double middle = std::sqrt(low * high);
      (squares(middle) > wanted ? low : high) = middle;
    }
    return high;
  }

  void choose(const std::vector<CameraTerms>& ends, const std::vector<double>& noises,
              const std::vector<const PointObservation*>& all) {
    std::size_t best = 0;
    const double noise = *std::min_element(noises.begin(), noises.end());
    std::vector<double> squares;
    for (const CameraTerms& terms : ends) {
      squares.push_back(limitedSquares(terms, all, noise, fit_.problem.tolerance));
      if (squares.back() < squares[best]) best = squares.size() - 1;
    }
    fit_.terms = ends[best];
    fit_.problem.noise = noises[best];
    finish();
    const TermMatrix covariance = fit_.equations.covariance();
    for (std::size_t i = 0; i < ends.size(); ++i) {
      const double more = (squares[i] - squares[best]) / fit_.correlation;
      if (i != best && more < kReach && isApart(ends[i], covariance)) {
        fit_.others.push_back({std::exp(-more / 2), ends[i]});
      }
    }
  }

  /// Whether terms give another map than the best: somewhere on the sensor by more than a standard
  /// deviation.
  bool isApart(const CameraTerms& terms, const TermMatrix& covariance) const {
    constexpr int kPlaces = 9;
    for (int i = 0; i < kPlaces * kPlaces; ++i) {
      const int column = i % kPlaces, row = i / kPlaces;
      const Place pixel{(options_.sensorSize.x - 1.0) * column / (kPlaces - 1),
                        (options_.sensorSize.y - 1.0) * row / (kPlaces - 1)};
      const MapDerivative d = differentiate(fit_.terms, fit_.problem.radius, pixel);
      const Place other = laserFromSensor(terms, fit_.problem.radius, pixel);
      const std::array<double, 3> spread = propagate(d.terms, covariance);
      const double x = other.x - d.value[0], z = other.y - d.value[1];
      if (x * x > spread[0] || z * z > spread[2]) return true;
    }
    return false;
  }

  /// Residuals, which of them count, and what they say together.
  void finish() {
    NormalEquations& equations = fit_.equations;
    for (std::size_t i = 0; i < fit_.points.size(); ++i) {
      const SensorResidual residual = fit_.residual(i);
      fit_.used.push_back(sizeOf(residual) < kRejected ? 1 : 0);
      if (fit_.used.back() != 0) equations.add(residual);
    }
    equations.add(fit_.problem.priors, fit_.terms);
    fit_.correlation = correlationOfNeighbours();
  }

  /// The variance of the means of neighbouring residuals over that of independent ones, 1 at least.
  double correlationOfNeighbours() const {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < fit_.points.size(); ++i) {
      if (fit_.used[i] != 0) order.push_back(i);
    }
    const double band = options_.sensorSize.y / 8.0;
    const auto place = [&](std::size_t i) {
      const Place& pixel = fit_.points[i].pixel;
      return std::pair(std::floor(pixel.y / band), pixel.x);
    };
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return place(a) < place(b); });
    double squares = 0, ofMeans = 0;
    int count = 0, groups = 0;
    for (int coordinate = 0; coordinate < 2; ++coordinate) {
      double sum = 0;
      int inGroup = 0;
      for (const std::size_t i : order) {
        const SensorResidual residual = fit_.residual(i, Derivatives::kNone);
        if (coordinate >= residual.count) continue;
        const double value = residual.value[coordinate];
        squares += value * value;
        ++count;
        sum += value;
        if (++inGroup < kNeighbours) continue;
        ofMeans += sum * sum / kNeighbours;
        ++groups;
        sum = 0;
        inGroup = 0;
      }
    }
    if (groups < 4) return 1;
    return std::max(1.0, (ofMeans / groups) / (squares / count));
  }

  PointFit& fit_;
  const EstimationOptions& options_;
};

}  // namespace

Place FitFrame::fromPoint(Place point) const {
  const double c = std::cos(angle), s = std::sin(angle);
  // A coordinate that is not known leaves the other one alone where nothing is turned.
  if (angle == 0) return {point.x - middle.x, point.y - middle.y};
  return {c * point.x + s * point.y - middle.x, c * point.y - s * point.x - middle.y};
}

SensorResidual PointFit::residual(std::size_t i, Derivatives wanted) const {
  SensorResidual residual = residualOf(terms, problem.radius, points[i], wanted);
  Whitening::of(residual, points[i].weight, problem.noise, problem.tolerance)
      .apply(residual, wanted);
  return residual;
}

PointFit fitPoints(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options) {
  check(scans, options);
  PointFit fit;
  fit.points = observationsOf(scans);
  fit.problem.radius = radiusOf(options);
  fit.problem.tolerance = options.pointTolerance;
  const Place middle = middleOf(options);
  const auto begin = [&](const PlaneHomography& h) {
    std::copy_n(h.begin(), 8, fit.terms.begin());
    fit.terms[kCentreTerms] = middle.x;
    fit.terms[kCentreTerms + 1] = middle.y;
  };
  begin(startOf(fit.points, options));
  const MapDerivative d = differentiate(fit.terms, fit.problem.radius, middle);
  const double angle = std::atan(d.pixel[1][0] / d.pixel[0][0]);
  if (std::abs(angle) > kDegree) fit.frame.angle = angle;
  const Place turned = fit.frame.fromPoint({d.value[0], d.value[1]});
  fit.frame.middle = turned;
  for (PointObservation& point : fit.points) {
    if (point.dimensions() < 2 && fit.frame.angle != 0) {
      throw EstimationFailure(
          "has points with x or z alone, whose X is turned against the rows of the sensor; give "
          "both, or turn the points");
    }
    point.point = fit.frame.fromPoint(point.point);
  }
  begin(startOf(fit.points, options));
  fit.problem.priors = priorsOf(fit.terms, options);
  fit.terms[kCurveTerms] = fit.problem.priors.mean[kCurveTerms];
  Search(fit, options).run();
  return fit;
}

}  // namespace planex::estimation
