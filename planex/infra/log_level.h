#pragma once

#include <cstdint>

#include "planex/infra/export.h"

namespace base {

/// Severity of a record and threshold of a logger or handler; larger is more severe.
enum LogLevel : std::int32_t {
  INHERIT = 0,       ///< logger: the nearest ancestor's level applies
  ALL = 1,           ///< threshold: everything passes
  FINEST = 300,      ///< most detailed tracing
  FINER = 400,       ///< detailed tracing
  FINE = 500,        ///< tracing
  CONFIG = 700,      ///< how something is set up
  INFO = 800,        ///< worth knowing, nothing is wrong
  WARNING = 900,     ///< a function refused, its result tells so
  SEVERE = 1000,     ///< the C interface refused
  OFF = 2147483647,  ///< threshold: nothing passes
};

/// @return the enumerator's name, "InvalidLogLevel" for any other value; static storage
PLANEX_EXPORT const char* GetLogLevelName(std::int32_t level);

}  // namespace base
