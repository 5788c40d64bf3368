#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

/// What reached the log callback of the C interface since construction.
class LogCount {
 public:
  LogCount();
  ~LogCount();
  LogCount(const LogCount&) = delete;
  LogCount& operator=(const LogCount&) = delete;

  /// Checks what a call of the C interface left in the log: after success no SEVERE; after a
  /// refusal one SEVERE, or else a warning of the algorithm. Starts to count anew.
  void CheckCall(bool succeeded);

  /// Checks a call below the C interface: after a refusal there is a warning, and never a SEVERE.
  /// Starts to count anew.
  void CheckRefusal(bool succeeded);

  /// Records since the last check.
  static int Severe();
  static int Warnings();
  static void Clear();
};

/// The memory that a stretch of code holds at once, over what it found when it began. Needs the
/// allocator of a sanitizer; without one the peak stays 0.
class MemoryPeak {
 public:
  MemoryPeak();
  std::size_t Bytes() const;
};

/// How many threads the regions of the library take from now on, from one pixel a thread on.
void useThreads(int count);

/// The bytes of a value, to compare outputs before and after a refusal.
template <typename T>
std::string bytesOf(const T& value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Equal bits, any NaN being equal to any NaN.
bool sameBits(double a, double b);
bool sameBits(float a, float b);

}  // namespace fuzz

extern "C" {
/// The entry of a target, called by the fuzzer or by the replay. Returns 0.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}
