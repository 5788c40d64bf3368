#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "planex/api/calibration_exception.h"

namespace tavik::planex {

/// The objects of one kind behind the handles of the C interface.
///
/// Handles count up from 1 and are not given back: neither erase nor clear touches the counter. It
/// wraps after 2^32 - 1 objects. Then handles of objects that are gone come again, in their old
/// order; 0 and the handles of objects that are alive are passed over.
///
/// Refusals are CalibrationExceptions and leave registry and counter as they were. No lock: callers
/// serialise.
template <typename T>
class HandleRegistry {
 public:
  /// Largest number of objects alive at a time.
  static constexpr std::size_t kLimit = 256;

  /// @param tooManyMessage, unknownMessage texts of the two refusals; static storage
  HandleRegistry(const char* tooManyMessage, const char* unknownMessage)
      : tooManyMessage_(tooManyMessage), unknownMessage_(unknownMessage) {}

  /// For tests: where to go on counting.
  void setNextHandle(std::uint32_t handle) { nextHandle_ = handle; }

  /// Throws when kLimit objects are alive.
  void throwIfFull() const {
    CalibrationException::throwUnless(objects_.size() < kLimit, tooManyMessage_);
  }

  /// Stores the object. @return its handle. Throws when kLimit objects are alive.
  std::uint32_t insert(T object) {
    throwIfFull();
    std::uint32_t handle = nextHandle_;
    while (handle == 0 || objects_.count(handle) != 0) ++handle;  // at most kLimit + 1 times
    objects_.emplace(handle, std::move(object));
    nextHandle_ = handle + 1;
    return handle;
  }

  /// A copy of the object: a log callback may destroy the one in the registry while an entry point
  /// works. Throws for an unknown handle.
  T copyOf(std::uint32_t handle) const {
    const auto found = objects_.find(handle);
    CalibrationException::throwUnless(found != objects_.end(), unknownMessage_);
    return found->second;
  }

  /// Destroys the object. Throws for an unknown handle.
  void erase(std::uint32_t handle) {
    CalibrationException::throwUnless(objects_.erase(handle) == 1, unknownMessage_);
  }

  /// Destroys all objects.
  void clear() { objects_.clear(); }

 private:
  const char* tooManyMessage_;
  const char* unknownMessage_;
  std::map<std::uint32_t, T> objects_;
  std::uint32_t nextHandle_ = 1;
};

/// The body of the destroy functions: destroys the object named by `*handle` and writes 0
/// there; null does nothing. Throws for an unknown handle, which then stays in the variable.
template <typename T>
bool destroyByHandle(HandleRegistry<T>& registry, std::uint32_t* handle) {
  if (handle == nullptr) return true;
  registry.erase(*handle);
  *handle = 0;
  return true;
}

}  // namespace tavik::planex
