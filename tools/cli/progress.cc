#include "tools/cli/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <utility>

namespace planex::tools {
namespace {

constexpr std::string_view kWipe = "\r\x1b[K";  // carriage return, erase to the end of the line
constexpr int kBarWidth = 20;

std::string durationText(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::ceil(std::min(seconds, 1e9)));
  if (whole < 60) return fmt::format("{} s", whole);
  if (whole < 3600) return fmt::format("{} min {:02} s", whole / 60, whole % 60);
  return fmt::format("{} h {:02} min", whole / 3600, whole / 60 % 60);
}

std::string rateText(double perSecond, const std::string& unit) {
  if (perSecond >= 1e6) return fmt::format("{:.1f} M {}/s", perSecond / 1e6, unit);
  if (perSecond >= 1e3) return fmt::format("{:.1f} k {}/s", perSecond / 1e3, unit);
  return fmt::format("{:.1f} {}/s", perSecond, unit);
}

}  // namespace

Progress::Progress(const Context& context, std::string title, std::int64_t total, std::string unit)
    : title_(std::move(title)),
      unit_(std::move(unit)),
      total_(total),
      wanted_(!context.quiet && isatty(STDERR_FILENO) != 0),
      start_(Clock::now()),
      next_(start_ + std::chrono::seconds(1)) {}

Progress::~Progress() {
  if (!drawn_) return;
  std::fwrite(kWipe.data(), 1, kWipe.size(), stderr);
  std::fflush(stderr);
}

void Progress::advance(std::int64_t count, const std::string& remark) {
  if (!wanted_) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  done_ += count;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + std::chrono::milliseconds(100);
  draw(now, remark);
}

void Progress::draw(Clock::time_point now, const std::string& remark) {
  const double share =
      total_ > 0 ? std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_)) : 1.0;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double rate = static_cast<double>(done_) / seconds;
  const auto filled = static_cast<std::size_t>(share * kBarWidth);
  std::string line(kWipe);
  if (total_ == kUnknown) {
    line += fmt::format("{} {} {}, {}", title_, done_, unit_, rateText(rate, unit_));
  } else {
    line += fmt::format("{} [{}{}] {:.0f} %, {}", title_, std::string(filled, '#'),
                        std::string(kBarWidth - filled, '.'), 100 * share, rateText(rate, unit_));
    if (share > 0) line += fmt::format(", {} left", durationText(seconds / share - seconds));
  }
  if (!remark.empty()) line += ", " + remark;
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace planex::tools
