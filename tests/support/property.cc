#include "tests/support/property.h"

#include <omp.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

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

void endCase(const char* file, int line, const char* condition, bool isExcused) {
  if (isExcused) throw CaseEnds();
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

void CheckedLog::CheckCall(bool succeeded) {
  // A record that there is no memory for is dropped.
  const bool isTold = Severe() == 1 || Warnings() >= 1 || MemoryFaults::struck;
  CHECK_ALWAYS(Severe() <= (succeeded ? 0 : 1));
  CHECK_ALWAYS(succeeded || isTold);
  Clear();
}

void CheckedLog::CheckRefusal(bool succeeded) {
  CHECK_ALWAYS(Severe() == 0);
  const int wanted = succeeded ? Warnings() : 1;
  CHECK_ALWAYS(Warnings() == wanted || MemoryFaults::struck);
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

}  // namespace test
