#pragma once

#include <cstdint>
#include <string>

#include "planex/infra/export.h"

namespace datafusion::planex {

/// How far a model is calibrated. The two last values are other names: 2D alignment is states 2 and
/// 4, 3D alignment states 3 and 5.
enum class ModelState : std::int32_t {
  UNCALIBRATED = 0,           ///< nothing valid yet
  CALIBRATED = 1,             ///< lens model and homography valid
  CALIBRATED_ALIGNED_2D = 2,  ///< and aligned in the laser plane
  CALIBRATED_ALIGNED_3D = 3,  ///< and aligned in space
  ALIGNED_2D = 4,             ///< aligned in the laser plane
  ALIGNED_3D = 5,             ///< aligned in space
};

/// Which directions of the calibrated plane were measured in the light plane, when the
/// skew-corrected pose is formed.
enum class SkewMode : std::int32_t {
  XZ_IN_LIGHT_PLANE = 0,      ///< both
  Z_NOT_IN_LIGHT_PLANE = 1,   ///< X only
  XZ_NOT_IN_LIGHT_PLANE = 2,  ///< none
};

/// @{
/// What a state says. Values that have no name say nothing.
constexpr bool isCalibrated(ModelState state) {
  return state == ModelState::CALIBRATED || state == ModelState::CALIBRATED_ALIGNED_2D ||
         state == ModelState::CALIBRATED_ALIGNED_3D;
}
constexpr bool isAligned2D(ModelState state) {
  return state == ModelState::CALIBRATED_ALIGNED_2D || state == ModelState::ALIGNED_2D;
}
constexpr bool isAligned3D(ModelState state) {
  return state == ModelState::CALIBRATED_ALIGNED_3D || state == ModelState::ALIGNED_3D;
}
/// @}

/// @{
/// @return the enumerator's name; an empty text for a value that has none
PLANEX_EXPORT std::string stateToString(ModelState state);
PLANEX_EXPORT std::string skewModeToString(SkewMode mode);
/// @}

/// @{
/// @return the value of exactly that name; UNCALIBRATED or XZ_IN_LIGHT_PLANE for any other text
PLANEX_EXPORT ModelState stringToState(const std::string& text);
PLANEX_EXPORT SkewMode stringToSkewMode(const std::string& text);
/// @}

}  // namespace datafusion::planex
