#pragma once

#include <cstdint>
#include <string>

namespace base {

/// One logged message on its way to the handlers.
struct LogRecord {
  std::int32_t level = 0;       ///< a LogLevel
  std::string loggerName;       ///< the logger on which it was logged; "" for the root
  std::string message;          ///< formatted text without line end
  std::uint32_t timestamp = 0;  ///< seconds since 1970-01-01 UTC, modulo 2^32
};

}  // namespace base
