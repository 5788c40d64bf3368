#include "planex/estimation/pose_plan.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <utility>

#include "planex/estimation/initial_fit.h"

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

constexpr int kColumnStep = 8;  // columns that one observation stands for
constexpr double kUsualNoise = 0.1;

/// The terms of a model, in its calibrated system.
CameraTerms termsOf(const datafusion::planex::CalibrationModel& model, double radius) {
  CameraTerms terms{};
  const double k = radius / model.FocalLength;
  const auto& h = model.Homography;
  for (int i = 0; i < 8; ++i) {
    terms[static_cast<std::size_t>(i)] = h[i / 3][i % 3] / h[2][2] * (i % 3 < 2 ? k : 1);
  }
  for (std::size_t i = 0; i < 7; ++i) {
    const double power = i < 3 ? 2.0 * (static_cast<double>(i) + 1) : 1;
    terms[kLensTerms + i] = model.LensCoefficients[i] * std::pow(k, power);
  }
  terms[kCentreTerms] = model.LensCenter.x;
  terms[kCentreTerms + 1] = model.LensCenter.y;
  if (model.SheetCurve.size() == 6) {  // s2 and s3, a shift and a shear, change no uncertainty
    const std::size_t places[] = {0, 1, 4, 5};
    for (std::size_t i = 0; i < 4; ++i) terms[kCurveTerms + i] = model.SheetCurve[places[i]];
  }
  return terms;
}

/// The information of one scan on what all scans share: the terms, the size and corners of the
/// target.
class ScanInformation {
 public:
  ScanInformation(const Unknowns& unknowns, double radius, double noise, cmnalg::Vec<2, int> size)
      : unknowns_(unknowns), radius_(radius), noise_(noise), size_(size) {}

  /// @param isFirst its target says where the frame is
  /// @return the columns that see an edge
  int of(const PlannedScan& pose, bool isFirst, Matrix& information) {
    Unknowns::Scan& scan = unknowns_.scans[0];
    double* const placement = unknowns_.at(scan.placement);
    placement[kPlaceX] = pose.x;
    placement[kPlaceZ] = pose.z;
    placement[kPlaceAngle] = pose.angle;
    NormalEquations equations(unknowns_.values.size());
    const Unknowns::Target& target = unknowns_.targets[0];
    const auto edges = static_cast<int>(target.profile.corners.size()) - 1;
    int seen = 0;
    for (int edge = 0; edge < edges; ++edge) {
      const PlacedEdge placed(unknowns_, scan, edge);
      if (!(std::abs(placed.to.y - placed.from.y) <
            kSteepestEdge * (placed.to.x - placed.from.x))) {
        continue;
      }
      seen += addEdge(placed, edge, equations);
    }
    const auto shared = static_cast<Eigen::Index>(unknowns_.values.size() - kPlacementCount);
    const auto all = shared + kPlacementCount;
    Eigen::Map<Matrix> sum(equations.matrix.data(), all, all);
    // What is expected of the placement; the rest is expected once, not for each scan.
    const double deviations[] = {isFirst ? kExact : 0, isFirst ? kExact : 0, isFirst ? kDegree : 0,
                                 unknowns_.deviationOf(scan.placement + kPlaceWidening)};
    for (int i = 0; i < kPlacementCount; ++i) {
      if (deviations[i] > 0) sum(shared + i, shared + i) += 1 / (deviations[i] * deviations[i]);
    }
    const Matrix ofPlacement = sum.bottomRightCorner(kPlacementCount, kPlacementCount);
    const Matrix mixed = sum.topRightCorner(shared, kPlacementCount);
    information =
        sum.topLeftCorner(shared, shared) -
        mixed * ofPlacement.completeOrthogonalDecomposition().pseudoInverse() * mixed.transpose();
    return seen;
  }

 private:
  /// The pixel that shows a place; nothing on the sensor where there is none.
  Place pixelOf(Place place) const {
    Observation observation;
    observation.pixel = {(size_.x - 1) / 2.0, (size_.y - 1) / 2.0};
    observation.point = place;
    const SensorResidual r =
        residualOf(unknowns_.terms(), radius_, observation, nullptr, Derivatives::kNone);
    return {observation.pixel.x - r.value[0], observation.pixel.y - r.value[1]};
  }

  bool isOnSensor(Place pixel) const {
    return pixel.x > 0 && pixel.x < size_.x - 1 && pixel.y > 0 && pixel.y < size_.y - 1;
  }

  int addEdge(const PlacedEdge& edge, int index, NormalEquations& equations) const {
    const double length = std::hypot(edge.to.x - edge.from.x, edge.to.y - edge.from.y);
    const double margin = unknowns_.targets[0].profile.margin / length;
    if (!(margin < 0.5)) return 0;
    const auto at = [&](double part) {
      return pixelOf(edge.place({edge.from.x + part * (edge.to.x - edge.from.x),
                                 edge.from.y + part * (edge.to.y - edge.from.y)}));
    };
    const double columns = std::abs(at(1 - margin).x - at(margin).x);
    if (!(columns > 1) || columns > 2.0 * size_.x) return 0;
    const int count = std::max(static_cast<int>(columns / kColumnStep), 1);
    int seen = 0;
    for (int i = 0; i < count; ++i) {
      Observation observation;
      observation.pixel = at(margin + (1 - 2 * margin) * (i + 0.5) / count);
      if (!isOnSensor(observation.pixel)) continue;
      observation.edge = index;
      observation.weight = 1 / std::sqrt(columns / count);
      SensorResidual residual = residualOf(unknowns_, radius_, observation);
      Whitening::of(residual, observation.weight, noise_, 0).apply(residual);
      equations.add(residual, observation, unknowns_);
      seen += static_cast<int>(columns / count);
    }
    return seen;
  }

