#pragma once

#include <functional>
#include <ostream>

namespace test {

// This program replaces operator new, the malloc and its kind that its own objects call,
// and the hooks of cJSON. The OpenMP runtime and the C library keep their own.

/// Which allocations fail: only number `first`, or all from there on.
enum class Fault { Once, FromThere };

/// Lets allocations fail while the object lives; on all threads, one object at a time.
class FaultyMemory {
 public:
  FaultyMemory(long first, Fault fault);
  ~FaultyMemory();
  FaultyMemory(const FaultyMemory&) = delete;
  FaultyMemory& operator=(const FaultyMemory&) = delete;

  /// Whether an allocation has failed.
  static bool hasStruck();
};

/// Blocks in use.
long liveBlocks();

/// What a call is expected to do when memory runs out in it.
enum class Expect {
  False,         ///< to return false
  FalseOrThrow,  ///< or to throw std::bad_alloc
};

struct Call {
  std::function<bool()> run;
  /// What must hold after a failure; may be empty.
  std::function<void()> check;
};

/// A call that succeeds, or is refused, with enough memory; `prepare` makes it with fresh objects.
struct Operation {
  const char* name;
  Expect expect;
  std::function<Call()> prepare;
  bool succeeds = true;
};

inline void PrintTo(const Operation& row, std::ostream* out) { *out << row.name; }

/// Runs the operation with every allocation failing in turn, until it no longer needs so many.
/// Expects the failure that the operation names and no block left behind.
void runWithEveryFault(const Operation& operation);

}  // namespace test
