#include "tests/faults/faulty_memory.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <new>
#include <string>

#include "planex/infra/logger.h"

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

std::atomic<bool> armed{false};
std::atomic<bool> struck{false};
std::atomic<long> requests{0};
std::atomic<long> live{0};
std::atomic<long> firstFault{0};
std::atomic<bool> faultsGoOn{false};

bool fails() {
  if (!armed) return false;
  const long number = ++requests;
  const bool fault = faultsGoOn ? number >= firstFault : number == firstFault;
  if (fault) struck = true;
  return fault;
}

void* counted(void* memory) {
  if (memory != nullptr) ++live;
  return memory;
}

void* takeMemory(std::size_t size) {
  return fails() ? nullptr : counted(__real_malloc(size > 0 ? size : 1));
}

void giveBack(void* memory) {
  if (memory != nullptr) --live;
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

enum class Outcome { True, False, Thrown };

Outcome outcomeOf(const Call& call) {
  try {
    return call.run() ? Outcome::True : Outcome::False;
  } catch (const std::bad_alloc&) {
    return Outcome::Thrown;
  }
}

/// @return whether the fault has struck
bool runWithFault(const Operation& operation, long number, Fault fault) {
  const Call call = operation.prepare();
  Outcome outcome = Outcome::True;
  bool hasStruck = false;
  {
    const FaultyMemory memory(number, fault);
    outcome = outcomeOf(call);
    hasStruck = FaultyMemory::hasStruck();
  }
  if (!hasStruck) {
    EXPECT_EQ(outcome, operation.succeeds ? Outcome::True : Outcome::False);
    return false;
  }
  EXPECT_NE(outcome, Outcome::True);
  if (operation.expect == Expect::False) {
    EXPECT_EQ(outcome, Outcome::False);
  }
  if (call.check) call.check();
  return true;
}

}  // namespace

FaultyMemory::FaultyMemory(long first, Fault fault) {
  requests = 0;
  struck = false;
  firstFault = first;
  faultsGoOn = fault == Fault::FromThere;
  armed = true;
}

FaultyMemory::~FaultyMemory() { armed = false; }

bool FaultyMemory::hasStruck() { return struck; }

long liveBlocks() { return live; }

void runWithEveryFault(const Operation& operation) {
  constexpr long kMost = 100000;
  // What is made once and stays would count as left behind.
  for (const char* name : {"Image", "Image.Calibration.Planex", "Image.Planex.Model", "Matrix"}) {
    base::Logger::Get(name);
  }
  EXPECT_EQ(operation.prepare().run(), operation.succeeds);
  for (const Fault fault : {Fault::Once, Fault::FromThere}) {
    for (long number = 1; !::testing::Test::HasFailure(); ++number) {
      SCOPED_TRACE("allocation " + std::to_string(number) +
                   (fault == Fault::Once ? "" : " and all after it"));
      ASSERT_LT(number, kMost);
      const long before = liveBlocks();
      const bool hasStruck = runWithFault(operation, number, fault);
      EXPECT_EQ(liveBlocks(), before) << "blocks left behind";
      if (!hasStruck) break;
    }
  }
}

}  // namespace test
