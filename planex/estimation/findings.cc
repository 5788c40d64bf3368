#include <algorithm>
#include <cmath>
#include <complex>
#include <optional>

#include "planex/estimation/model_fit.h"
#include "planex/estimation/plain_format.h"

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;
using Complex = std::complex<double>;

/// A limit with two levels.
struct Limit {
  double doubtful, bad;
};

class Findings {
 public:
  void add(Verdict level, const char* code, std::string text) {
    list_.push_back({level, code, std::move(text)});
  }
  /// Where a value is above a limit.
  void judge(double value, const Limit& limit, const char* code, const std::string& text) {
    if (value > limit.bad) {
      add(Verdict::kBad, code, text);
    } else if (value > limit.doubtful) {
      add(Verdict::kDoubtful, code, text);
    }
  }
  std::vector<Finding> take() { return std::move(list_); }

 private:
  std::vector<Finding> list_;
};

/// How given places depart from predicted ones as a whole: given = factor predicted + shift, or of
/// mirrored ones.
struct Similarity {
  bool isMirrored = false;
  double scale = 1, deviation = 0;  ///< the scale's own standard deviation, at noise 1
  double shift = 0;                 ///< of the middle, in units of the noise
};

Similarity similarityOf(const std::vector<Place>& predicted, const std::vector<Place>& given,
                        double noise) {
  const auto mean = [](const std::vector<Place>& places) {
    Complex sum;
    for (const Place& p : places) sum += Complex(p.x, p.y);
    return sum / static_cast<double>(places.size());
  };
  const Complex from = mean(predicted), to = mean(given);
  Complex straight, mirrored;
  double squares = 0;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const Complex a = Complex(predicted[i].x, predicted[i].y) - from;
    const Complex b = Complex(given[i].x, given[i].y) - to;
    straight += std::conj(a) * b;
    mirrored += a * b;
    squares += std::norm(a);
  }
  Similarity result;
  result.isMirrored = std::abs(mirrored) > std::abs(straight);
  result.scale = std::max(std::abs(mirrored), std::abs(straight)) / squares;
  result.deviation = noise / std::sqrt(squares);
  result.shift = std::abs(to - from) / noise;
  return result;
}

/// The terms without the points of one scan.
CameraTerms withoutScan(const ModelFit& fit, int scan) {
  NormalEquations own(fit.unknowns.values.size());
  for (std::size_t i = 0; i < fit.observations.size(); ++i) {
    if (fit.used[i] != 0 && fit.observations[i].scan == scan)
      own.add(fit.residual(i), fit.observations[i], fit.unknowns);
  }
  NormalEquations others = fit.equations;
  others.subtract(own);
  CameraTerms terms = fit.terms();
  const std::vector<double> step = stepOf(others.covariance(), others.gradient);
  for (std::size_t i = 0; i < terms.size(); ++i) terms[i] += step[i];
  return terms;
}

void judgeGroups(const ModelFit& fit, const std::vector<ScanMeasurement>& scans,
                 Findings& findings) {
  constexpr std::size_t kLeast = 8;
  if (scans.size() < 2) return;
  MapDerivative d;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    if (scans[s].target) continue;
    const CameraTerms terms = withoutScan(fit, static_cast<int>(s));
    std::vector<Place> predicted, given;
    double noise = 0;
    std::size_t rejected = 0;
    for (std::size_t i = 0; i < fit.observations.size(); ++i) {
      const Observation& point = fit.observations[i];
      if (point.scan != static_cast<int>(s) || point.dimensions() < 2) continue;
      differentiateByPixel(terms, fit.problem.radius, point.pixel, d);
      predicted.push_back({d.value[0], d.value[1]});
      given.push_back(point.point);
      noise += fit.problem.noise * std::hypot(d.pixel[0][0], d.pixel[1][1]);
      rejected += fit.used[i] == 0 ? 1 : 0;
    }
    if (given.size() < kLeast || 2 * rejected < given.size()) continue;
    noise /= static_cast<double>(given.size());
    const Similarity found = similarityOf(predicted, given, noise);
    const char* const name = scans[s].name.c_str();
    if (found.isMirrored) {
      findings.add(Verdict::kBad, "group",
                   plainFormat("The points of %s are mirrored against the others.", name));
    } else if (std::abs(found.scale - 1) > 0.01 + 5 * found.deviation) {
      findings.add(
          Verdict::kBad, "group",
          plainFormat("The points of %s are %.4g times as large as the others say; is their "
                      "unit another one?",
                      name, found.scale));
    } else if (found.shift > 20) {
      findings.add(Verdict::kBad, "group",
                   plainFormat("The points of %s lie %.3g away from where the others have them.",
                               name, found.shift * noise));
    } else {
      findings.add(Verdict::kBad, "group",
                   plainFormat("Most points of %s contradict the others.", name));
    }
  }
}

