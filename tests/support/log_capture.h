#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "planex/infra/logger.h"
#include "tests/support/memory_faults.h"

namespace test {

/// Receives what is logged on any logger, the C interface's included, from construction to
/// destruction.
class LogCapture {
 public:
  explicit LogCapture(std::int32_t level = base::WARNING) {
    const MayFail no(false);
    auto handler = std::make_unique<Handler>(this);
    handler->SetLevel(level);
    base::Logger::GetRoot().ReplaceAllHandlers(std::move(handler));
  }
  ~LogCapture() {
    const MayFail no(false);
    base::Logger::GetRoot().RemoveAllHandlers(true);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The texts since the last call, with their level: "SEVERE: Handle is NULL". When there is not
  /// exactly one, all of them joined by " | ".
  std::string TakeOne() {
    std::string joined;
    for (std::size_t i = 0; i < messages_.size(); ++i) {
      joined += (i == 0 ? "" : " | ") + levels_[i] + messages_[i];
    }
    Clear();
    return joined;
  }

  /// @{
  /// Since the last call of Clear or TakeOne: the texts without their level, the names of their
  /// loggers, and how many of them have a level.
  const std::vector<std::string>& Messages() const { return messages_; }
  const std::vector<std::string>& Loggers() const { return loggers_; }
  int Warnings() const { return Count("WARNING: "); }
  int Severe() const { return Count("SEVERE: "); }
  /// @}

  void Clear() {
    messages_.clear();
    levels_.clear();
    loggers_.clear();
  }

 private:
  /// Has the name of the C interface's own handler, which it takes the place of.
  class Handler final : public base::LogHandler {
   public:
    explicit Handler(LogCapture* capture)
        : LogHandler("CalibrationLibLogHandler", true), capture_(capture) {}
    void Publish(const base::LogRecord& record) override {
      const MayFail no(false);
      capture_->messages_.push_back(record.message);
      capture_->levels_.push_back(GetLogLevelPrefix(record));
      capture_->loggers_.push_back(record.loggerName);
    }

   private:
    LogCapture* capture_;
  };

  int Count(const char* level) const {
    return static_cast<int>(std::count(levels_.begin(), levels_.end(), level));
  }

  std::vector<std::string> messages_, levels_, loggers_;
};

}  // namespace test
