#pragma once

#include <utility>

#include "planex/api/calibration_exception.h"
#include "planex/api/log_callback_handler.h"
#include "planex/infra/float_environment.h"

namespace tavik::planex {

/// The refusal of every size or scale that the world bounds and rectification cannot work with.
inline constexpr const char* kInvalidScaleMessage = "Invalid data in sensor traits scale X / Z";

/// Runs the body of one exported function, in the default floating-point environment, and returns
/// its result.
///
/// A CalibrationException becomes one SEVERE record and false. Any other exception passes on to the
/// caller: bad input is refused by checks before it can raise one, what remains is std::bad_alloc.
template <typename Body>
bool guarded(Body&& body) {
  try {
    const base::DefaultFloatEnvironment environment;
    return std::forward<Body>(body)();
  } catch (const CalibrationException& error) {
    error.logError(interfaceLogger());
    return false;
  }
}

}  // namespace tavik::planex
