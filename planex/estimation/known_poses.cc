#include "planex/estimation/known_poses.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;

constexpr double kFullTurn = 360 * kDegree;

/// From a part of the profile to the next one that looks the same; zeros where there is none.
Place periodOf(const TargetProfile& profile) {
  constexpr double kAlike = 0.02;  // of the period
  const std::vector<Place>& corners = profile.corners;
  for (std::size_t step = 1; step + 2 < corners.size(); ++step) {
    const Place by{corners[step].x - corners[0].x, corners[step].y - corners[0].y};
    const double length = std::hypot(by.x, by.y);
    bool isAlike = length > 0;
    for (std::size_t i = step; isAlike && i < corners.size(); ++i) {
      isAlike = std::hypot(corners[i].x - corners[i - step].x - by.x,
                           corners[i].y - corners[i - step].y - by.y) < kAlike * length;
    }
    if (isAlike) return by;
  }
  return {0, 0};
}

Place turned(Place place, double angle) {
  const double c = std::cos(angle), s = std::sin(angle);
  return {c * place.x - s * place.y, s * place.x + c * place.y};
}

/// A pose in the frame of a fit; NaN where it is not known there.
TargetPose inFrame(const ModelFit& fit, TargetPose pose) {
  const Place place = fit.frame.fromPoint({pose.x, pose.z});
  pose.x = place.x;
  pose.z = place.y;
  pose.angle = std::remainder(pose.angle - fit.frame.angle, kFullTurn);
  return pose;
}

/// Moves a target along by whole parts that look alike, to where it is nearest its pose.
void moveAlong(double* placement, const TargetProfile& profile, const TargetPose& pose) {
  const Place by = turned(periodOf(profile), placement[kPlaceAngle]);
  constexpr double kAcross = 0.02;  // a part that moves it by less tells nothing
  const double length = std::hypot(by.x, by.y);
  double count = 0;
  if (!std::isnan(pose.x) && std::abs(by.x) > kAcross * length) {
    count = std::round((pose.x - placement[kPlaceX]) / by.x);
  } else if (!std::isnan(pose.z) && std::abs(by.y) > kAcross * length) {
    count = std::round((pose.z - placement[kPlaceZ]) / by.y);
  }
  placement[kPlaceX] += count * by.x;
  placement[kPlaceZ] += count * by.y;
}

/// A line through pixels, a u - v + b = 0, that spikes do not move.
Eigen::Vector3d lineThrough(std::vector<Place> pixels) {
  Eigen::Vector3d line;
  constexpr int kRounds = 6;
  for (int round = 0; round < kRounds; ++round) {
    double n = 0, u = 0, v = 0, uu = 0, uv = 0;
    for (const Place& p : pixels) {
      n += 1;
      u += p.x;
      v += p.y;
      uu += p.x * p.x;
      uv += p.x * p.y;
    }
    const double slope = (n * uv - u * v) / (n * uu - u * u);
    line = {slope, -1, (v - slope * u) / n};
    // The nearer nine tenths go on.
    std::sort(pixels.begin(), pixels.end(), [&](const Place& p, const Place& q) {
      return std::abs(slope * p.x - p.y + line[2]) < std::abs(slope * q.x - q.y + line[2]);
    });
    pixels.resize(std::max<std::size_t>(pixels.size() * 9 / 10, 2));
  }
  return line / line.norm();
}

}  // namespace

bool isKnownInPart(const TargetPose& pose) {
  return !std::isnan(pose.x) || !std::isnan(pose.z) || !std::isnan(pose.angle);
}

bool isKnown(const TargetPose& pose) {
  return !std::isnan(pose.x) && !std::isnan(pose.z) && !std::isnan(pose.angle);
}

bool isPlate(const TargetProfile& profile) { return profile.corners.size() == 2; }

void requirePoses(const std::vector<ScanMeasurement>& scans) {
  bool isAny = false, isAngle = false;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    const TargetPose& pose = scans[s].pose;
    if (!isKnownInPart(pose)) continue;
    if (!scans[s].target) throw EstimationFailure("has a pose and no target", s);
    for (const double value : {pose.x, pose.z, pose.angle}) {
      if (std::isinf(value)) throw EstimationFailure("has a pose that is not finite", s);
    }
    for (const double deviation : {pose.ofX, pose.ofZ, pose.ofAngle}) {
      if (!(deviation >= 0 && std::isfinite(deviation))) {
        throw EstimationFailure("has a pose whose uncertainty is not 0 or more", s);
      }
    }
    isAny = true;
    isAngle = isAngle || !std::isnan(pose.angle);
  }
  if (isAny && !isAngle) {
    throw EstimationFailure(
        "has poses without any angle, which do not say how X lies; give one of them, such as 0 "
        "with its uncertainty");
  }
}

