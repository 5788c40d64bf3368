#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/byte_source.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_faults.h"

/// Checks what must hold with enough memory. Once an allocation has failed, a case that breaks it
/// ends there: it goes on as if the call before had succeeded.
#define CHECK_HOLDS(condition)                                                                   \
  do {                                                                                           \
    if (!(condition)) test::endCase(__FILE__, __LINE__, #condition, test::MemoryFaults::struck); \
  } while (false)

/// Checks what must hold even then: that a refusal, or a call that ran out of memory, has left its
/// outputs as they were, say.
#define CHECK_ALWAYS(condition)                                             \
  do {                                                                      \
    if (!(condition)) test::endCase(__FILE__, __LINE__, #condition, false); \
  } while (false)

/// Defines a property: draws a case from `source` and checks all that must hold for it. The test
/// program runs it with fixed seeds and the stored inputs, a fuzzer with inputs that it makes up.
///
///     PLANEX_PROPERTY(mapping) { ... source.Between(0, 3) ... CHECK_HOLDS(a == b); }
///
/// A third program runs the property with every allocation failing in turn. Stored inputs stand in
/// fuzz/corpus/<name>.txt.
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

/// Throws CaseEnds where what does not hold is excused. Else ends the process with a message: to a
/// fuzzer that is a crash.
[[noreturn]] void endCase(const char* file, int line, const char* condition, bool isExcused);
struct CaseEnds {};

/// The result of a call of the library; false, too, when it throws for want of memory.
template <typename Call>
bool succeeds(Call&& call) {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    CHECK_ALWAYS(MemoryFaults::struck);
    return false;
  }
}

/// The same of a case that forbids failures elsewhere.
template <typename Call>
bool tries(Call&& call) {
  const MayFail yes(true);
  return succeeds(call);
}

/// The log of a case, for checks of what each call leaves in it.
class CheckedLog : public LogCapture {
 public:
  /// After success of a call of the C interface no SEVERE; after a refusal one SEVERE, or else a
  /// warning of the algorithm. Clears the log.
  void CheckCall(bool succeeded);
  /// After a refusal of a call below the C interface one warning, and never a SEVERE. Clears the
  /// log.
  void CheckRefusal(bool succeeded);
};

/// The bytes of a value, to compare outputs before and after a refusal.
template <typename T>
std::string bytesOf(const T& value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Equal bits, any NaN being equal to any NaN.
template <typename Real>
bool sameBits(Real a, Real b) {
  return (a == b && std::signbit(a) == std::signbit(b)) || (a != a && b != b);
}

}  // namespace test
