#include "tests/support/property.h"

#include <omp.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "planex/api/planex.h"
#include "planex/processing/row_parallel.h"

// Of the sanitizer's runtime; g++ has no header for them.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
[[gnu::weak]] int __sanitizer_install_malloc_and_free_hooks(
    void (*onAllocation)(const volatile void*, std::size_t),
    void (*onRelease)(const volatile void*));
[[gnu::weak]] std::size_t __sanitizer_get_allocated_size(const volatile void* memory);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace test {
namespace {

int severeCount = 0;
int warningCount = 0;

constexpr std::size_t kTimeLength = 21;  // "2024-05-03 14-07-09: "

void countText(const char* text) {
  CHECK_HOLDS(std::strlen(text) > kTimeLength);
  const char* const level = text + kTimeLength;
  if (std::strncmp(level, "SEVERE: ", 8) == 0) ++severeCount;
  if (std::strncmp(level, "WARNING: ", 9) == 0) ++warningCount;
}

// Several threads allocate while a team works. Signed: what was allocated before the hooks were
// there may be released, too.
std::atomic<std::int64_t> liveBytes{0};
std::atomic<std::int64_t> peakBytes{0};
std::int64_t bytesAtStart = 0;

void onAllocation(const volatile void* memory, std::size_t size) {
  if (memory == nullptr) return;
  const std::int64_t live = liveBytes += static_cast<std::int64_t>(size);
  std::int64_t peak = peakBytes;
  while (live > peak && !peakBytes.compare_exchange_weak(peak, live)) {
  }
}

void onRelease(const volatile void* memory) {
  if (memory == nullptr) return;
  liveBytes -= static_cast<std::int64_t>(__sanitizer_get_allocated_size(memory));
}

}  // namespace

std::vector<Property>& properties() {
  static std::vector<Property> known;
  return known;
}

bool addProperty(const Property& property) {
  properties().push_back(property);
  return true;
}

LogCount::LogCount() {
  Clear();
  registerLogHandler(countText);
}

LogCount::~LogCount() { registerLogHandler(nullptr); }

int LogCount::Severe() { return severeCount; }
int LogCount::Warnings() { return warningCount; }
void LogCount::Clear() { severeCount = warningCount = 0; }

void LogCount::CheckCall(bool succeeded) {
  if (succeeded) {
    CHECK_HOLDS(severeCount == 0);
  } else {
    CHECK_HOLDS(severeCount == 1 || (severeCount == 0 && warningCount >= 1));
  }
  Clear();
}

void LogCount::CheckRefusal(bool succeeded) {
  CHECK_HOLDS(severeCount == 0);
  CHECK_HOLDS(succeeded || warningCount == 1);
  Clear();
}

MemoryPeak::MemoryPeak() {
  static const int installed =
      __sanitizer_install_malloc_and_free_hooks == nullptr
          ? 0
          : __sanitizer_install_malloc_and_free_hooks(onAllocation, onRelease);
  static_cast<void>(installed);
  bytesAtStart = liveBytes;
  peakBytes = bytesAtStart;
}

std::size_t MemoryPeak::Bytes() const { return static_cast<std::size_t>(peakBytes - bytesAtStart); }

void useThreads(int count) {
  omp_set_num_threads(count);
  datafusion::threading_helpers::setMinimumPixelsPerThread(1);
}

bool sameBits(double a, double b) {
  return (a == b && std::signbit(a) == std::signbit(b)) || (a != a && b != b);
}

bool sameBits(float a, float b) {
  return (a == b && std::signbit(a) == std::signbit(b)) || (a != a && b != b);
}

}  // namespace test
