#pragma once

#include <cstddef>
#include <cstdlib>

#include "planex/infra/allocator.h"

/// The heap, in blocks without a byte to spare. Counts the blocks in use and all requests; can be
/// told to fail.
class CountingAllocator final : public etl::Allocator {
 public:
  void* Allocate(std::size_t bytes) const noexcept override {
    ++requests;
    if (fails) return nullptr;
    ++live;
    return std::malloc(bytes);
  }
  void Deallocate(void* memory) const noexcept override {
    if (memory != nullptr) --live;
    std::free(memory);
  }

  mutable int live = 0;
  mutable int requests = 0;
  bool fails = false;
};
