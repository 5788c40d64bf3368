#include "planex/estimation/model_fit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <utility>

#include "planex/estimation/initial_fit.h"
#include "planex/estimation/known_poses.h"

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;

constexpr std::size_t kMostFitted = std::size_t{1} << 18;
constexpr double kRejected = 4.5;  // standard deviations
constexpr double kNear = 30;       // of chi-square, between thinned minima that go on
constexpr double kReach = 60;      // of chi-square over correlation: exp(-30) is nothing
constexpr int kNeighbours = 24;

/// Half the width of the field, as it is expected.
double halfWidth(const Unknowns& unknowns) { return unknowns.deviation[kCurveTerms] / 0.1; }

double priorSquares(const Unknowns& unknowns) {
  double sum = 0;
  for (std::size_t i = 0; i < unknowns.values.size(); ++i) {
    if (unknowns.deviation[i] == 0) continue;
    const double off = (unknowns.values[i] - unknowns.mean[i]) / unknowns.deviation[i];
    sum += off * off;
  }
  return sum;
}

double sizeOf(const SensorResidual& residual) {
  double size = 0;
  for (int i = 0; i < residual.count; ++i) size = std::max(size, std::abs(residual.value[i]));
  return size;
}

/// Turns the homography and all targets in the plane.
void turnPlane(Unknowns& unknowns, Place about, double by) {
  const double c = std::cos(by), s = std::sin(by);
  double* const h = unknowns.at(0);
  for (int i = 0; i < 3; ++i) {
    const double w = i == 2 ? 1 : h[6 + i];
    const double x = h[i] - about.x * w, z = h[3 + i] - about.y * w;
    h[i] = c * x - s * z + about.x * w;
    h[3 + i] = s * x + c * z + about.y * w;
  }
  for (const Unknowns::Scan& scan : unknowns.scans) {
    if (scan.target < 0) continue;
    double* const placement = unknowns.at(scan.placement);
    const double x = placement[kPlaceX] - about.x, z = placement[kPlaceZ] - about.y;
    placement[kPlaceX] = c * x - s * z + about.x;
    placement[kPlaceZ] = s * x + c * z + about.y;
    placement[kPlaceAngle] += by;
  }
}

/// The plane turned, and the sheet curve shifted, to what is expected of them: a curve whose middle
/// lies off is as good as tilted, and the two can lead each other astray.
/// @return nothing where no target says how the plane is turned
std::optional<Unknowns> asExpected(const Unknowns& unknowns) {
  for (const Unknowns::Scan& scan : unknowns.scans) {
    if (!scan.isFound || !(unknowns.deviationOf(scan.placement + kPlaceAngle) > 0)) continue;
    Unknowns turned = unknowns;
    const double* const placement = unknowns.at(scan.placement);
    turnPlane(turned, {placement[kPlaceX], placement[kPlaceZ]},
              unknowns.meanOf(scan.placement + kPlaceAngle) - placement[kPlaceAngle]);
    *turned.at(kCurveTerms) = unknowns.meanOf(kCurveTerms);
    return turned;
  }
  return std::nullopt;
}

/// A fit on its way. What unknowns are tried are those of the fit.
class Search {
 public:
  Search(ModelFit& fit, const EstimationOptions& options) : fit_(fit), options_(options) {}

  void run() {
    FitProblem rough = fit_.problem;
    rough.precision = 1e-6;
    rough.noise = medianNoise(fit_, some());
    for (const Loss loss : {Loss::kCauchy, Loss::kCauchy, Loss::kTukey, Loss::kTukey}) {
      rough.loss = loss;
      fitUnknowns(rough, some(), fit_.unknowns);
      associate(fit_);
      rough.noise = medianNoise(fit_, some());
    }
    rejectPoses(fit_.unknowns);
    std::vector<Unknowns> ends;
    std::vector<double> noises;
    for (Unknowns& start : minimaFrom(rough)) {
      fit_.unknowns = std::move(start);
      fit_.problem.noise = rough.noise;
      for (int round = 0; round < 3; ++round) refine(kMostFitted);
      ends.push_back(fit_.unknowns);
      noises.push_back(fit_.problem.noise);
    }
    choose(ends, noises);
  }

