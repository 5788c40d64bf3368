#pragma once

#include <cstddef>

#include "planex/infra/allocator.h"

/// The heap, with a count of the blocks in use and of all requests; can be told to fail.
class CountingAllocator final : public etl::Allocator {
 public:
  void* Allocate(std::size_t bytes) const noexcept override {
    ++requests;
    if (fails) return nullptr;
    ++live;
    return etl::StandardMemAllocator::Default().Allocate(bytes);
  }
  void Deallocate(void* memory) const noexcept override {
    if (memory != nullptr) --live;
    etl::StandardMemAllocator::Default().Deallocate(memory);
  }

  mutable int live = 0;
  mutable int requests = 0;
  bool fails = false;
};
