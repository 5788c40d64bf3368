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
  /// exactly one, all of them joined by " | ". What does not come of `logger` has its logger's name
  /// before it, unless any may log.
  std::string TakeOne(const std::string& logger = "") {
    std::string joined;
    for (const base::LogRecord& record : records_) {
      if (!joined.empty()) joined += " | ";
      if (!logger.empty() && record.loggerName != logger) joined += record.loggerName + ": ";
      joined += std::string(base::GetLogLevelName(record.level)) + ": " + record.message;
    }
    Clear();
    return joined;
  }

  /// @{
  /// How many there are of a level since the last call of Clear or TakeOne.
  int Warnings() const { return Count(base::WARNING); }
  int Severe() const { return Count(base::SEVERE); }
  /// @}

  void Clear() { records_.clear(); }

 private:
  /// Has the name of the C interface's own handler, which it takes the place of.
  class Handler final : public base::LogHandler {
   public:
    explicit Handler(LogCapture* capture)
        : LogHandler("CalibrationLibLogHandler", true), capture_(capture) {}
    void Publish(const base::LogRecord& record) override {
      const MayFail no(false);
      capture_->records_.push_back(record);
    }

   private:
    LogCapture* capture_;
  };

  int Count(std::int32_t level) const {
    const auto has = [level](const base::LogRecord& record) { return record.level == level; };
    return static_cast<int>(std::count_if(records_.begin(), records_.end(), has));
  }

  std::vector<base::LogRecord> records_;
};

}  // namespace test