  /// One round of least squares over what lies within the limit, and the noise from it.
  void refine(std::size_t most) {
    associate(fit_);
    std::vector<const Observation*> near;
    for (const Observation* observation : thinned(fit_.observations, most)) {
      if (sizeOf(whitened(*observation, fit_.problem.noise)) < kRejected) {
        near.push_back(observation);
      }
    }
    fitUnknowns(fit_.problem, near, fit_.unknowns);
    fit_.problem.noise = options_.noise > 0 ? options_.noise : noiseOf(near);
  }

  /// Which observations count, and what they say together.
  void finish() {
    associate(fit_);
    fit_.equations = NormalEquations(fit_.unknowns.values.size());
    fit_.used.clear();
    for (std::size_t i = 0; i < fit_.observations.size(); ++i) {
      fit_.used.push_back(0);
      if (fit_.observations[i].edge == Observation::kNothing) continue;
      const SensorResidual residual = fit_.residual(i);
      if (!(sizeOf(residual) < kRejected)) continue;
      fit_.used.back() = 1;
      fit_.equations.add(residual, fit_.observations[i], fit_.unknowns);
    }
    fit_.equations.addPriors(fit_.unknowns);
    fit_.correlation = correlationOfNeighbours();
  }

 private:
  std::vector<const Observation*> some() const { return thinned(fit_.observations, kThinned); }

  SensorResidual whitened(const Observation& observation, double noise) const {
    SensorResidual residual =
        residualOf(fit_.unknowns, fit_.problem.radius, observation, Derivatives::kNone);
    Whitening::of(residual, observation.weight, noise, fit_.problem.tolerance)
        .apply(residual, Derivatives::kNone);
    return residual;
  }

  /// Chi-square where what lies beyond the limit counts as if it lay on it.
  double limitedSquares(const Unknowns& unknowns,
                        const std::vector<const Observation*>& observations, double noise,
                        double tolerance) const {
    double sum = priorSquares(unknowns);
    for (const Observation* observation : observations) {
      SensorResidual r =
          residualOf(unknowns, fit_.problem.radius, *observation, Derivatives::kNone);
      Whitening::of(r, observation->weight, noise, tolerance).apply(r, Derivatives::kNone);
      const double square = r.value[0] * r.value[0] + (r.count > 1 ? r.value[1] * r.value[1] : 0);
      sum += std::min(square, r.count * kRejected * kRejected);
    }
    return sum;
  }

  /// The sheet curve has several minima: starts with either sign of both of its bends, as far as
  /// they lead to something about as good as the best.
  std::vector<Unknowns> minimaFrom(FitProblem problem) const {
    problem.precision = 1e-10;  // to tell whether two ends are one
    std::vector<Unknowns> minima = {fit_.unknowns};
    if (options_.hasSheetCurve) {
      fitUnknowns(problem, some(), minima.front());
      const double width = halfWidth(fit_.unknowns);
      std::vector<Unknowns> places = {fit_.unknowns};
      if (auto turned = asExpected(fit_.unknowns)) places.push_back(*std::move(turned));
      for (const Unknowns& place : places) {
        for (const double s1 : {-0.15 / width, 0.15 / width}) {
          for (const double sign : {-1.0, 1.0}) {
            Unknowns start = place;
            double* const curve = start.at(kCurveTerms);
            curve[1] = s1;
            curve[2] = sign * std::max(std::abs(curve[2]), 0.001 / width);
            fitUnknowns(problem, some(), start);
            minima.push_back(std::move(start));
          }
        }
      }
    }
    std::vector<double> squares;
    squares.reserve(minima.size());
    for (const Unknowns& unknowns : minima) {
      squares.push_back(limitedSquares(unknowns, some(), problem.noise, 0));
    }
    const double least = *std::min_element(squares.begin(), squares.end());
    std::vector<Unknowns> apart;
    std::vector<double> ofApart;
    for (std::size_t i = 0; i < minima.size(); ++i) {
      if (squares[i] > least + kNear) continue;
      const bool isKnown = std::any_of(ofApart.begin(), ofApart.end(), [&](double other) {
        return std::abs(other - squares[i]) < 1e-3;
      });
      if (isKnown) continue;
      apart.push_back(std::move(minima[i]));
      ofApart.push_back(squares[i]);
    }
    return apart;
  }

