#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace test {

/// What the program that lets allocations fail shares with those that have to know. In other
/// programs none ever fails, and none is counted.
struct MemoryFaults {
  inline static std::atomic<bool> allowed{true};
  inline static std::atomic<bool> struck{false};
  /// The numbers of the allocations that fail, and of the last one.
  inline static std::atomic<long> first{0}, last{0}, requests{0};
  inline static std::atomic<std::int64_t> liveBlocks{0}, liveBytes{0}, peakBytes{0};
};

/// The memory that a stretch of code holds at once, over what it found when it began.
class MemoryPeak {
 public:
  MemoryPeak() { MemoryFaults::peakBytes = before_; }
  std::size_t Bytes() const { return static_cast<std::size_t>(MemoryFaults::peakBytes - before_); }

 private:
  const std::int64_t before_ = MemoryFaults::liveBytes;
};

/// Allows or forbids that allocations fail, on all threads, while the object lives.
class MayFail {
 public:
  explicit MayFail(bool allowed) : before_(MemoryFaults::allowed.exchange(allowed)) {}
  ~MayFail() { MemoryFaults::allowed = before_; }
  MayFail(const MayFail&) = delete;
  MayFail& operator=(const MayFail&) = delete;

 private:
  bool before_;
};

}  // namespace test
