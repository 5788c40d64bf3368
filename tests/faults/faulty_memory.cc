// Replaces operator new, the malloc and its kind that this program's own objects call, and the
// hooks of cJSON. The OpenMP runtime and the C library keep their own.

#include <cjson/cJSON.h>
#include <malloc.h>

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

bool fails() {
  if (!MemoryFaults::allowed) return false;
  const long number = ++MemoryFaults::requests;
  const bool fault = number >= MemoryFaults::first && number <= MemoryFaults::last;
  if (fault) MemoryFaults::struck = true;
  return fault;
}

std::int64_t size(void* memory) { return static_cast<std::int64_t>(malloc_usable_size(memory)); }

void* counted(void* memory) {
  if (memory == nullptr) return nullptr;
  ++MemoryFaults::liveBlocks;
  const std::int64_t bytes = MemoryFaults::liveBytes += size(memory);
  if (bytes > MemoryFaults::peakBytes) MemoryFaults::peakBytes = bytes;
  return memory;
}

void* takeMemory(std::size_t size) {
  return fails() ? nullptr : counted(__real_malloc(size > 0 ? size : 1));
}

void giveBack(void* memory) {
  if (memory != nullptr) {
    --MemoryFaults::liveBlocks;
    MemoryFaults::liveBytes -= size(memory);
  }
  __real_free(memory);
}

[[maybe_unused]] const bool kHooked = [] {
  cJSON_Hooks hooks{takeMemory, giveBack};
  cJSON_InitHooks(&hooks);
  return true;
}();

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

// The other forms call these.
void* operator new(std::size_t size) {
  if (void* const memory = takeMemory(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return takeMemory(size); }
void operator delete(void* memory) noexcept { giveBack(memory); }
void operator delete(void* memory, std::size_t) noexcept { giveBack(memory); }
