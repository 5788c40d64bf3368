#pragma once

#include <exception>
#include <string>

#include "planex/infra/logger.h"

namespace tavik::planex {

/// A refusal on its way to the C boundary, where guarded() turns it into one log record.
class CalibrationException : public std::exception {
 public:
  /// @param message the text for the log; it serves as a printf format without arguments, so it
  ///                holds no percent sign
  explicit CalibrationException(std::string message);
  /// The same for a text with static storage; needs no memory.
  explicit CalibrationException(const char* message);

  /// Throws a CalibrationException with `message` when `condition` is false.
  static void throwUnless(bool condition, const char* message) {
    if (!condition) throw CalibrationException(message);
  }
  static void throwUnless(bool condition, const std::string& message) {
    if (!condition) throw CalibrationException(message);
  }

  const char* what() const noexcept override {
    return literal_ != nullptr ? literal_ : message_.c_str();
  }

  /// Logs the message at level SEVERE.
  void logError(base::Logger& logger) const;

 private:
  const char* literal_ = nullptr;
  std::string message_;
};

}  // namespace tavik::planex
