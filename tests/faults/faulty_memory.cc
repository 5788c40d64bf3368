#include "tests/faults/faulty_memory.h"

#include <cjson/cJSON.h>
#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "tests/support/memory_faults.h"

// What the linker option --wrap makes of malloc and its kind.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_aligned_alloc(std::size_t alignment, std::size_t size);
void __real_free(void* memory);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using test::MemoryFaults;

std::atomic<bool> armed{false};
std::atomic<long> requestCount{0};
std::atomic<long> live{0};
std::atomic<long> firstFault{0};
std::atomic<bool> faultsGoOn{false};

bool fails() {
  if (!armed || !MemoryFaults::allowed) return false;
  const long number = ++requestCount;
  const bool fault = faultsGoOn ? number >= firstFault : number == firstFault;
  if (fault) MemoryFaults::struck = true;
  return fault;
}

std::int64_t size(void* memory) { return static_cast<std::int64_t>(malloc_usable_size(memory)); }

void* counted(void* memory) {
  if (memory == nullptr) return nullptr;
  ++live;
  const std::int64_t bytes = MemoryFaults::liveBytes += size(memory);
  if (bytes > MemoryFaults::peakBytes) MemoryFaults::peakBytes = bytes;
  return memory;
}

void* takeMemory(std::size_t size) {
  return fails() ? nullptr : counted(__real_malloc(size > 0 ? size : 1));
}

void giveBack(void* memory) {
  if (memory != nullptr) {
    --live;
    MemoryFaults::liveBytes -= size(memory);
  }
  __real_free(memory);
}

void* takeOrThrow(std::size_t size) {
  if (void* const memory = takeMemory(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __wrap_malloc(std::size_t size) { return takeMemory(size); }
// Compilers make it of malloc and memset.
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : counted(__real_calloc(count, size));
}
void* __wrap_aligned_alloc(std::size_t alignment, std::size_t size) {
  return fails() ? nullptr : counted(__real_aligned_alloc(alignment, size));
}
void __wrap_free(void* memory) { giveBack(memory); }
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size) { return takeOrThrow(size); }
void* operator new[](std::size_t size) { return takeOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return takeMemory(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return takeMemory(size); }
void operator delete(void* memory) noexcept { giveBack(memory); }
void operator delete[](void* memory) noexcept { giveBack(memory); }
void operator delete(void* memory, std::size_t) noexcept { giveBack(memory); }
void operator delete[](void* memory, std::size_t) noexcept { giveBack(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { giveBack(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { giveBack(memory); }

namespace test {
namespace {

[[maybe_unused]] const bool kHooked = [] {
  cJSON_Hooks hooks{takeMemory, giveBack};
  cJSON_InitHooks(&hooks);
  return true;
}();

}  // namespace

FaultyMemory::FaultyMemory(long first, Fault fault) {
  requestCount = 0;
  MemoryFaults::struck = false;
  firstFault = first;
  faultsGoOn = fault == Fault::FromThere;
  armed = true;
}

FaultyMemory::~FaultyMemory() {
  armed = false;
  MemoryFaults::struck = false;
}

long FaultyMemory::requests() { return requestCount; }

long liveBlocks() { return live; }

}  // namespace test