/// Names of scans for which something holds, and how many there are.
template <typename Holds>
std::pair<std::string, int> namesOf(const Estimation& estimation, const Holds& holds) {
  std::string names;
  int count = 0;
  for (const ScanFit& scan : estimation.scans) {
    if (!holds(scan)) continue;
    names += (count == 0 ? "" : ", ") + scan.name;
    ++count;
  }
  return {names, count};
}

/// Whether targets stand where they were said to.
void judgePoses(const ModelFit& fit, const Estimation& estimation, Findings& findings) {
  std::string names;
  std::size_t told = 0, wrong = 0;
  for (std::size_t s = 0; s < fit.unknowns.scans.size(); ++s) {
    const Unknowns::Scan& scan = fit.unknowns.scans[s];
    told += scan.hasPose || scan.isPoseWrong ? 1 : 0;
    if (!scan.isPoseWrong) continue;
    names += (wrong == 0 ? "" : ", ") + estimation.scans[s].name;
    ++wrong;
  }
  if (wrong == 0) return;
  findings.add(4 * wrong > told ? Verdict::kBad : Verdict::kDoubtful, "pose",
               "What is said of where the target stood in " + names +
                   " contradicts the scans by more than 6 of its uncertainties and was left out.");
}

void judgeTargets(const ModelFit& fit, const Estimation& estimation,
                  const EstimationOptions& options, Findings& findings) {
  const auto lost = namesOf(estimation, [](const ScanFit& scan) { return !scan.isFound; });
  if (lost.second > 0) {
    findings.add(Verdict::kDoubtful, "left-out",
                 "The target was not found in " + lost.first + ", which was left out.");
  }
  const auto odd = namesOf(estimation, [](const ScanFit& scan) { return scan.heldOut > 2.5; });
  if (odd.second > 0) {
    const bool isBad = 4 * static_cast<std::size_t>(odd.second) > estimation.scans.size();
    findings.add(isBad ? Verdict::kBad : Verdict::kDoubtful, "scan",
                 odd.first + (odd.second == 1 ? " contradicts" : " contradict") +
                     " the other scans; did the target move, is it turned, or another one?");
  }
  judgePoses(fit, estimation, findings);
  for (std::size_t i = 0; i < estimation.stretches.size(); ++i) {
    const TargetStretch& found = estimation.stretches[i];
    const TargetProfile& profile = fit.unknowns.targets[i].profile;
    double low = profile.corners[0].y, high = low;
    for (const auto& corner : profile.corners) {
      low = std::min(low, corner.y);
      high = std::max(high, corner.y);
    }
    const double allowed = 3 * profile.tolerance / std::max(high - low, 1e-300) + 2e-4;
    if (std::abs(found.stretch) > 5 * found.deviation && std::abs(found.stretch) > allowed) {
      findings.add(
          Verdict::kBad, "target",
          plainFormat("The target is %.4g times as wide as its description says (+-%.2g), for "
                      "its height; measure it again.",
                      1 + found.stretch, 2 * found.deviation));
    } else if (found.deviation > 1e-3) {
      findings.add(Verdict::kDoubtful, "target-unchecked",
                   "Nothing checks the width of the target against its height; add scans in which "
                   "it is tilted by some 10 degrees in the laser plane.");
    }
  }
  if (fit.isLookGuessed) {
    findings.add(Verdict::kBad, "upside-down",
                 "The target looks the same upside down or mirrored; say how the sensor looks at "
                 "it with --up and --right.");
  }
  if (!estimation.stretches.empty() && fit.problem.noise > (options.noise > 0 ? 1e300 : 0.5)) {
    findings.add(
        fit.problem.noise > 3 ? Verdict::kBad : Verdict::kDoubtful, "residual",
        plainFormat("Profiles scatter by %.2g pixels about the edges of the target; see how "
                    "lines are found, and whether it stood still.",
                    fit.problem.noise));
  }
}

