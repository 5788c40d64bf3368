#include "planex/infra/logger.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include "planex/infra/float_environment.h"
#include "planex/infra/fork_safety.h"

namespace base {
namespace {

thread_local bool insideHandler = false;

/// Marks this thread as running handlers, also when one of them throws.
class HandlerScope {
 public:
  HandlerScope() { insideHandler = true; }
  ~HandlerScope() { insideHandler = false; }
  HandlerScope(const HandlerScope&) = delete;
  HandlerScope& operator=(const HandlerScope&) = delete;
};

std::string formatted(const char* format, std::va_list args) {
  std::va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text;
  if (length < 0) {
    text = format;  // cannot be filled in: better than nothing
  } else {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, args);
  }
  return text;
}

}  // namespace

Logger::Logger(std::string name, Logger* parent, std::int32_t level)
    : handlers_(std::make_shared<const HandlerList>()),
      parent_(parent),
      name_(std::move(name)),
      level_(level) {}

// The root and the map of the others are never destroyed: static objects of a caller may log
// from their destructors.
Logger& Logger::GetRoot() {
  static auto* const root = new Logger("", nullptr, WARNING);
  return *root;
}

namespace {

// Made while the library is loaded, so that no later call lacks memory for it.
[[maybe_unused]] const Logger& root = Logger::GetRoot();

using Loggers = std::map<std::string, std::unique_ptr<Logger>, std::less<>>;
std::mutex loggersMutex;
Loggers* loggers = nullptr;  // all but the root

}  // namespace

/// What guardAgainstForks does for one mutex, for those of all loggers.
struct Logger::ForkHandlers {
  template <typename Action>
  static void ForEachMutex(Action action) {
    action(GetRoot().handlersMutex_);
    if (loggers == nullptr) return;
    for (const auto& [name, logger] : *loggers) action(logger->handlersMutex_);
  }
  static void BeforeFork() {
    loggersMutex.lock();
    ForEachMutex([](std::shared_mutex& mutex) { mutex.lock(); });
  }
  static void InParent() {
    ForEachMutex([](std::shared_mutex& mutex) { mutex.unlock(); });
    loggersMutex.unlock();
  }
  static void InChild() {
    ForEachMutex([](std::shared_mutex& mutex) { makeAnew(mutex); });
    makeAnew(loggersMutex);
  }
  static const int kRegistered;
};
const int Logger::ForkHandlers::kRegistered = pthread_atfork(BeforeFork, InParent, InChild);

Logger& Logger::Get(const std::string& name) { return Find(name); }
Logger& Logger::Get(const char* name) { return Find(name); }

Logger& Logger::Find(std::string_view name) {
  if (name.empty()) return GetRoot();
  try {
    const std::lock_guard lock(loggersMutex);
    if (loggers == nullptr) loggers = new Loggers;
    const auto found = loggers->find(name);
    if (found != loggers->end()) return *found->second;
    std::unique_ptr<Logger> logger(new Logger(std::string(name), &GetRoot(), INHERIT));
    return *loggers->emplace(name, std::move(logger)).first->second;
  } catch (const std::bad_alloc&) {
    return GetRoot();  // its handlers get what the missing logger would have handed on
  }
}

bool Logger::IsLoggable(std::int32_t level) const {
  for (const Logger* logger = this; logger != nullptr; logger = logger->parent_) {
    const std::int32_t threshold = logger->level_;
    if (threshold != INHERIT) return level >= threshold;
  }
  return true;  // the root's level was set to INHERIT: there is nobody left to refuse
}

void Logger::LogFormatted(std::int32_t level, const char* format, std::va_list args) {
  std::string message;
  try {
    message = formatted(format, args);
  } catch (const std::bad_alloc&) {
    return;
  }
  Log(level, message);
}

// A function with variable arguments cannot hand them on but as a va_list of its own.
#define PLANEX_LOG_AT(level)           \
  if (!IsLoggable(level)) return;      \
  std::va_list args;                   \
  va_start(args, format);              \
  LogFormatted((level), format, args); \
  va_end(args)

void Logger::Severe(const char* format, ...) { PLANEX_LOG_AT(SEVERE); }
void Logger::Warning(const char* format, ...) { PLANEX_LOG_AT(WARNING); }
void Logger::Info(const char* format, ...) { PLANEX_LOG_AT(INFO); }
void Logger::Config(const char* format, ...) { PLANEX_LOG_AT(CONFIG); }
void Logger::Fine(const char* format, ...) { PLANEX_LOG_AT(FINE); }
void Logger::Finer(const char* format, ...) { PLANEX_LOG_AT(FINER); }
void Logger::Finest(const char* format, ...) { PLANEX_LOG_AT(FINEST); }

#undef PLANEX_LOG_AT

void Logger::Log(std::int32_t level, const std::string& message) {
  LogRecord record;
  try {
    record.loggerName = name_;
    record.message = message;
  } catch (const std::bad_alloc&) {
    return;
  }
  record.level = level;
  record.timestamp = static_cast<std::uint32_t>(std::time(nullptr));
  Publish(record);
}

void Logger::Publish(const LogRecord& record) const {
  if (insideHandler) return;
  const HandlerScope scope;
  const CallersFloatEnvironment environment;
  for (const Logger* logger = this; logger != nullptr;) {
    const std::shared_ptr<const HandlerList> handlers = logger->Handlers();
    for (const auto& handler : *handlers) {
      if (handler->IsLoggable(record)) handler->Publish(record);
    }
    logger = logger->useParentHandlers_ ? logger->parent_ : nullptr;
  }
}

std::shared_ptr<const Logger::HandlerList> Logger::Handlers() const {
  const std::shared_lock lock(handlersMutex_);
  return handlers_;
}

/// Replaces the list by `change` of a copy of it. The former list, and with it handlers that
/// nobody else holds, goes after the lock is released, because their destructors may log.
template <typename Change>
void Logger::ChangeHandlers(const Change& change) {
  std::shared_ptr<const HandlerList> former;
  const std::unique_lock lock(handlersMutex_);
  auto handlers = std::make_shared<HandlerList>(*handlers_);
  change(*handlers);
  former = std::exchange(handlers_, std::move(handlers));
}

void Logger::AddHandler(std::unique_ptr<LogHandler> handler) {
  if (handler == nullptr) return;
  const std::shared_ptr<LogHandler> added = std::move(handler);
  ChangeHandlers([&](HandlerList& handlers) { handlers.push_back(added); });
}

void Logger::RemoveAllHandlers(bool all) {
  ChangeHandlers([&](HandlerList& handlers) {
    const auto goes = [&](const auto& handler) { return all || handler->IsRemovable(); };
    handlers.erase(std::remove_if(handlers.begin(), handlers.end(), goes), handlers.end());
  });
}

void Logger::ReplaceAllHandlers(std::unique_ptr<LogHandler> handler) {
  const std::shared_ptr<LogHandler> added = std::move(handler);
  ChangeHandlers([&](HandlerList& handlers) {
    handlers.clear();
    if (added != nullptr) handlers.push_back(added);
  });
}

std::shared_ptr<LogHandler> Logger::GetHandler(const std::string& name) const {
  const std::shared_ptr<const HandlerList> handlers = Handlers();
  for (const auto& handler : *handlers) {
    if (handler->GetName() == name) return handler;
  }
  return nullptr;
}

}  // namespace base
