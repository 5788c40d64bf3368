#pragma once

#include <cstddef>

#include "planex/infra/export.h"

namespace etl {

/// Source of memory for pixel buffers and matrices.
///
/// Objects keep the address of the allocator that they were created with and give their memory
/// back to it, so an allocator must outlive everything that was created through it. Both
/// operations may be called from several threads at once.
class PLANEX_EXPORT Allocator {
 public:
  /// @return `bytes` bytes, aligned for every pixel type, or null when there is no memory.
  ///         0 bytes give null or an address that Deallocate accepts.
  virtual void* Allocate(std::size_t bytes) const noexcept = 0;

  /// Releases what Allocate returned; null is accepted.
  virtual void Deallocate(void* memory) const noexcept = 0;

 protected:
  constexpr Allocator() = default;
  /// For derived classes.
  Allocator(const Allocator&) = default;
  /// For derived classes.
  Allocator& operator=(const Allocator&) = default;
  ~Allocator() = default;
};

/// The process heap, in blocks that start on a cache line (64 bytes).
///
/// It has no state and no destructor to run: an instance with static storage is usable before
/// and after everything else in the process.
class PLANEX_EXPORT StandardMemAllocator final : public Allocator {
 public:
  constexpr StandardMemAllocator() = default;

  void* Allocate(std::size_t bytes) const noexcept override;
  void Deallocate(void* memory) const noexcept override;

  /// The instance that is used wherever a caller names none.
  static const StandardMemAllocator& Default() noexcept;
};

}  // namespace etl
