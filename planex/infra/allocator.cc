#include "planex/infra/allocator.h"

#include <cstdint>
#include <cstdlib>

namespace etl {
namespace {

constexpr std::size_t kAlignment = 64;  // one cache line, and the widest vector register

constexpr StandardMemAllocator kDefaultAllocator;

}  // namespace

void* StandardMemAllocator::Allocate(std::size_t bytes) const noexcept {
  if (bytes > SIZE_MAX - kAlignment) return nullptr;
  const std::size_t blocks = bytes / kAlignment + (bytes % kAlignment != 0 || bytes == 0 ? 1 : 0);
  return std::aligned_alloc(kAlignment, blocks * kAlignment);
}

void StandardMemAllocator::Deallocate(void* memory) const noexcept { std::free(memory); }

const StandardMemAllocator& StandardMemAllocator::Default() noexcept { return kDefaultAllocator; }

}  // namespace etl
