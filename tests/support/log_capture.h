#pragma once

#include <string>
#include <vector>

#include "planex/api/planex.h"

namespace test {

/// Receives what reaches the log callback, from construction to destruction.
class LogCapture {
 public:
  LogCapture() {
    texts().clear();
    registerLogHandler([](const char* text) { texts().emplace_back(text); });
  }
  ~LogCapture() { registerLogHandler(nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The texts since the last call, without their time: "SEVERE: Handle is NULL".
  std::vector<std::string> take() {
    std::vector<std::string> taken;
    for (const std::string& text : texts()) taken.push_back(text.substr(kTimeLength));
    texts().clear();
    return taken;
  }

  /// The one text since the last call; all of them joined when there is not exactly one.
  std::string takeOne() {
    std::string joined;
    for (const std::string& text : take()) joined += (joined.empty() ? "" : " | ") + text;
    return joined;
  }

 private:
  static constexpr std::size_t kTimeLength = 21;  // "2024-05-03 14-07-09: "

  static std::vector<std::string>& texts() {
    static std::vector<std::string> received;
    return received;
  }
};

}  // namespace test
