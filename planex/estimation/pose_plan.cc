#include "planex/estimation/pose_plan.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>

#include "planex/estimation/initial_fit.h"

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

constexpr int kColumnStep = 8;  // columns that one observation stands for
constexpr double kUsualNoise = 0.1;
constexpr int kLeastSeen = 4;  // a quarter of the columns, for a scan to be worth anything

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

/// What information on all unknowns says of those that are kept, wherever the targets stand.
Matrix withoutPlacements(const Matrix& all, const std::vector<int>& kept,
                         const std::vector<int>& placements) {
  Matrix information = all(kept, kept);
  for (const int placement : placements) {
    const Matrix own = all.block(placement, placement, kPlacementCount, kPlacementCount);
    const Eigen::VectorXd scale =
        own.diagonal().unaryExpr([](double value) { return value > 0 ? 1 / std::sqrt(value) : 1; });
    const Matrix inverse = Matrix(scale.asDiagonal() * own * scale.asDiagonal())
                               .completeOrthogonalDecomposition()
                               .pseudoInverse();
    const Matrix mixed =
        all.middleCols(placement, kPlacementCount)(kept, Eigen::all) * scale.asDiagonal();
    information -= mixed * inverse * mixed.transpose();
  }
  return information;
}

/// The places of all unknowns but placements.
std::vector<int> sharedOf(const Unknowns& unknowns, const std::vector<int>& placements) {
  std::vector<int> shared(unknowns.values.size());
  std::iota(shared.begin(), shared.end(), 0);
  shared.erase(std::remove_if(shared.begin(), shared.end(),
                              [&](int place) {
                                return std::any_of(
                                    placements.begin(), placements.end(), [&](int first) {
                                      return place >= first && place < first + kPlacementCount;
                                    });
                              }),
               shared.end());
  return shared;
}

/// The information of one scan on what all scans share: the terms, the size and corners of the
/// target.
class ScanInformation {
 public:
  /// @param unknowns those of one scan, whose placement comes last
  /// @param shared   places of what the information is about
  ScanInformation(Unknowns unknowns, std::vector<int> shared, double radius, double noise,
                  cmnalg::Vec<2, int> size)
      : unknowns_(std::move(unknowns)),
        shared_(std::move(shared)),
        radius_(radius),
        noise_(noise),
        size_(size) {}

