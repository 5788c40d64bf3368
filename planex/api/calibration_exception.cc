#include "planex/api/calibration_exception.h"

#include <utility>

namespace tavik::planex {

CalibrationException::CalibrationException(std::string message) : message_(std::move(message)) {}

CalibrationException::CalibrationException(const char* message) : literal_(message) {}

void CalibrationException::logError(base::Logger& logger) const {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
  logger.Severe(what());  // all messages are texts of this layer, free of percent signs
#pragma GCC diagnostic pop
}

}  // namespace tavik::planex