void moveToPoses(ModelFit& fit, const std::vector<ScanMeasurement>& scans) {
  Unknowns& unknowns = fit.unknowns;
  std::optional<double> first;
  double angle = 0, weights = 0;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    const Unknowns::Scan& scan = unknowns.scans[s];
    if (!scan.isFound || std::isnan(scans[s].pose.angle)) continue;
    const double by = scans[s].pose.angle - unknowns.at(scan.placement)[kPlaceAngle];
    if (!first) first = std::remainder(by, kFullTurn);
    const double deviation = std::hypot(scans[s].pose.ofAngle, 1e-4);
    const double weight = 1 / (deviation * deviation);
    angle += weight * std::remainder(by - *first, kFullTurn);
    weights += weight;
  }
  if (!first) return;  // no pose of a scan in which the target was found
  angle = *first + angle / weights;
  std::optional<double> x, z;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    const Unknowns::Scan& scan = unknowns.scans[s];
    const TargetPose& pose = scans[s].pose;
    if (!scan.isFound) continue;
    const double* const placement = unknowns.at(scan.placement);
    const Place place = turned({placement[kPlaceX], placement[kPlaceZ]}, angle);
    if (!x && !std::isnan(pose.x)) x = pose.x - place.x;
    if (!z && !std::isnan(pose.z)) z = pose.z - place.y;
  }
  const bool isTurned = std::abs(angle) > kDegree;
  const Place before = turned(fit.frame.middle, angle);
  const Place middle{x.value_or(before.x), z.value_or(before.y)};
  fit.frame.angle = isTurned ? angle : 0;
  fit.frame.middle = turned(middle, -fit.frame.angle);
  const double turn = angle - fit.frame.angle;
  CameraTerms terms = fit.terms();
  for (std::size_t i = 0; i < 3; ++i) {
    const Place column = turned({terms[i], terms[3 + i]}, turn);
    terms[i] = column.x;
    terms[3 + i] = column.y;
  }
  const double curveMiddle = terms[kCurveTerms];
  fit.unknowns.setTerms(terms);
  *unknowns.at(kCurveTerms) = curveMiddle;
  for (const Unknowns::Scan& scan : unknowns.scans) {
    if (scan.target < 0) continue;
    double* const placement = unknowns.at(scan.placement);
    const Place place = turned({placement[kPlaceX], placement[kPlaceZ]}, turn);
    placement[kPlaceX] = place.x;
    placement[kPlaceZ] = place.y;
    placement[kPlaceAngle] += turn;
    // What held the frame until here holds what poses do not tell.
    const bool isHeld = unknowns.deviationOf(scan.placement + kPlaceX) > 0;
    unknowns.expect(scan.placement + kPlaceX, place.x, isHeld && !x ? kExact : 0);
    unknowns.expect(scan.placement + kPlaceZ, place.y, isHeld && !z ? kExact : 0);
    unknowns.expect(scan.placement + kPlaceAngle, 0, 0);
  }
  fit.isFrameFree = !x || !z;
}

void expectPoses(ModelFit& fit, const std::vector<ScanMeasurement>& scans) {
  Unknowns& unknowns = fit.unknowns;
  for (std::size_t s = 0; s < scans.size(); ++s) {
    if (fit.frame.angle != 0 && std::isnan(scans[s].pose.x) != std::isnan(scans[s].pose.z)) {
      throw EstimationFailure(
          "has a pose with x or z alone, whose X is turned against the rows of the sensor; give "
          "both, or count angles from the rows",
          s);
    }
    Unknowns::Scan& scan = unknowns.scans[s];
    if (scan.target < 0 || !isKnownInPart(scans[s].pose)) continue;
    const TargetPose pose = inFrame(fit, scans[s].pose);
    double* const placement = unknowns.at(scan.placement);
    const double values[] = {pose.x, pose.z, pose.angle};
    const TargetProfile& profile = unknowns.targetOf(scan).profile;
    if (!scan.isFound && isPlate(profile) && isKnown(pose)) {
      std::copy_n(values, 3, placement);
      scan.isFound = true;
    } else if (scan.isFound) {
      moveAlong(placement, profile, pose);
    }
    scan.hasPose = true;
    const double deviations[] = {pose.ofX, pose.ofZ, pose.ofAngle};
    for (int i = 0; i < 3; ++i) {
      if (std::isnan(values[i])) continue;
      unknowns.expect(scan.placement + i, values[i], std::max(deviations[i], kExact));
    }
  }
}