  Unknowns unknowns_;
  double radius_, noise_;
  cmnalg::Vec<2, int> size_;
};

/// Poses to choose from.
std::vector<PlannedScan> candidates(const CameraTerms& terms, double radius,
                                    const TargetProfile& target, cmnalg::Vec<2, int> size) {
  const auto [first, last] = std::pair(target.corners.front().x, target.corners.back().x);
  double low = target.corners[0].y, high = low;
  for (const Place& corner : target.corners) {
    low = std::min(low, corner.y);
    high = std::max(high, corner.y);
  }
  const Place middle{(first + last) / 2, (low + high) / 2};
  constexpr double kRows[] = {0.15, 0.38, 0.62, 0.85};  // of the sensor
  std::vector<PlannedScan> poses;
  for (const double row : kRows) {
    const Place at = laserFromSensor(terms, radius, {(size.x - 1) / 2.0, row * (size.y - 1)});
    for (int tilt = -2; tilt <= 2; ++tilt) {
      PlannedScan pose;
      pose.angle = 5 * kDegree * tilt;
      const double c = std::cos(pose.angle), s = std::sin(pose.angle);
      pose.x = at.x - c * middle.x + s * middle.y;
      pose.z = at.y - s * middle.x - c * middle.y;
      poses.push_back(pose);
    }
  }
  return poses;
}

}  // namespace

PosePlan planScans(const datafusion::planex::CalibrationModel& model, const TargetProfile& target,
                   const EstimationOptions& options, int count) {
  EstimationOptions how = options;
  how.sensorSize = {model.SensorSize.x, model.SensorSize.y};
  const cmnalg::Vec<2, int> size = how.sensorSize;
  const double radius = std::hypot(size.x, size.y) / 2;
  const double noise = options.noise > 0 ? options.noise : kUsualNoise;
  ScanMeasurement scan;
  scan.target = std::make_shared<TargetProfile>(target);
  Unknowns unknowns = unknownsOf({scan}, how);
  unknowns.setTerms(termsOf(model, radius));
  expectTerms(unknowns, how);
  unknowns.setTerms(termsOf(model, radius));
  unknowns.scans[0].isFound = true;

  ScanInformation information(unknowns, radius, noise, size);
  const std::vector<PlannedScan> poses = candidates(unknowns.terms(), radius, target, size);
  std::vector<Matrix> asFirst(poses.size()), asOther(poses.size());
  bool isSeen = false;
  for (std::size_t i = 0; i < poses.size(); ++i) {
    const int columns = information.of(poses[i], true, asFirst[i]);
    information.of(poses[i], false, asOther[i]);
    isSeen = isSeen || 4 * columns > size.x;
  }
  if (!isSeen) {
    throw EstimationFailure("is not seen over a quarter of the columns in any pose; see its size");
  }

  const auto shared = asOther[0].rows();
  Matrix sum = Matrix::Zero(shared, shared);
  for (Eigen::Index i = 0; i < shared; ++i) {
    const double deviation = unknowns.deviation[static_cast<std::size_t>(i)];
    if (deviation > 0) sum(i, i) += 1 / (deviation * deviation);
  }
  const auto uncertaintyWith = [&](const Matrix& more) {
    NormalEquations equations(static_cast<std::size_t>(shared));
    Eigen::Map<Matrix>(equations.matrix.data(), shared, shared) = sum + more;
    MapUncertainty::Parts parts;
    parts.radius = radius;
    parts.terms = unknowns.terms();
    parts.covariance = estimation::termsOf(equations.covariance());
    parts.sensorSize = size;
    parts.noise = noise;
    parts.frame = MapUncertainty::Frame::kRigid;
    constexpr double kShare = 0.05;  // on either side, which targets seldom reach
    for (const double y : {kShare, 1 - kShare}) {
      for (const double x : {kShare, 1 - kShare}) {
        parts.measured.push_back({x * (size.x - 1), y * (size.y - 1)});
      }
    }
    return MapUncertainty(std::move(parts));
  };
  const auto meanVariance = [&](const MapUncertainty& uncertainty) {
    double variance = 0;
    constexpr int kPlaces = 9;
    for (int i = 0; i < kPlaces * kPlaces; ++i) {
      const int column = i % kPlaces, row = i / kPlaces;
      const PlaceCovariance at = uncertainty.at(
          {(size.x - 1) * (0.5 + column) / kPlaces, (size.y - 1) * (0.5 + row) / kPlaces});
      variance += at.xx + at.zz;
    }
    return variance;
  };

  PosePlan plan;
  for (int i = 0; i < count; ++i) {
    const std::vector<Matrix>& ways = i == 0 ? asFirst : asOther;
    std::size_t best = 0;
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t pose = 0; pose < poses.size(); ++pose) {
      const double variance = meanVariance(uncertaintyWith(ways[pose]));
      if (!(variance < least)) continue;
      least = variance;
      best = pose;
    }
    plan.uncertainty = uncertaintyWith(ways[best]);
    sum += ways[best];
    plan.scans.push_back(poses[best]);
    plan.scans.back().largest95 = plan.uncertainty.largestRadius95();
  }
  return plan;
}

}  // namespace planex::estimation
