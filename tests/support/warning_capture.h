#pragma once

#include <memory>
#include <string>
#include <vector>

#include "planex/infra/logger.h"

/// Collects what is logged on any logger, from construction to destruction.
class WarningCapture {
 public:
  WarningCapture() { base::Logger::GetRoot().ReplaceAllHandlers(std::make_unique<Handler>(this)); }
  ~WarningCapture() { base::Logger::GetRoot().RemoveAllHandlers(true); }
  WarningCapture(const WarningCapture&) = delete;
  WarningCapture& operator=(const WarningCapture&) = delete;

  /// The texts so far, without level.
  const std::vector<std::string>& Messages() const { return messages_; }
  /// The names of the loggers that they came from.
  const std::vector<std::string>& Loggers() const { return loggers_; }

 private:
  class Handler final : public base::LogHandler {
   public:
    explicit Handler(WarningCapture* capture)
        : LogHandler("WarningCapture", true), capture_(capture) {}
    void Publish(const base::LogRecord& record) override {
      capture_->messages_.push_back(record.message);
      capture_->loggers_.push_back(record.loggerName);
    }

   private:
    WarningCapture* capture_;
  };

  std::vector<std::string> messages_;
  std::vector<std::string> loggers_;
};
