#pragma once

#include <string>

#include "planex/infra/log_handler.h"
#include "planex/infra/logger.h"

namespace tavik::planex {

/// The caller's log function, or standard output where there is none.
using LogCallback = void (*)(const char*);

/// Hands each record as one text to the caller's log function.
///
/// The text is local time, level and message, "2024-05-03 14-07-09: SEVERE: Handle is NULL",
/// without a line end. Without a function it goes to standard output, one line per record.
class LogCallbackHandler : public base::LogHandler {
 public:
  explicit LogCallbackHandler(const std::string& name);
  LogCallbackHandler(const std::string& name, LogCallback callback);

  void Publish(const base::LogRecord& record) override;

 private:
  LogCallback callback_;
};

/// Makes a LogCallbackHandler the only handler of the root logger. The one that it replaces is
/// destroyed when it has returned from the record it may be publishing.
///
/// @param callback null for standard output
void installLogCallback(LogCallback callback);

/// The logger of the C interface: the root. Installs a handler that prints to standard output when
/// no LogCallbackHandler is there.
base::Logger& interfaceLogger();

}  // namespace tavik::planex
