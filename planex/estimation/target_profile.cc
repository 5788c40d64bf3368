#include "planex/estimation/target_profile.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace planex::estimation {

void requireTarget(const TargetProfile& profile) {
  constexpr std::size_t kMostCorners = 128;
  const auto refuse = [](const std::string& text) { throw std::invalid_argument(text); };
  const auto isNotNegative = [](double value) { return value >= 0 && std::isfinite(value); };
  const std::size_t count = profile.corners.size();
  if (count < 2 || count > kMostCorners) {
    refuse("has " + std::to_string(count) + " corners; a target has 2 to " +
           std::to_string(kMostCorners));
  }
  if (!isNotNegative(profile.tolerance) || !isNotNegative(profile.scaleTolerance) ||
      !isNotNegative(profile.margin)) {
    refuse("has a tolerance or margin that is not 0 or more");
  }
  for (std::size_t i = 0; i < count; ++i) {
    const auto& corner = profile.corners[i];
    const std::string name = "has a corner " + std::to_string(i + 1);
    if (!std::isfinite(corner.x) || !std::isfinite(corner.y)) refuse(name + " that is not finite");
    if (i == 0) continue;
    const auto& before = profile.corners[i - 1];
    if (corner.x < before.x) {
      refuse(name + " whose x is less than that before it; list corners from left to right");
    }
    if (corner.x == before.x && corner.y == before.y) refuse(name + " that repeats the one before");
  }
}

}  // namespace planex::estimation
