#pragma once

#include <cstdint>
#include <string>

#include "planex/infra/export.h"
#include "planex/infra/log_level.h"
#include "planex/infra/log_record.h"

namespace base {

/// Receives the records of the loggers that it was added to.
///
/// Publish may be called from several threads at once.
class PLANEX_EXPORT LogHandler {
 public:
  /// @param name      by which Logger::GetHandler finds it
  /// @param removable false: Logger::RemoveAllHandlers(false) leaves it in place
  LogHandler(std::string name, bool removable);
  virtual ~LogHandler();
  LogHandler(const LogHandler&) = delete;
  LogHandler& operator=(const LogHandler&) = delete;

  /// Takes one record, on the thread that logged it.
  virtual void Publish(const LogRecord& record) = 0;
  /// @return whether the handler's level is at most the record's
  virtual bool IsLoggable(const LogRecord& record) const;
  /// What the constructor was given.
  virtual bool IsRemovable() const;

  /// What the constructor was given.
  const std::string& GetName() const { return name_; }
  /// Records below this level are not published.
  std::int32_t GetLevel() const { return level_; }
  /// Set before the handler is added to a logger; WARNING at first.
  void SetLevel(std::int32_t level) { level_ = level; }
  /// Set before the handler is added to a logger; true at first.
  void SetShowLogLevel(bool show) { showLogLevel_ = show; }

  /// @return the record's level name followed by ": ", or nothing when levels are not shown
  std::string GetLogLevelPrefix(const LogRecord& record) const;

 private:
  std::string name_;
  std::int32_t level_ = WARNING;
  bool removable_;
  bool showLogLevel_ = true;
};

}  // namespace base