void rejectPoses(Unknowns& unknowns) {
  constexpr double kMost = 6;  // standard uncertainties, as of the biweight
  bool isTold[kPlaceWidening] = {}, isLeft[kPlaceWidening] = {}, hasPoints = false;
  for (Unknowns::Scan& scan : unknowns.scans) {
    hasPoints = hasPoints || scan.target < 0;
    if (!scan.hasPose || !scan.isFound) continue;
    double square = 0;
    for (int i = 0; i < kPlaceWidening; ++i) {
      const int place = scan.placement + i;
      const double deviation = unknowns.deviationOf(place);
      if (deviation == 0) continue;
      isTold[i] = true;
      square += std::pow((*unknowns.at(place) - unknowns.meanOf(place)) / deviation, 2);
    }
    scan.isPoseWrong = square > kMost * kMost;
    scan.hasPose = !scan.isPoseWrong;
    for (int i = 0; i < kPlaceWidening; ++i) {
      if (scan.isPoseWrong) unknowns.expect(scan.placement + i, 0, 0);
      isLeft[i] = isLeft[i] || unknowns.deviationOf(scan.placement + i) > 0;
    }
  }
  for (int i = 0; i < kPlaceWidening; ++i) {
    if (!isTold[i] || isLeft[i] || hasPoints) continue;
    throw EstimationFailure(
        "is of a target whose poses contradict the scans; see their unit, the direction of the "
        "axes, and whether angles are right");
  }
}

std::optional<PlaneHomography> homographyOfPlates(const std::vector<ScanMeasurement>& scans,
                                                  const std::function<Place(Place)>& normalised) {
  std::vector<Eigen::Vector3d> onSensor, inPlane;
  Place middle{0, 0};
  double low = 1e300, high = -1e300;
  for (const ScanMeasurement& scan : scans) {
    if (!scan.target || !isPlate(*scan.target) || !isKnown(scan.pose) || scan.pixels.size() < 2) {
      continue;
    }
    std::vector<Place> pixels;
    for (const Place& pixel : scan.pixels) pixels.push_back(normalised(pixel));
    onSensor.push_back(lineThrough(std::move(pixels)));
    Place ends[2];
    for (std::size_t i = 0; i < 2; ++i) {
      ends[i] = turned(scan.target->corners[i], scan.pose.angle);
      ends[i] = {ends[i].x + scan.pose.x, ends[i].y + scan.pose.z};
      middle = {middle.x + ends[i].x / 2, middle.y + ends[i].y / 2};
      low = std::min(low, ends[i].y);
      high = std::max(high, ends[i].y);
    }
    inPlane.emplace_back(ends[0].y - ends[1].y, ends[1].x - ends[0].x,
                         ends[0].x * ends[1].y - ends[1].x * ends[0].y);
  }
  const auto count = static_cast<Eigen::Index>(inPlane.size());
  if (count < 4) return std::nullopt;
  const double share = 1 / static_cast<double>(count), scale = (high - low) / 2;
  if (!(scale > 0)) return std::nullopt;
  Eigen::Matrix3d toPlane;  // from coordinates about the middle, in units of the height
  toPlane << scale, 0, share * middle.x, 0, scale, share * middle.y, 0, 0, 1;
  Eigen::MatrixXd rows(3 * count, 9);
  for (Eigen::Index i = 0; i < count; ++i) {
    const Eigen::Vector3d l = onSensor[static_cast<std::size_t>(i)];
    Eigen::Vector3d m = toPlane.transpose() * inPlane[static_cast<std::size_t>(i)];
    m.normalize();
    Eigen::Matrix3d cross;
    cross << 0, -l[2], l[1], l[2], 0, -l[0], -l[1], l[0], 0;
    for (Eigen::Index k = 0; k < 3; ++k) rows.block(3 * i, 3 * k, 3, 3) = m[k] * cross;
  }
  const Eigen::JacobiSVD<Eigen::MatrixXd> svd(rows, Eigen::ComputeFullV);
  // A second solution beside the one that lens and noise leave: level plates have it.
  constexpr double kLeast = 1e-3, kApart = 5;
  const auto& values = svd.singularValues();
  if (!(values[7] > kLeast * values[0] && values[7] > kApart * values[8])) return std::nullopt;
  const Eigen::VectorXd h = svd.matrixV().col(8);
  Eigen::Matrix3d matrix;  // H^T m = sum of m_k times the k-th row of H
  matrix << h[0], h[1], h[2], h[3], h[4], h[5], h[6], h[7], h[8];
  matrix = toPlane * matrix;
  matrix /= matrix(2, 2);
  if (!matrix.allFinite() || matrix.determinant() == 0) return std::nullopt;
  PlaneHomography list;
  for (int i = 0; i < 9; ++i) list[static_cast<std::size_t>(i)] = matrix(i / 3, i % 3);
  return list;
}

}  // namespace planex::estimation
