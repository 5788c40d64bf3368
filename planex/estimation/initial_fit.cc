#include "planex/estimation/initial_fit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "planex/estimation/initial_homography.h"
#include "planex/estimation/known_poses.h"
#include "planex/estimation/profile_partition.h"
#include "planex/estimation/robust_scale.h"
#include "planex/estimation/target_matching.h"

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;

constexpr std::size_t kLeastPoints = 12;
constexpr std::size_t kMostPoints = std::size_t{1} << 22;
constexpr double kRough = 1e-6;  // precision of fits that others follow

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

void requireTargetOf(const ScanMeasurement& scan, std::size_t place) {
  if (!scan.points.empty()) {
    throw EstimationFailure("has points and a target; give one of them", place);
  }
  try {
    requireTarget(*scan.target);
  } catch (const std::invalid_argument& refusal) {
    throw EstimationFailure(std::string("is of a target that ") + refusal.what(), place);
  }
}

/// All pixels as they are given.
std::vector<Observation> observationsOf(const std::vector<ScanMeasurement>& scans) {
  std::vector<Observation> observations;
  std::vector<double> deviations;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    for (std::size_t i = 0; i < scans[s].pixels.size(); ++i) {
      Observation observation;
      observation.pixel = scans[s].pixels[i];
      if (scans[s].target) {
        observation.edge = Observation::kNothing;
      } else {
        observation.point = scans[s].points[i];
      }
      observation.weight = scans[s].deviations.empty() ? 1 : scans[s].deviations[i];
      observation.scan = static_cast<int>(s);
      deviations.push_back(observation.weight);
      observations.push_back(observation);
    }
  }
  const double middle = upperMedian(std::move(deviations));
  for (Observation& observation : observations) observation.weight /= middle;
  return observations;
}

