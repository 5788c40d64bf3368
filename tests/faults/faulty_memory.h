#pragma once

namespace test {

// This program replaces operator new, the malloc and its kind that its own objects call, and the
// hooks of cJSON. The OpenMP runtime and the C library keep their own.

/// Which allocations fail: only number `first`, or all from there on.
enum class Fault { Once, FromThere };

/// Lets allocations fail while the object lives, where MemoryFaults::allowed; on all threads, one
/// object at a time.
class FaultyMemory {
 public:
  FaultyMemory(long first, Fault fault);
  ~FaultyMemory();
  FaultyMemory(const FaultyMemory&) = delete;
  FaultyMemory& operator=(const FaultyMemory&) = delete;

  /// Allocations that could have failed.
  static long requests();
};

/// Blocks in use.
long liveBlocks();

}  // namespace test
