#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "tools/cli/options.h"

namespace planex::tools {

/// A bar with rate and time left on standard error:
///
///     calibrating [##########..........] 50 %, 12.3 M points/s, 4 s left
///
/// or, where nobody knows how many there will be,
///
///     grabbing 1200 frames, 200.0 frames/s, 0 lost
///
/// It appears after a second and only on a terminal, not with --quiet, and is wiped at the end.
class Progress {
 public:
  static constexpr std::int64_t kUnknown = -1;

  /// @param title  what is done, "calibrating"
  /// @param total  how many items there are; kUnknown
  /// @param unit   what the items are, "points"
  Progress(const Context& context, std::string title, std::int64_t total, std::string unit);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Tells of `count` more items that are done; on any thread.
  /// @param remark  what stands at the end of the line; empty: nothing
  void advance(std::int64_t count, const std::string& remark = {});

 private:
  using Clock = std::chrono::steady_clock;

  void draw(Clock::time_point now, const std::string& remark);

  const std::string title_, unit_;
  const std::int64_t total_;
  const bool wanted_;
  const Clock::time_point start_;
  std::mutex mutex_;
  std::int64_t done_ = 0;
  Clock::time_point next_;  // when to draw
  bool drawn_ = false;
};

}  // namespace planex::tools