PlaneHomography startOf(const std::vector<Observation>& observations,
                        const EstimationOptions& options) {
  const Place middle = middleOf(options);
  const double radius = radiusOf(options);
  std::vector<PlacePair> pairs;
  std::vector<Place> pixels, places;
  for (const Observation& point : observations) {
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

void setHomography(ModelFit& fit, const PlaneHomography& h, const EstimationOptions& options) {
  CameraTerms terms{};
  std::copy_n(h.begin(), 8, terms.begin());
  terms[kCentreTerms] = middleOf(options).x;
  terms[kCentreTerms + 1] = middleOf(options).y;
  fit.unknowns.setTerms(terms);
}

/// The angle of the rows in the middle of the sensor, in the plane.
double angleOfRows(const ModelFit& fit, const EstimationOptions& options) {
  const MapDerivative d = differentiate(fit.terms(), fit.problem.radius, middleOf(options));
  return std::atan(d.pixel[1][0] / d.pixel[0][0]);
}

void shiftToMiddle(ModelFit& fit, const EstimationOptions& options) {
  fit.frame.middle = fit.frame.fromPoint(fit.inPlane(middleOf(options)));
}

/// The frame and the homography of known points.
void startFromPoints(ModelFit& fit, const EstimationOptions& options) {
  setHomography(fit, startOf(fit.observations, options), options);
  const double angle = angleOfRows(fit, options);
  if (std::abs(angle) > kDegree) fit.frame.angle = angle;
  shiftToMiddle(fit, options);
  for (Observation& point : fit.observations) {
    if (point.edge != Observation::kPoint) continue;
    if (point.dimensions() < 2 && fit.frame.angle != 0) {
      throw EstimationFailure(
          "has points with x or z alone, whose X is turned against the rows of the sensor; give "
          "both, or turn the points");
    }
    point.point = fit.frame.fromPoint(point.point);
  }
  setHomography(fit, startOf(fit.observations, options), options);
}

/// The same of plates whose poses are known.
/// @return whether there are such as determine it
bool startFromPlates(ModelFit& fit, const std::vector<ScanMeasurement>& scans,
                     const EstimationOptions& options) {
  const auto normalised = [&](Place pixel) {
    const Place middle = middleOf(options);
    return Place{(pixel.x - middle.x) / fit.problem.radius,
                 (pixel.y - middle.y) / fit.problem.radius};
  };
  const auto h = homographyOfPlates(scans, normalised);
  if (!h) return false;
  setHomography(fit, *h, options);
  const double angle = angleOfRows(fit, options);
  if (std::abs(angle) > kDegree) fit.frame.angle = angle;
  shiftToMiddle(fit, options);
  std::vector<ScanMeasurement> moved = scans;
  for (ScanMeasurement& scan : moved) {
    const Place place = fit.frame.fromPoint({scan.pose.x, scan.pose.z});
    scan.pose.x = place.x;
    scan.pose.z = place.y;
    scan.pose.angle -= fit.frame.angle;
  }
  const auto inFrame = homographyOfPlates(moved, normalised);
  if (inFrame) setHomography(fit, *inFrame, options);
  return inFrame.has_value();
}

/// Finds the targets in the scans, one after another.
class TargetSearch {
 public:
  TargetSearch(ModelFit& fit, const std::vector<ScanMeasurement>& scans,
               const EstimationOptions& options)
      : fit_(fit), options_(options) {
    for (std::size_t s = 0; s < scans.size(); ++s) {
      if (!scans[s].target || fit.unknowns.scans[s].isFound) continue;
      Pending pending{static_cast<int>(s), findCorners(scans[s].pixels), 0};
      for (const Place& pixel : scans[s].pixels) {
        pending.row += pixel.y / static_cast<double>(scans[s].pixels.size());
      }
      pending_.push_back(std::move(pending));
    }
  }

  /// The frame and the homography of the scan that shows most corners.
  void startFromCorners() {
    const Pending* first = nullptr;
    std::vector<Start> starts;
    for (const Pending& pending : pending_) {
      std::vector<Start> ofScan = startsOf(pending);
      if (ofScan.empty()) continue;
      const auto worth = [&](const Pending& p, const std::vector<Start>& s) {
        const double off = std::abs(p.row - middleOf(options_).y) / options_.sensorSize.y;
        return static_cast<double>(s.front().match.corners.size()) - 4 * off;
      };
      if (first != nullptr && worth(pending, ofScan) <= worth(*first, starts)) continue;
      first = &pending;
      starts = std::move(ofScan);
    }
    if (first == nullptr) {
      throw EstimationFailure(
          "shows no four corners of its target that follow one another; see the profile of the "
          "target, --up and --right, and that the flanks are not steep",
          pending_.empty() ? EstimationFailure::kNone
                           : static_cast<std::size_t>(pending_.front().scan));
    }
    look_ = starts.front().look;
    fit_.isLookGuessed = starts.size() > 1;
    fit_.isFrameFree = true;
    const TargetMatch& match = starts.front().match;
    std::vector<PlacePair> pairs = pairsOf(*first, match);
    setHomography(fit_, *fitHomography(pairs), options_);
    fit_.frame.angle = angleOfRows(fit_, options_);
    shiftToMiddle(fit_, options_);
    for (PlacePair& pair : pairs) pair.plane = fit_.frame.fromPoint(pair.plane);
    setHomography(fit_, *fitHomography(pairs), options_);
    Unknowns& unknowns = fit_.unknowns;
    Unknowns::Scan& scan = unknowns.scans[static_cast<std::size_t>(first->scan)];
    const RigidPlacement placement{-fit_.frame.middle.x, -fit_.frame.middle.y, -fit_.frame.angle};
    fit_.frame.angle = 0;
    place(scan, placement);
    // The frame is the target's; how it is turned matters to the sheet curve, but little.
    unknowns.expect(scan.placement + kPlaceX, placement.x, kExact);
    unknowns.expect(scan.placement + kPlaceZ, placement.z, kExact);
    unknowns.expect(scan.placement + kPlaceAngle, placement.angle, kDegree);
    rows_ = {first->row};
    pending_.erase(pending_.begin() + (first - pending_.data()));
  }

  /// What measured rows the known points have, and how they say that the sensor looks.
  void startFrom(const std::vector<Observation>& points) {
    for (const Observation& point : points) {
      if (point.edge == Observation::kPoint) rows_.push_back(point.pixel.y);
    }
    const MapDerivative d = differentiate(fit_.terms(), fit_.problem.radius, middleOf(options_));
    look_ = {d.pixel[0][0] > 0 ? 1 : -1, d.pixel[1][1] > 0 ? 1 : -1};
  }

  /// The scans nearest to those that are placed come first, since the map is known there.
  void placeAll() {
    std::vector<Pending> later;
    for (int round = 0; round < 2; ++round) {
      improve();
      while (!pending_.empty()) {
        const auto next = std::min_element(
            pending_.begin(), pending_.end(),
            [this](const Pending& a, const Pending& b) { return away(a) < away(b); });
        Pending pending = std::move(*next);
        pending_.erase(next);
        if (isPlaced(pending)) {
          rows_.push_back(pending.row);
          improve();
        } else {
          later.push_back(std::move(pending));
        }
      }
      std::swap(pending_, later);
    }
  }

 private:
  /// A scan whose target is not found yet.
  struct Pending {
    int scan;
    std::vector<SeenCorner> corners;
    double row;  // mean
  };
  struct Start {
    Orientation look;
    TargetMatch match;
  };

  const TargetProfile& profileOf(const Pending& pending) const {
    const Unknowns& unknowns = fit_.unknowns;
    return unknowns.targetOf(unknowns.scans[static_cast<std::size_t>(pending.scan)]).profile;
  }

  Place normalised(Place pixel) const {
    const Place middle = middleOf(options_);
    return {(pixel.x - middle.x) / fit_.problem.radius, (pixel.y - middle.y) / fit_.problem.radius};
  }

  /// Ways to see the target in a scan, the one to take first. Where nothing else decides, Z goes
  /// against the rows and X with the columns.
  std::vector<Start> startsOf(const Pending& pending) const {
    std::vector<Start> starts;
    for (const int up : {-1, 1}) {
      for (const int right : {1, -1}) {
        if (options_.up != 0 && up != options_.up) continue;
        if (options_.right != 0 && right != options_.right) continue;
        const Orientation look{right, up};
        auto match = matchByHomography(pending.corners, profileOf(pending), look,
                                       [this](Place pixel) { return normalised(pixel); });
        if (match) starts.push_back({look, std::move(*match)});
      }
    }
    std::size_t most = 0;
    for (const Start& start : starts) most = std::max(most, start.match.corners.size());
    double least = std::numeric_limits<double>::infinity();
    for (const Start& start : starts) {
      if (start.match.corners.size() == most) least = std::min(least, start.match.error);
    }
    constexpr double kTheSame = 1.5, kSmall = 2e-3;
    starts.erase(std::remove_if(starts.begin(), starts.end(),
                                [&](const Start& start) {
                                  return start.match.corners.size() + 1 < most ||
                                         start.match.error > std::max(kTheSame * least, kSmall);
                                }),
                 starts.end());
    return starts;
  }

  std::vector<PlacePair> pairsOf(const Pending& pending, const TargetMatch& match) const {
    std::vector<PlacePair> pairs;
    for (const CornerMatch& m : match.corners) {
      pairs.push_back({normalised(pending.corners[static_cast<std::size_t>(m.seen)].pixel),
                       profileOf(pending).corners[static_cast<std::size_t>(m.corner)]});
    }
    return pairs;
  }

  double away(const Pending& pending) const {
    double least = 1e300;
    for (const double row : rows_) least = std::min(least, std::abs(pending.row - row));
    return least;
  }

  void place(Unknowns::Scan& scan, const RigidPlacement& placement) {
    double* const values = fit_.unknowns.at(scan.placement);
    values[kPlaceX] = placement.x;
    values[kPlaceZ] = placement.z;
    values[kPlaceAngle] = placement.angle;
    scan.isFound = true;
  }

  bool isPlaced(const Pending& pending) {
    std::vector<Place> inPlane;
    for (const SeenCorner& corner : pending.corners) inPlane.push_back(fit_.inPlane(corner.pixel));
    RigidPlacement placement{};
    if (!matchByMotion(pending.corners, inPlane, profileOf(pending), look_, placement)) {
      return false;
    }
    place(fit_.unknowns.scans[static_cast<std::size_t>(pending.scan)], placement);
    return true;
  }

  /// A fit to all that is placed.
  void improve() {
    FitProblem problem = fit_.problem;
    problem.loss = Loss::kCauchy;
    problem.precision = kRough;
    for (int round = 0; round < 2; ++round) {
      associate(fit_);
      const auto some = thinned(fit_.observations, kThinned / 3);
      if (some.size() < kLeastPoints) return;
      problem.noise = medianNoise(fit_, some);
      fitUnknowns(problem, some, fit_.unknowns);
    }
  }

  ModelFit& fit_;
  const EstimationOptions& options_;
  std::vector<Pending> pending_;
  std::vector<double> rows_;  // of what is placed
  Orientation look_{1, -1};
};

/// Throws EstimationFailure where no target has a corner to begin with.
void requireCorners(const std::vector<ScanMeasurement>& scans) {
  const bool isFlat = std::all_of(scans.begin(), scans.end(), [](const ScanMeasurement& scan) {
    return !scan.target || isPlate(*scan.target);
  });
  if (!isFlat) return;
  throw EstimationFailure(
      "is of a flat target alone, and X is not determined; add scans of a sawtooth, or say where "
      "the plate stood, at four heights and tilted to both sides");
}

}  // namespace

Place middleOf(const EstimationOptions& options) {
  return {(options.sensorSize.x - 1) / 2.0, (options.sensorSize.y - 1) / 2.0};
}

Unknowns unknownsOf(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options) {
  Unknowns unknowns;
  // A section that is turned out of the plane by t is wider by 1 / cos t - 1, about t^2 / 2.
  const double turn = options.turn * options.turn / 2;
  const double ofTurn = std::max(turn * std::sqrt(2.0), kExact);
  std::map<const TargetProfile*, int> known;
  for (const ScanMeasurement& scan : scans) {
    Unknowns::Scan place;
    if (scan.target) {
      const auto [entry, isNew] =
          known.emplace(scan.target.get(), static_cast<int>(unknowns.targets.size()));
      place.target = entry->second;
      if (isNew) {
        Unknowns::Target target{*scan.target, unknowns.append(kSizeCount), -1};
        const TargetProfile& profile = target.profile;
        unknowns.expect(target.size + kSizeScale, 0, std::max(profile.scaleTolerance, kExact));
        unknowns.expect(target.size + kSizeWidening, turn, ofTurn);
        *unknowns.at(target.size + kSizeWidening) = turn;
        if (profile.tolerance > 0) {
          target.corners = unknowns.append(2 * static_cast<int>(profile.corners.size()));
          int next = target.corners;
          for (const Place& corner : profile.corners) {
            for (const double value : {corner.x, corner.y}) {
              *unknowns.at(next) = value;
              unknowns.expect(next++, value, profile.tolerance);
            }
          }
        }
        unknowns.targets.push_back(std::move(target));
      }
      place.placement = unknowns.append(kPlacementCount);
      unknowns.expect(place.placement + kPlaceWidening, turn, ofTurn);
      *unknowns.at(place.placement + kPlaceWidening) = turn;
    }
    unknowns.scans.push_back(place);
  }
  return unknowns;
}

void expectTerms(Unknowns& unknowns, const EstimationOptions& options) {
  const Place middle = middleOf(options);
  const double radius = radiusOf(options);
  const CameraTerms start = unknowns.terms();
  const double right = options.sensorSize.x - 1;
  const double width = std::abs(laserFromSensor(start, radius, {right, middle.y}).x -
                                laserFromSensor(start, radius, {0, middle.y}).x) /
                       2;
  const double lens[] = {0.05, 0.015, 0.005, 0.005, 0.005, 0.01, 0.01};
  for (int i = 0; i < 7; ++i) unknowns.expect(kLensTerms + i, 0, lens[i]);
  unknowns.expect(kCentreTerms, middle.x, 0.02 * radius);
  unknowns.expect(kCentreTerms + 1, middle.y, 0.02 * radius);
  const double none = options.hasSheetCurve ? 1 : 1e-9;
  const double curve[] = {0.1 * width, 0.5 / width, 0.01 / width, 0.01 / (width * width)};
  for (int i = 0; i < 4; ++i) unknowns.expect(kCurveTerms + i, 0, none * curve[i]);
  unknowns.mean[kCurveTerms] = laserFromSensor(start, radius, middle).x;
  *unknowns.at(kCurveTerms) = unknowns.mean[kCurveTerms];
}

void requireMeasurements(const std::vector<ScanMeasurement>& scans,
                         const EstimationOptions& options) {
  if (options.sensorSize.x < 2 || options.sensorSize.y < 2) {
    throw EstimationFailure("the sensor must have two columns and two rows at least");
  }
  const auto isNotNegative = [](double value) { return value >= 0 && std::isfinite(value); };
  if (!isNotNegative(options.focalLength) || !isNotNegative(options.pointTolerance) ||
      !isNotNegative(options.noise) || !isNotNegative(options.turn)) {
    throw EstimationFailure("focal length, tolerance, noise and turn must be 0 or more");
  }
  std::size_t points = 0;
  int targets = 0;
  requirePoses(scans);
  for (std::size_t s = 0; s < scans.size(); ++s) {
    const ScanMeasurement& scan = scans[s];
    if (scan.target) {
      requireTargetOf(scan, s);
      ++targets;
    }
    if ((!scan.target && scan.points.size() != scan.pixels.size()) ||
        (!scan.deviations.empty() && scan.deviations.size() != scan.pixels.size())) {
      throw EstimationFailure("needs a point for each pixel", s);
    }
    points += scan.pixels.size();
    for (std::size_t i = 0; i < scan.pixels.size(); ++i) {
      const Place& pixel = scan.pixels[i];
      const Place point = scan.target ? Place{} : scan.points[i];
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
  constexpr int kMostTargets = 64;
  if (targets > kMostTargets) {
    throw EstimationFailure("has " + std::to_string(targets) + " scans of targets; " +
                            std::to_string(kMostTargets) + " or less determine as much");
  }
  if (points > kMostPoints) {
    throw EstimationFailure("has more than " + std::to_string(kMostPoints) +
                            " points; thin them out");
  }
}

ModelFit initialFit(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options) {
  ModelFit fit;
  fit.observations = observationsOf(scans);
  fit.problem.radius = radiusOf(options);
  fit.problem.tolerance = options.pointTolerance;
  fit.unknowns = unknownsOf(scans, options);
  const bool hasPoints =
      fit.unknowns.targets.empty() ||
      std::any_of(fit.observations.begin(), fit.observations.end(),
                  [](const Observation& point) { return point.dimensions() == 2; });
  if (fit.unknowns.targets.empty()) {
    startFromPoints(fit, options);
    expectTerms(fit.unknowns, options);
    return fit;
  }
  const bool isPlaced = hasPoints || startFromPlates(fit, scans, options);
  if (hasPoints) startFromPoints(fit, options);
  if (isPlaced) expectPoses(fit, scans);
  TargetSearch search(fit, scans, options);
  if (isPlaced) {
    search.startFrom(fit.observations);
  } else {
    requireCorners(scans);
    search.startFromCorners();
  }
  expectTerms(fit.unknowns, options);
  search.placeAll();
  if (!isPlaced) moveToPoses(fit, scans);
  expectPoses(fit, scans);
  const double middle = *fit.unknowns.at(kCurveTerms);
  expectTerms(fit.unknowns, options);  // the field is known better
  *fit.unknowns.at(kCurveTerms) = middle;
  associate(fit);
  if (thinned(fit.observations, kThinned).size() < kLeastPoints) {
    throw EstimationFailure(
        "shows too little of the edges of its target; see whether its margin leaves any of them");
  }
  return fit;
}

void associate(ModelFit& fit) {
  Unknowns& unknowns = fit.unknowns;
  const CameraTerms terms = fit.terms();
  for (Observation& observation : fit.observations) {
    if (observation.edge == Observation::kPoint) continue;
    observation.edge = Observation::kNothing;
    const Unknowns::Scan& scan = unknowns.scans[static_cast<std::size_t>(observation.scan)];
    if (!scan.isFound) continue;
    const Unknowns::Target& target = unknowns.targetOf(scan);
    const Place place = PlacedEdge(unknowns, scan, 0)
                            .own(laserFromSensor(terms, fit.problem.radius, observation.pixel));
    double nearest = 1e300;
    const int edges = static_cast<int>(target.profile.corners.size()) - 1;
    for (int edge = 0; edge < edges; ++edge) {
      const Place from = unknowns.corner(target, edge), to = unknowns.corner(target, edge + 1);
      const double x = to.x - from.x, z = to.y - from.y;
      if (!(std::abs(z) < kSteepestEdge * x)) continue;
      const double length = std::hypot(x, z);
      const double along = ((place.x - from.x) * x + (place.y - from.y) * z) / length;
      if (along < target.profile.margin || along > length - target.profile.margin) continue;
      const double away = std::abs((place.y - from.y) * x - (place.x - from.x) * z) / length;
      if (away >= nearest) continue;
      nearest = away;
      observation.edge = edge;
    }
  }
}

std::vector<const Observation*> thinned(const std::vector<Observation>& observations,
                                        std::size_t most) {
  std::vector<const Observation*> all, some;
  for (const Observation& observation : observations) {
    if (observation.edge != Observation::kNothing) all.push_back(&observation);
  }
  const std::size_t step = (all.size() + most - 1) / most;
  for (std::size_t i = 0; i < all.size(); i += step) some.push_back(all[i]);
  return some;
}

double medianNoise(const ModelFit& fit, const std::vector<const Observation*>& observations) {
  std::vector<double> sizes;
  for (const Observation* observation : observations) {
    const SensorResidual r =
        residualOf(fit.unknowns, fit.problem.radius, *observation, Derivatives::kNone);
    for (int i = 0; i < r.count; ++i) {
      sizes.push_back(std::abs(r.value[i]) / (observation->weight * r.grazing));
    }
  }
  if (sizes.empty()) return kLeastNoise;
  return std::max(normalDeviation(std::move(sizes)), kLeastNoise);
}

}  // namespace planex::estimation
