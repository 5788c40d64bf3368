#include "planex/infra/log_handler.h"

#include <utility>

namespace base {

LogHandler::LogHandler(std::string name, bool removable)
    : name_(std::move(name)), removable_(removable) {}

LogHandler::~LogHandler() = default;

bool LogHandler::IsLoggable(const LogRecord& record) const { return level_ <= record.level; }

bool LogHandler::IsRemovable() const { return removable_; }

std::string LogHandler::GetLogLevelPrefix(const LogRecord& record) const {
  if (!showLogLevel_) return {};
  return std::string(GetLogLevelName(record.level)) + ": ";
}

}  // namespace base
