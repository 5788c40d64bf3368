#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/byte_source.h"

/// Ends the process with a message when something that must hold does not: to a fuzzer that is a
/// crash.
#define CHECK_HOLDS(condition)                                                            \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (false)

/// Defines a property: draws a case from `source` and checks all that must hold for it. The test
/// program runs it with fixed seeds and the stored inputs, a fuzzer with inputs that it makes up.
///
///     PLANEX_PROPERTY(mapping) { ... source.Between(0, 3) ... CHECK_HOLDS(a == b); }
///
/// Stored inputs stand in fuzz/corpus/<name>.
#define PLANEX_PROPERTY(name)                                                               \
  static void name##Holds(test::ByteSource& source);                                        \
  [[maybe_unused]] static const bool name##Known = test::addProperty({#name, name##Holds}); \
  static void name##Holds([[maybe_unused]] test::ByteSource& source)

namespace test {

struct Property {
  const char* name;
  void (*check)(ByteSource& source);
};

inline void PrintTo(const Property& property, std::ostream* out) { *out << property.name; }

/// The properties of this program.
std::vector<Property>& properties();
bool addProperty(const Property& property);

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

}  // namespace test
