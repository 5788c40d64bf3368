#include "planex/model/model_state.h"

#include <cstddef>

namespace datafusion::planex {
namespace {

constexpr const char* kStates[] = {"UNCALIBRATED",          "CALIBRATED", "CALIBRATED_ALIGNED_2D",
                                   "CALIBRATED_ALIGNED_3D", "ALIGNED_2D", "ALIGNED_3D"};
constexpr const char* kSkewModes[] = {"XZ_IN_LIGHT_PLANE", "Z_NOT_IN_LIGHT_PLANE",
                                      "XZ_NOT_IN_LIGHT_PLANE"};

template <typename Enum, std::size_t N>
std::string nameOf(const char* const (&names)[N], Enum value) {
  const auto index = static_cast<std::size_t>(value);
  return index < N ? names[index] : "";
}

template <typename Enum, std::size_t N>
Enum valueOf(const char* const (&names)[N], const std::string& text) {
  for (std::size_t i = 0; i < N; ++i) {
    if (text == names[i]) return static_cast<Enum>(i);
  }
  return Enum{};
}

}  // namespace

std::string stateToString(ModelState state) { return nameOf(kStates, state); }
std::string skewModeToString(SkewMode mode) { return nameOf(kSkewModes, mode); }
ModelState stringToState(const std::string& text) { return valueOf<ModelState>(kStates, text); }
SkewMode stringToSkewMode(const std::string& text) { return valueOf<SkewMode>(kSkewModes, text); }

}  // namespace datafusion::planex
