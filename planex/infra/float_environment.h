#pragma once

#include <cstdint>

#ifndef __x86_64__
#include <cfenv>
#endif

/// The floating-point environment: rounding direction, trapped exceptions, flushing of denormals,
/// and the flags of exceptions that have occurred. Each thread has its own; a thread starts with
/// that of the thread that makes it.

namespace base {

#ifdef __x86_64__
/// Its registers: SSE does the arithmetic, the C library asks x87 for the rounding direction.
struct FloatState {
  std::uint32_t sse;
  std::uint16_t control, status;  // of x87
};
#else
using FloatState = std::fenv_t;
#endif

/// While it lives, this thread works in the default environment: to nearest, no traps, with
/// denormals. Then the thread has its former environment back, flags included.
///
/// Each function that computes and that a caller can reach begins with one, and so does each thread
/// of a team. They nest; where the environment is the default, one costs a few nanoseconds.
class DefaultFloatEnvironment {
 public:
  DefaultFloatEnvironment() noexcept;
  ~DefaultFloatEnvironment();
  DefaultFloatEnvironment(const DefaultFloatEnvironment&) = delete;
  DefaultFloatEnvironment& operator=(const DefaultFloatEnvironment&) = delete;

 private:
  friend class CallersFloatEnvironment;

  FloatState former_;
  bool outermost_;
};

/// While it lives, this thread has the environment of the caller of the library, but for a trap of
/// inexact results: what the host provides runs in it, and threads are made in it, by a runtime
/// that may compute an average load. Changes of it last as long.
class CallersFloatEnvironment {
 public:
  CallersFloatEnvironment() noexcept;
  ~CallersFloatEnvironment();
  CallersFloatEnvironment(const CallersFloatEnvironment&) = delete;
  CallersFloatEnvironment& operator=(const CallersFloatEnvironment&) = delete;

 private:
  FloatState former_;
  DefaultFloatEnvironment* outermost_;
};

}  // namespace base
