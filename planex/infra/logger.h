#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

#include "planex/infra/export.h"
#include "planex/infra/log_handler.h"
#include "planex/infra/log_level.h"
#include "planex/infra/log_record.h"

namespace base {

/// A named source of log records.
///
/// Loggers form a tree whose root has the empty name; every other logger is a child of the root.
/// A record goes to the handlers of its logger, then to those of the root. The level of the root
/// is WARNING, that of the others INHERIT, so warnings and worse pass until a level is changed.
///
/// Loggers live from first use until the process has ended, also while other static objects are
/// destroyed. Any thread may use any operation. A record logged from inside a handler, on the
/// same thread, is dropped, and so is one that there is no memory for: logging throws nothing but
/// what a handler throws. Handlers run in the floating-point environment of the library's caller.
class PLANEX_EXPORT Logger {
 public:
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  /// @{
  /// The logger of that name, made on first use; "" gives the root, and so does a first use that
  /// there is no memory for.
  static Logger& Get(const std::string& name);
  static Logger& Get(const char* name);
  /// @}
  /// The parent of all others.
  static Logger& GetRoot();

  /// @return whether `level` reaches the level of this logger, or of its nearest ancestor that
  ///         has one
  bool IsLoggable(std::int32_t level) const;

  /// @{
  /// Log `format`, filled in printf-style, when the level is loggable. Numbers are formatted
  /// independently of the locale as long as only integers and strings are used. A format that
  /// cannot be filled in is logged as it stands.
  void Severe(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Warning(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Info(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Config(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Fine(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Finer(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Finest(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// @}

  /// Hands `message` to the handlers whatever the logger's level is.
  void Log(std::int32_t level, const std::string& message);

  /// Takes ownership and appends the handler.
  void AddHandler(std::unique_ptr<LogHandler> handler);
  /// Removes and destroys the handlers; those that are not removable only when `all` is set. A
  /// handler that is publishing on some thread is destroyed when it has returned.
  void RemoveAllHandlers(bool all);
  /// Removes all handlers and adds this one, in one step: no record finds the list empty.
  void ReplaceAllHandlers(std::unique_ptr<LogHandler> handler);
  /// @return the first handler of that name, kept alive by the pointer, or null
  std::shared_ptr<LogHandler> GetHandler(const std::string& name) const;

  /// "" for the root.
  const std::string& GetName() const { return name_; }
  /// @{
  /// Least level of a record that passes; INHERIT: that of the parent.
  std::int32_t GetLevel() const { return level_; }
  void SetLevel(std::int32_t level) { level_ = level; }
  /// @}
  /// @{
  /// Whether records go to the handlers of the parent, too; true at first.
  bool GetUseParentHandlers() const { return useParentHandlers_; }
  void SetUseParentHandlers(bool use) { useParentHandlers_ = use; }
  /// @}

 private:
  using HandlerList = std::vector<std::shared_ptr<LogHandler>>;

  struct PLANEX_HIDDEN ForkHandlers;

  Logger(std::string name, Logger* parent, std::int32_t level);

  static Logger& Find(std::string_view name);
  std::shared_ptr<const HandlerList> Handlers() const;
  template <typename Change>
  void ChangeHandlers(const Change& change);
  void LogFormatted(std::int32_t level, const char* format, std::va_list args);
  void Publish(const LogRecord& record) const;

  mutable std::shared_mutex handlersMutex_;
  // Never changed, only replaced as a whole: publishing works on a snapshot, without the lock.
  std::shared_ptr<const HandlerList> handlers_;
  Logger* const parent_;
  std::atomic<bool> useParentHandlers_{true};
  const std::string name_;
  std::atomic<std::int32_t> level_;
};

}  // namespace base
