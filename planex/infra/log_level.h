#pragma once

#include <cstdint>

#include "planex/infra/export.h"

namespace base {

/// Severity of a record and threshold of a logger or handler; larger is more severe.
enum LogLevel : std::int32_t {
  INHERIT = 0,  ///< logger: the nearest ancestor's level applies
  ALL = 1,
  FINEST = 300,
  FINER = 400,
  FINE = 500,
  CONFIG = 700,
  INFO = 800,
  WARNING = 900,
  SEVERE = 1000,
  OFF = 2147483647,
};

/// @return the enumerator's name, "InvalidLogLevel" for any other value; static storage
PLANEX_EXPORT const char* GetLogLevelName(std::int32_t level);

}  // namespace base
