#include "planex/estimation/target_matching.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdlib>
#include <limits>

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;
using Complex = std::complex<double>;

constexpr double kMostError = 0.12;   // of the distance of neighbours
constexpr double kAboutAsGood = 1.5;  // times the least error
constexpr double kMostAngle = 1;      // of a target, in radians

/// A row of corners of the profile that can be seen one after another, as they follow on the
/// sensor.
struct ProfileRow {
  std::vector<int> corners;
  std::vector<int> turns;  // as they look on the sensor
};

double slopeOf(const Place& a, const Place& b) { return (b.y - a.y) / (b.x - a.x); }

std::vector<ProfileRow> rowsOf(const TargetProfile& profile, const Orientation& orientation) {
  std::vector<ProfileRow> rows(1);
  const std::vector<Place>& corners = profile.corners;
  for (std::size_t i = 1; i + 1 < corners.size(); ++i) {
    const double before = slopeOf(corners[i - 1], corners[i]);
    const double after = slopeOf(corners[i], corners[i + 1]);
    if (!(std::abs(before) < kSteepestEdge) || !(std::abs(after) < kSteepestEdge)) {
      if (!rows.back().corners.empty()) rows.emplace_back();
      continue;
    }
    if (before == after) continue;
    rows.back().corners.push_back(static_cast<int>(i));
    rows.back().turns.push_back(after > before ? orientation.up : -orientation.up);
  }
  if (orientation.right < 0) {
    for (ProfileRow& row : rows) {
      std::reverse(row.corners.begin(), row.corners.end());
      std::reverse(row.turns.begin(), row.turns.end());
    }
  }
  return rows;
}

/// Rows of corners, [begin, end), in each of which each continues the one before.
std::vector<std::pair<std::size_t, std::size_t>> runsOf(const std::vector<SeenCorner>& seen) {
  std::vector<std::pair<std::size_t, std::size_t>> runs;
  for (std::size_t i = 0; i < seen.size(); ++i) {
    if (i == 0 || !seen[i].continues) runs.emplace_back(i, i);
    runs.back().second = i + 1;
  }
  return runs;
}

/// Tries all rows of `length` corners seen against all of the profile.
/// @param errorOf of a match; nothing where it is none
/// @param tries   how many matches may still be tried
template <typename ErrorOf>
std::optional<TargetMatch> bestOfLength(const std::vector<SeenCorner>& seen,
                                        const std::vector<ProfileRow>& rows, std::size_t length,
                                        std::size_t cornerCount, const ErrorOf& errorOf,
                                        int& tries) {
  std::vector<TargetMatch> matches;
  double least = kMostError;
  for (const auto& [begin, end] : runsOf(seen)) {
    for (std::size_t first = begin; first + length <= end; ++first) {
      for (const ProfileRow& row : rows) {
        for (std::size_t shift = 0; shift + length <= row.corners.size(); ++shift) {
          TargetMatch match;
          for (std::size_t i = 0; i < length; ++i) {
            if (seen[first + i].turn != row.turns[shift + i]) break;
            match.corners.push_back({static_cast<int>(first + i), row.corners[shift + i]});
          }
          if (match.corners.size() < length || --tries < 0) continue;
          const std::optional<double> error = errorOf(match.corners);
          if (!error || !(*error < kMostError)) continue;
          match.error = *error;
          least = std::min(least, *error);
          matches.push_back(std::move(match));
        }
      }
    }
  }
  const TargetMatch* best = nullptr;
  const auto offMiddle = [&](const TargetMatch& match) {
    return std::abs(match.corners.front().corner + match.corners.back().corner + 1 -
                    static_cast<int>(cornerCount));
  };
  for (const TargetMatch& match : matches) {
    constexpr double kRounding = 1e-3;
    if (match.error > std::max(kAboutAsGood * least, kRounding)) continue;
    if (best == nullptr || offMiddle(match) < offMiddle(*best)) best = &match;
  }
  return best == nullptr ? std::nullopt : std::optional(*best);
}

/// Of the longest rows that match at all.
template <typename ErrorOf>
std::optional<TargetMatch> longestMatch(const std::vector<SeenCorner>& seen,
                                        const TargetProfile& profile,
                                        const Orientation& orientation, std::size_t least,
                                        const ErrorOf& errorOf) {
  const std::vector<ProfileRow> rows = rowsOf(profile, orientation);
  std::size_t longest = 0, ofProfile = 0;
  for (const auto& [begin, end] : runsOf(seen)) longest = std::max(longest, end - begin);
  for (const ProfileRow& row : rows) ofProfile = std::max(ofProfile, row.corners.size());
  int tries = 20000;  // corners of noise match in all sorts of ways
  for (std::size_t length = std::min(longest, ofProfile); length >= least && tries > 0; --length) {
    auto match = bestOfLength(seen, rows, length, profile.corners.size(), errorOf, tries);
    if (match) return match;
  }
  return std::nullopt;
}

