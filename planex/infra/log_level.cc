#include "planex/infra/log_level.h"

namespace base {

const char* GetLogLevelName(std::int32_t level) {
  switch (level) {
    case INHERIT:
      return "INHERIT";
    case ALL:
      return "ALL";
    case FINEST:
      return "FINEST";
    case FINER:
      return "FINER";
    case FINE:
      return "FINE";
    case CONFIG:
      return "CONFIG";
    case INFO:
      return "INFO";
    case WARNING:
      return "WARNING";
    case SEVERE:
      return "SEVERE";
    case OFF:
      return "OFF";
    default:
      return "InvalidLogLevel";
  }
}

}  // namespace base