/// Whether the map keeps its orientation all over the sensor.
bool isMonotone(const ModelFit& fit, const EstimationOptions& options) {
  constexpr int kPlaces = 65;
  MapDerivative d;
  double sign = 0;
  for (int row = 0; row < kPlaces; ++row) {
    for (int column = 0; column < kPlaces; ++column) {
      differentiateByPixel(fit.terms(), fit.problem.radius,
                           {(options.sensorSize.x - 1) * (column / (kPlaces - 1.0)),
                            (options.sensorSize.y - 1) * (row / (kPlaces - 1.0))},
                           d);
      const double determinant = d.pixel[0][0] * d.pixel[1][1] - d.pixel[0][1] * d.pixel[1][0];
      if (sign == 0) sign = determinant;
      if (!(determinant * sign > 0)) return false;
    }
  }
  return true;
}

}  // namespace

std::vector<Finding> findingsOf(const ModelFit& fit, const std::vector<ScanMeasurement>& scans,
                                const EstimationOptions& options, const Estimation& estimation) {
  Findings findings;
  const double rejected =
      1 - static_cast<double>(estimation.used) / static_cast<double>(estimation.given);
  findings.judge(rejected, {0.1, 0.35}, "rejected",
                 plainFormat("%.0f %% of the points contradict the others and were left out.",
                             100 * rejected));
  if (fit.unknowns.targets.empty())
    findings.judge(
        fit.problem.noise, {1, 6}, "residual",
        plainFormat("Points scatter by %.2g pixels; see how lines are found, and whether the "
                    "target stood still.",
                    fit.problem.noise));
  if (estimation.measured < 0.5) {
    findings.add(
        Verdict::kDoubtful, "support",
        plainFormat("Only %.0f %% of the sensor was measured.", 100 * estimation.measured));
  }
  judgeGroups(fit, scans, findings);
  judgeTargets(fit, estimation, options, findings);
  if (fit.correlation > 25) {
    findings.add(
        Verdict::kDoubtful, "misfit",
        plainFormat("Neighbouring residuals go the same way (%.0f times the variance of "
                    "independent ones): the model does not describe this camera, or the points "
                    "are off in common.",
                    fit.correlation));
  }
  for (const MapUncertainty::OtherMinimum& other : fit.others) {
    if (other.weight < std::exp(-6)) continue;
    findings.add(Verdict::kDoubtful, "ambiguous",
                 "Another shape of the laser sheet fits about as well; measure more heights.");
    break;
  }
  MapDerivative d;
  const Place middle{(options.sensorSize.x - 1) / 2.0, (options.sensorSize.y - 1) / 2.0};
  differentiateByPixel(fit.terms(), fit.problem.radius, middle, d);
  const double aspect =
      std::hypot(d.pixel[0][1], d.pixel[1][1]) / std::hypot(d.pixel[0][0], d.pixel[1][0]);
  if (!(aspect > 0.4 && aspect < 15)) {
    findings.add(
        Verdict::kBad, "aspect",
        plainFormat("A row is %.2g columns wide in the plane; are rows in another unit, or X "
                    "and Z?",
                    aspect));
  }
  if (!isMonotone(fit, options)) {
    findings.add(Verdict::kBad, "not-monotone",
                 "The map folds over, or has its horizon, on the sensor; measure places near the "
                 "edges.");
  }
  if (estimation.largest95 > options.neededUncertainty) {
    findings.add(
        Verdict::kBad, "tolerance",
        plainFormat("The map is known to %.2g %s, not to the %.2g that are needed.",
                    estimation.largest95, options.unit.c_str(), options.neededUncertainty));
  }
  return findings.take();
}

}  // namespace planex::estimation