double meanDistance(const std::vector<Place>& places) {
  double sum = 0;
  for (std::size_t i = 1; i < places.size(); ++i) {
    sum += std::hypot(places[i].x - places[i - 1].x, places[i].y - places[i - 1].y);
  }
  return sum / static_cast<double>(places.size() - 1);
}

}  // namespace

std::optional<TargetMatch> matchByHomography(const std::vector<SeenCorner>& seen,
                                             const TargetProfile& profile,
                                             const Orientation& orientation,
                                             const std::function<Place(Place)>& normalised) {
  const auto errorOf = [&](const std::vector<CornerMatch>& corners) -> std::optional<double> {
    std::vector<PlacePair> pairs;
    std::vector<Place> places;
    for (const CornerMatch& match : corners) {
      places.push_back(normalised(seen[static_cast<std::size_t>(match.seen)].pixel));
      pairs.push_back({places.back(), profile.corners[static_cast<std::size_t>(match.corner)]});
    }
    const std::optional<PlaneHomography> h = fitHomography(pairs);
    if (!h) return std::nullopt;
    for (const Place& p : places) {  // by column and by row, in the middle of what is seen
      const double w = (*h)[6] * p.x + (*h)[7] * p.y + (*h)[8];
      const double x = ((*h)[0] * p.x + (*h)[1] * p.y + (*h)[2]) / w;
      const double z = ((*h)[3] * p.x + (*h)[4] * p.y + (*h)[5]) / w;
      const bool isRight = ((*h)[0] - x * (*h)[6]) / w * orientation.right > 0;
      const bool isUp = ((*h)[4] - z * (*h)[7]) / w * orientation.up > 0;
      if (!isRight || !isUp) return std::nullopt;
    }
    return rmsOnSensor(pairs, *h) / meanDistance(places);
  };
  constexpr std::size_t kLeast = 4;
  return longestMatch(seen, profile, orientation, kLeast, errorOf);
}

std::optional<TargetMatch> matchByMotion(const std::vector<SeenCorner>& seen,
                                         const std::vector<Place>& inPlane,
                                         const TargetProfile& profile,
                                         const Orientation& orientation,
                                         RigidPlacement& placement) {
  const auto motionOf = [&](const std::vector<CornerMatch>& corners, RigidPlacement& motion) {
    Complex from, to, product;
    const double share = 1 / static_cast<double>(corners.size());
    const auto ofTarget = [&](const CornerMatch& m) {
      const Place& p = profile.corners[static_cast<std::size_t>(m.corner)];
      return Complex(p.x, p.y);
    };
    const auto ofPlane = [&](const CornerMatch& m) {
      const Place& p = inPlane[static_cast<std::size_t>(m.seen)];
      return Complex(p.x, p.y);
    };
    for (const CornerMatch& m : corners) {
      from += share * ofTarget(m);
      to += share * ofPlane(m);
    }
    for (const CornerMatch& m : corners) {
      product += std::conj(ofTarget(m) - from) * (ofPlane(m) - to);
    }
    const Complex turn = product / std::abs(product);
    const Complex shift = to - turn * from;
    motion = {shift.real(), shift.imag(), std::arg(turn)};
    double squares = 0;
    for (const CornerMatch& m : corners) {
      squares += share * std::norm(turn * ofTarget(m) + shift - ofPlane(m));
    }
    return std::sqrt(squares);
  };
  const auto errorOf = [&](const std::vector<CornerMatch>& corners) -> std::optional<double> {
    RigidPlacement motion;
    const double error = motionOf(corners, motion);
    if (!(std::abs(motion.angle) < kMostAngle)) return std::nullopt;
    std::vector<Place> places;
    places.reserve(corners.size());
    for (const CornerMatch& m : corners) {
      places.push_back(profile.corners[static_cast<std::size_t>(m.corner)]);
    }
    return error / meanDistance(places);
  };
  constexpr std::size_t kLeast = 3;
  auto match = longestMatch(seen, profile, orientation, kLeast, errorOf);
  if (match) motionOf(match->corners, placement);
  return match;
}

}  // namespace planex::estimation
