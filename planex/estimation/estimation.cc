#include "planex/estimation/estimation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "planex/estimation/model_fit.h"
#include "planex/estimation/plain_format.h"
#include "planex/foundation/matrix.h"

namespace planex::estimation {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::ModelState;
using Place = cmnalg::Vec<2, double>;

constexpr int kRegionColumns = 64, kRegionRows = 32;

/// Displacement in the plane that a residual on the sensor stands for.
Place inPlane(const ModelFit& fit, std::size_t i) {
  const Observation& observation = fit.observations[i];
  MapDerivative d;
  differentiateByPixel(fit.terms(), fit.problem.radius, observation.pixel, d);
  const SensorResidual r =
      residualOf(fit.unknowns, fit.problem.radius, observation, Derivatives::kNone);
  const auto displaced = [&](double columns, double rows) {
    return Place{d.pixel[0][0] * columns + d.pixel[0][1] * rows,
                 d.pixel[1][0] * columns + d.pixel[1][1] * rows};
  };
  if (r.count == 2) return displaced(r.value[0], r.value[1]);
  if (observation.edge != Observation::kPoint) return displaced(0, r.value[0]);
  const int known = std::isnan(observation.point.x) ? 1 : 0;
  const double by = r.value[0] * std::hypot(d.pixel[known][0], d.pixel[known][1]);
  return known == 0 ? Place{by, 0} : Place{0, by};
}

/// Homography, lens and sheet curve for another focal length and origin.
void setTerms(const ModelFit& fit, const EstimationOptions& options, CalibrationModel& model) {
  const CameraTerms t = fit.terms();
  const double focalLength = options.focalLength > 0 ? options.focalLength : fit.problem.radius;
  const double k = focalLength / fit.problem.radius;
  const Place& middle = fit.frame.middle;
  const double h[9] = {t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], 1};
  double out[9];
  for (int i = 0; i < 3; ++i) {
    const double scale = i < 2 ? k : 1;
    out[i] = scale * (h[i] + middle.x * h[6 + i]);
    out[3 + i] = scale * (h[3 + i] + middle.y * h[6 + i]);
    out[6 + i] = scale * h[6 + i];
  }
  model.Homography = cmnalg::Matrix<double>::FromRows(3, 3, out);
  model.FocalLength = focalLength;
  model.LensCenter = {t[kCentreTerms], t[kCentreTerms + 1]};
  for (std::size_t i = 0; i < 7; ++i) {
    const double power = i < 3 ? 2.0 * (static_cast<double>(i) + 1) : 1;
    model.LensCoefficients[i] = t[kLensTerms + i] * std::pow(k, power);
  }
  if (!options.hasSheetCurve) return;
  // Z = z + middle: 1 + s1 z is (1 - s1 middle) (1 + s1 / (1 - s1 middle) Z).
  const double* const s = t.data() + kCurveTerms;
  const double q = 1 - s[1] * middle.y;
  model.SheetCurve = {s[0] + middle.x, s[1] / q, 0, 0, s[2] * q * q, s[3] * q * q * q};
}

void setPose(const ModelFit& fit, CalibrationModel& model) {
  if (fit.frame.angle == 0) return;
  const double c = std::cos(fit.frame.angle), s = std::sin(fit.frame.angle);
  const double pose[16] = {c, 0, -s, 0, 0, 1, 0, 0, s, 0, c, 0, 0, 0, 0, 1};
  model.Pose = cmnalg::Matrix<double>::FromRows(4, 4, pose);
  model.CurrentState = ModelState::CALIBRATED_ALIGNED_2D;
  model.AlignmentError = model.AlignmentErrorMax = 0;
}

/// Where the target of a scan stands, in the calibrated system.
void addPlacement(const ModelFit& fit, std::size_t scan, ScanFit& result) {
  const Unknowns::Scan& place = fit.unknowns.scans[scan];
  if (place.target < 0) return;
  const double* const values = fit.unknowns.at(place.placement);
  result.isFound = place.isFound;
  result.x = values[kPlaceX] + fit.frame.middle.x;
  result.z = values[kPlaceZ] + fit.frame.middle.y;
  result.angle = values[kPlaceAngle];
}

void addScans(const ModelFit& fit, const std::vector<ScanMeasurement>& scans,
              Estimation& estimation) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  double squares = 0;
  std::size_t place = 0;
  for (const ScanMeasurement& scan : scans) {
    ScanFit result;
    result.name = scan.name;
    result.given = scan.pixels.size();
    double ofScan = 0;
    for (std::size_t i = 0; i < result.given; ++i, ++place) {
      const bool isOnTarget = scan.target != nullptr;
      if (fit.observations[place].edge == Observation::kNothing) {
        result.residuals.push_back({kNone, kNone});
        ++result.leftOut;
        continue;
      }
      const Place off = fit.used[place] != 0 || isOnTarget ? inPlane(fit, place) : Place{};
      if (isOnTarget) result.residuals.push_back({-off.x, -off.y});
      if (fit.used[place] == 0) {
        result.rejected.push_back(i);
        continue;
      }
      const double square = off.x * off.x + off.y * off.y;
      ofScan += square;
      estimation.largest = std::max(estimation.largest, std::sqrt(square));
    }
    const std::size_t used = result.given - result.leftOut - result.rejected.size();
    if (used > 0) result.rms = std::sqrt(ofScan / static_cast<double>(used));
    squares += ofScan;
    estimation.given += result.given - result.leftOut;
    estimation.used += used;
    addPlacement(fit, estimation.scans.size(), result);
    estimation.scans.push_back(std::move(result));
  }
  if (estimation.used > 0)
    estimation.rms = std::sqrt(squares / static_cast<double>(estimation.used));
}