  /// The noise for which chi-square is what it should be.
  double noiseOf(const std::vector<const Observation*>& near) const {
    int count = 0, determined = kTermCount;
    for (const Observation* observation : near) count += observation->dimensions();
    for (const Unknowns::Scan& scan : fit_.unknowns.scans) determined += scan.isFound ? 3 : 0;
    const double wanted = std::max(count - determined, 1);
    const double before = fit_.problem.noise;
    const auto squares = [&](double noise) {
      double sum = 0;
      for (const Observation* observation : near) {
        const SensorResidual r = whitened(*observation, noise);
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

  void choose(const std::vector<Unknowns>& ends, const std::vector<double>& noises) {
    std::size_t best = 0;
    const double noise = *std::min_element(noises.begin(), noises.end());
    const auto all = thinned(fit_.observations, kMostFitted);
    std::vector<double> squares;
    for (const Unknowns& unknowns : ends) {
      squares.push_back(limitedSquares(unknowns, all, noise, fit_.problem.tolerance));
      if (squares.back() < squares[best]) best = squares.size() - 1;
    }
    fit_.unknowns = ends[best];
    fit_.problem.noise = noises[best];
    finish();
    const TermMatrix covariance = termsOf(fit_.equations.covariance());
    for (std::size_t i = 0; i < ends.size(); ++i) {
      const double more = (squares[i] - squares[best]) / fit_.correlation;
      if (i != best && more < kReach && isApart(ends[i].terms(), covariance)) {
        fit_.others.push_back({std::exp(-more / 2), ends[i].terms()});
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
      const MapDerivative d = differentiate(fit_.terms(), fit_.problem.radius, pixel);
      const Place other = laserFromSensor(terms, fit_.problem.radius, pixel);
      const std::array<double, 3> spread = propagate(d.terms, covariance);
      const double x = other.x - d.value[0], z = other.y - d.value[1];
      if (x * x > spread[0] || z * z > spread[2]) return true;
    }
    return false;
  }

  /// The variance of the means of neighbouring residuals over that of independent ones, 1 at least.
  double correlationOfNeighbours() const {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < fit_.observations.size(); ++i) {
      if (fit_.used[i] != 0) order.push_back(i);
    }
    const double band = options_.sensorSize.y / 8.0;
    const auto place = [&](std::size_t i) {
      const Observation& observation = fit_.observations[i];
      const Place& pixel = observation.pixel;
      const bool isPoint = observation.edge == Observation::kPoint;
      return std::pair(isPoint ? std::floor(pixel.y / band) : -1.0 - observation.scan, pixel.x);
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

  ModelFit& fit_;
  const EstimationOptions& options_;
};

}  // namespace

Place FitFrame::fromPoint(Place point) const {
  const double c = std::cos(angle), s = std::sin(angle);
  // A coordinate that is not known leaves the other one alone where nothing is turned.
  if (angle == 0) return {point.x - middle.x, point.y - middle.y};
  return {c * point.x + s * point.y - middle.x, c * point.y - s * point.x - middle.y};
}

SensorResidual ModelFit::residual(std::size_t i, Derivatives wanted) const {
  const Observation& observation = observations[i];
  SensorResidual residual = residualOf(unknowns, problem.radius, observation, wanted);
  Whitening::of(residual, observation.weight, problem.noise, problem.tolerance)
      .apply(residual, wanted);
  return residual;
}

ModelFit fitModel(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options) {
  requireMeasurements(scans, options);
  ModelFit fit = initialFit(scans, options);
  Search(fit, options).run();
  return fit;
}

TargetStretch stretchOf(const ModelFit& fit, std::size_t target, const EstimationOptions& options) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  if (isPlate(fit.unknowns.targets[target].profile)) return {kNone, kNone};
  ModelFit free = fit;
  const int place = free.unknowns.targets[target].size + kSizeWidening;
  const double expected = free.unknowns.mean[static_cast<std::size_t>(place)];
  free.unknowns.expect(place, expected, 0);
  Search search(free, options);
  for (int round = 0; round < 3; ++round) search.refine(kThinned);
  search.finish();
  const auto i = static_cast<std::size_t>(place);
  const std::vector<double> covariance = free.equations.covariance();
  const double last = stepOf(covariance, free.equations.gradient)[i];  // from all observations
  const double variance = covariance[i * (free.unknowns.values.size() + 1)];
  return {free.unknowns.values[i] + last - expected, std::sqrt(variance * free.correlation)};
}

}  // namespace planex::estimation
