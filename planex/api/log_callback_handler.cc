#include "planex/api/log_callback_handler.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <new>

namespace tavik::planex {
namespace {

constexpr const char* kHandlerName = "CalibrationLibLogHandler";

/// The local time as "2024-05-03 14-07-09: "; empty when it cannot be told.
std::string timePrefix() {
  const std::time_t now = std::time(nullptr);
  std::tm local;
  if (localtime_r(&now, &local) == nullptr) return {};
  char text[64];
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H-%M-%S: ", &local));
}

}  // namespace

LogCallbackHandler::LogCallbackHandler(const std::string& name)
    : LogCallbackHandler(name, nullptr) {}

LogCallbackHandler::LogCallbackHandler(const std::string& name, LogCallback callback)
    : LogHandler(name, false), callback_(callback) {}

void LogCallbackHandler::Publish(const base::LogRecord& record) {
  std::string text;
  try {
    text = timePrefix() + GetLogLevelPrefix(record) + record.message;
  } catch (const std::bad_alloc&) {
    return;  // dropped, like every record that there is no memory for
  }
  if (callback_ != nullptr) {
    callback_(text.c_str());
    return;
  }
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

void installLogCallback(LogCallback callback) {
  base::Logger::GetRoot().ReplaceAllHandlers(
      std::make_unique<LogCallbackHandler>(kHandlerName, callback));
}

base::Logger& interfaceLogger() {
  base::Logger& root = base::Logger::GetRoot();
  try {
    if (root.GetHandler(kHandlerName) == nullptr) installLogCallback(nullptr);
  } catch (const std::bad_alloc&) {
    // The handlers that are there have to do.
  }
  return root;
}

}  // namespace tavik::planex