void addHeldOut(const ModelFit& fit, Estimation& estimation) {
  const std::vector<double> heldOut = heldOutScans(fit);
  double squares = 0;
  int count = 0;
  for (std::size_t i = 0; i < heldOut.size(); ++i) {
    estimation.scans[i].heldOut = heldOut[i];
    squares += heldOut[i] * heldOut[i];
    count += heldOut[i] > 0 ? 1 : 0;
  }
  if (count > 0) estimation.heldOut = std::sqrt(squares / count);
}

MapUncertainty uncertaintyOf(const ModelFit& fit, const EstimationOptions& options) {
  MapUncertainty::Parts parts;
  parts.radius = fit.problem.radius;
  parts.terms = fit.terms();
  parts.covariance = termsOf(fit.equations.covariance());
  for (double& value : parts.covariance) value *= fit.correlation;
  parts.others = fit.others;
  if (fit.isFrameFree) parts.frame = MapUncertainty::Frame::kRigid;
  parts.shift = fit.frame.middle;
  parts.sensorSize = options.sensorSize;
  parts.noise = fit.problem.noise;
  for (std::size_t i = 0; i < fit.observations.size(); ++i) {
    if (fit.used[i] != 0) parts.measured.push_back(fit.observations[i].pixel);
  }
  return MapUncertainty(std::move(parts));
}

/// Whether more scans would make the model a good one, as far as findings tell.
bool mayBeGood(const std::vector<Finding>& findings) {
  return std::all_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.level != Verdict::kBad || finding.code == std::string("tolerance");
  });
}

}  // namespace

EstimationFailure::~EstimationFailure() = default;

Verdict Estimation::verdict() const {
  Verdict worst = Verdict::kGood;
  for (const Finding& finding : findings) worst = std::max(worst, finding.level);
  return worst;
}

std::string Estimation::sentence(const std::string& unit) const {
  const char* const words[] = {"Good", "Doubtful", "Bad"};
  return plainFormat("%s: over %.0f %% of the sensor the map is known to %.2g %s (95 %%).",
                     words[static_cast<int>(verdict())], 100 * measured, largest95, unit.c_str());
}

std::string Estimation::advice(const std::string& unit) const {
  if (!next) return "";
  constexpr double kLevel = 0.05;  // degrees
  const double tilt = next->scan.angle / kDegree;
  const std::string how =
      std::abs(tilt) > kLevel ? plainFormat("tilted by %.3g degrees", tilt) : "level";
  return plainFormat(
      "A further scan of the target with its origin at X = %.1f, Z = %.1f %s, %s, would "
      "tell most: the middle nine tenths of the sensor would be known to %.2g %s (95 %%), "
      "not %.2g.",
      next->scan.x, next->scan.z, unit.c_str(), how.c_str(), next->scan.largest95, unit.c_str(),
      next->largest95Before);
}

CalibrationModel modelOf(const ModelFit& fit, const EstimationOptions& options) {
  CalibrationModel model;
  model.SensorSize = {options.sensorSize.x, options.sensorSize.y};
  model.CurrentState = ModelState::CALIBRATED;
  setTerms(fit, options, model);
  setPose(fit, model);
  etl::Vector<etl::Vector<Place>> points, residuals;
  for (std::size_t i = 0; i < fit.observations.size(); ++i) {
    if (fit.used[i] == 0) continue;
    const auto scan = static_cast<std::size_t>(fit.observations[i].scan);
    if (points.size() <= scan) {
      points.resize(scan + 1);
      residuals.resize(scan + 1);
    }
    const Place place = fit.inPlane(fit.observations[i].pixel);
    points[scan].push_back({place.x + fit.frame.middle.x, place.y + fit.frame.middle.y});
    residuals[scan].push_back(inPlane(fit, i));
  }
  datafusion::planex::CalibratedRegion region;
  if (region.Resize(kRegionColumns, kRegionRows) && region.Update(points, residuals)) {
    model.CalibratedRegion = region;
  }
  return model;
}

Estimation estimateModel(const std::vector<ScanMeasurement>& scans,
                         const EstimationOptions& options) {
  const ModelFit fit = fitModel(scans, options);
  Estimation estimation;
  estimation.model = modelOf(fit, options);
  estimation.uncertainty = uncertaintyOf(fit, options);
  estimation.isFrameFree = fit.isFrameFree;
  addScans(fit, scans, estimation);
  estimation.model.CalibrationError = estimation.rms;
  estimation.model.CalibrationErrorMax = estimation.largest;
  estimation.noise = fit.problem.noise;
  estimation.correlation = fit.correlation;
  if (fit.unknowns.targets.empty()) {
    estimation.heldOut = heldOutPatches(fit);
  } else {
    addHeldOut(fit, estimation);
    for (std::size_t i = 0; i < fit.unknowns.targets.size(); ++i) {
      estimation.stretches.push_back(stretchOf(fit, i, options));
    }
  }
  estimation.measured = estimation.uncertainty.measuredShare(options.sensorSize);
  estimation.largest95 = estimation.uncertainty.largestRadius95();
  estimation.findings = findingsOf(fit, scans, options, estimation);
  if (mayBeGood(estimation.findings)) estimation.next = nextScan(fit, options);
  return estimation;
}

}  // namespace planex::estimation