  /// @param isFirst its target says where the frame is
  /// @return the columns that see an edge
  int of(const PlannedScan& pose, bool isFirst, Matrix& information) {
    Unknowns::Scan& scan = unknowns_.scans[0];
    double* const placement = unknowns_.at(scan.placement);
    placement[kPlaceX] = pose.x;
    placement[kPlaceZ] = pose.z;
    placement[kPlaceAngle] = pose.angle;
    NormalEquations equations(unknowns_.values.size());
    const auto edges = static_cast<int>(unknowns_.targetOf(scan).profile.corners.size()) - 1;
    int seen = 0;
    for (int edge = 0; edge < edges; ++edge) {
      const PlacedEdge placed(unknowns_, scan, edge);
      if (!(std::abs(placed.to.y - placed.from.y) <
            kSteepestEdge * (placed.to.x - placed.from.x))) {
        continue;
      }
      seen += addEdge(placed, edge, equations);
    }
    const auto all = static_cast<Eigen::Index>(unknowns_.values.size());
    Eigen::Map<Matrix> sum(equations.matrix.data(), all, all);
    // What is expected of the placement; the rest is expected once, not for each scan.
    const double deviations[] = {isFirst ? kExact : 0, isFirst ? kExact : 0, isFirst ? kDegree : 0,
                                 unknowns_.deviationOf(scan.placement + kPlaceWidening)};
    for (int i = 0; i < kPlacementCount; ++i) {
      const int place = scan.placement + i;
      if (deviations[i] > 0) sum(place, place) += 1 / (deviations[i] * deviations[i]);
    }
    information = withoutPlacements(sum, shared_, {scan.placement});
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
    const double margin = unknowns_.targetOf(unknowns_.scans[0]).profile.margin / length;
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
  std::vector<int> shared_;
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

/// What is known of a camera, and what a scan more would make of it.
class Knowledge {
 public:
  /// @param parts  without covariance and measured area
  Knowledge(Matrix information, double correlation, MapUncertainty::Parts parts)
      : sum_(std::move(information)), correlation_(correlation), parts_(std::move(parts)) {
    constexpr double kShare = 0.05;  // on either side, which targets seldom reach
    const cmnalg::Vec<2, int>& size = parts_.sensorSize;
    for (const double y : {kShare, 1 - kShare}) {
      for (const double x : {kShare, 1 - kShare}) {
        parts_.measured.push_back({x * (size.x - 1), y * (size.y - 1)});
      }
    }
  }

  MapUncertainty uncertainty() const { return uncertaintyOf(sum_); }
  /// Of the map with a scan more, over the sensor.
  double meanVarianceWith(const Matrix& scan) const {
    const MapUncertainty uncertainty = uncertaintyOf(sum_ + scan);
    const cmnalg::Vec<2, int>& size = parts_.sensorSize;
    double variance = 0;
    constexpr int kPlaces = 9;
    for (int i = 0; i < kPlaces * kPlaces; ++i) {
      const int column = i % kPlaces, row = i / kPlaces;
      const PlaceCovariance at = uncertainty.at(
          {(size.x - 1) * (0.5 + column) / kPlaces, (size.y - 1) * (0.5 + row) / kPlaces});
      variance += at.xx + at.zz;
    }
    return variance / (kPlaces * kPlaces);
  }
  /// The scan that lowers the mean variance most, and that variance.
  std::pair<std::size_t, double> best(const std::vector<Matrix>& scans) const {
    std::pair<std::size_t, double> best{0, std::numeric_limits<double>::infinity()};
    for (std::size_t i = 0; i < scans.size(); ++i) {
      const double variance = meanVarianceWith(scans[i]);
      if (variance < best.second) best = {i, variance};
    }
    return best;
  }
  void add(const Matrix& scan) { sum_ += scan; }

 private:
  MapUncertainty uncertaintyOf(const Matrix& information) const {
    NormalEquations equations(static_cast<std::size_t>(information.rows()));
    Eigen::Map<Matrix>(equations.matrix.data(), information.rows(), information.cols()) =
        information;
    MapUncertainty::Parts parts = parts_;
    parts.covariance = estimation::termsOf(equations.covariance());
    for (double& value : parts.covariance) value *= correlation_;
    return MapUncertainty(std::move(parts));
  }

  Matrix sum_;
  double correlation_;
  MapUncertainty::Parts parts_;
};

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

  const std::vector<int> shared = sharedOf(unknowns, {unknowns.scans[0].placement});
  ScanInformation information(unknowns, shared, radius, noise, size);
  const std::vector<PlannedScan> poses = candidates(unknowns.terms(), radius, target, size);
  std::vector<Matrix> asFirst(poses.size()), asOther(poses.size());
  bool isSeen = false;
  for (std::size_t i = 0; i < poses.size(); ++i) {
    isSeen = kLeastSeen * information.of(poses[i], true, asFirst[i]) > size.x || isSeen;
    information.of(poses[i], false, asOther[i]);
  }
  if (!isSeen) {
    throw EstimationFailure("is not seen over a quarter of the columns in any pose; see its size");
  }

  Eigen::VectorXd expected = Eigen::VectorXd::Zero(static_cast<Eigen::Index>(shared.size()));
  for (std::size_t i = 0; i < shared.size(); ++i) {
    const double deviation = unknowns.deviationOf(shared[i]);
    if (deviation > 0) expected[static_cast<Eigen::Index>(i)] = 1 / (deviation * deviation);
  }
  MapUncertainty::Parts parts;
  parts.radius = radius;
  parts.terms = unknowns.terms();
  parts.sensorSize = size;
  parts.noise = noise;
  parts.frame = MapUncertainty::Frame::kRigid;
  Knowledge knowledge(expected.asDiagonal(), 1, std::move(parts));

  PosePlan plan;
  for (int i = 0; i < count; ++i) {
    const std::vector<Matrix>& ways = i == 0 ? asFirst : asOther;
    const std::size_t best = knowledge.best(ways).first;
    knowledge.add(ways[best]);
    plan.uncertainty = knowledge.uncertainty();
    plan.scans.push_back(poses[best]);
    plan.scans.back().largest95 = plan.uncertainty.largestRadius95();
  }
  return plan;
}

std::optional<NextScan> nextScan(const ModelFit& fit, const EstimationOptions& options) {
  std::vector<int> placements;
  for (const Unknowns::Scan& scan : fit.unknowns.scans) {
    if (scan.target >= 0) placements.push_back(scan.placement);
  }
  const std::vector<int> shared = sharedOf(fit.unknowns, placements);
  const auto all = static_cast<Eigen::Index>(fit.unknowns.values.size());
  MapUncertainty::Parts parts;
  parts.radius = fit.problem.radius;
  parts.terms = fit.terms();
  parts.others = fit.others;
  parts.sensorSize = options.sensorSize;
  parts.noise = fit.problem.noise;
  if (fit.isFrameFree) parts.frame = MapUncertainty::Frame::kRigid;
  Knowledge knowledge(
      withoutPlacements(Eigen::Map<const Matrix>(fit.equations.matrix.data(), all, all), shared,
                        placements),
      fit.correlation, std::move(parts));

  std::optional<NextScan> next;
  Matrix information;
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t target = 0; target < fit.unknowns.targets.size(); ++target) {
    Unknowns unknowns = fit.unknowns;
    Unknowns::Scan scan = *std::find_if(
        unknowns.scans.begin(), unknowns.scans.end(),
        [&](const Unknowns::Scan& one) { return one.target == static_cast<int>(target); });
    const int widening = scan.placement + kPlaceWidening;
    const double mean = unknowns.meanOf(widening), deviation = unknowns.deviationOf(widening);
    scan.placement = unknowns.append(kPlacementCount);
    unknowns.expect(scan.placement + kPlaceWidening, mean, deviation);
    *unknowns.at(scan.placement + kPlaceWidening) = mean;
    unknowns.scans = {scan};
    ScanInformation informationOf(unknowns, shared, fit.problem.radius, fit.problem.noise,
                                  options.sensorSize);
    std::vector<PlannedScan> poses;
    std::vector<Matrix> scans;
    for (const PlannedScan& pose :
         candidates(fit.terms(), fit.problem.radius, unknowns.targets[target].profile,
                    options.sensorSize)) {
      if (kLeastSeen * informationOf.of(pose, false, information) <= options.sensorSize.x) continue;
      poses.push_back(pose);
      scans.push_back(information);
    }
    const auto [best, variance] = knowledge.best(scans);
    if (!(variance < least)) continue;
    least = variance;
    next = NextScan{poses[best], target, knowledge.uncertainty().largestRadius95()};
    Knowledge with = knowledge;
    with.add(scans[best]);
    next->scan.largest95 = with.uncertainty().largestRadius95();
  }
  if (!next || !std::isfinite(next->scan.largest95)) return std::nullopt;
  next->scan.x += fit.frame.middle.x;
  next->scan.z += fit.frame.middle.y;
  return next;
}

}  // namespace planex::estimation
