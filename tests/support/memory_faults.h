#pragma once

#include <atomic>

namespace test {

/// Whether allocations fail: set by the program that lets them, read by what has to know. In other
/// programs none ever fails.
struct MemoryFaults {
  inline static std::atomic<bool> allowed{true};
  inline static std::atomic<bool> struck{false};
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
