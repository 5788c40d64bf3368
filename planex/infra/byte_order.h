#pragma once

/// @file
/// Numbers in files lie with their lowest byte first, whatever the processor does. On processors
/// that do the same, all of this is copying.

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace base {

/// Whether this processor stores the highest byte of a number first.
constexpr bool kIsBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
static_assert(kIsBigEndian || __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "neither of both orders");

/// @return the number whose bytes are in reverse order
template <typename T>
inline T withBytesReversed(T value) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof value);
  std::reverse(bytes, bytes + sizeof value);
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

/// Stores a number with its lowest byte first, at any address.
template <typename T>
inline void storeLittle(T value, void* bytes) {
  if constexpr (kIsBigEndian) value = withBytesReversed(value);
  std::memcpy(bytes, &value, sizeof value);
}

/// Loads a number that is stored with its lowest byte first, at any address.
template <typename T>
inline T loadLittle(const void* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return kIsBigEndian ? withBytesReversed(value) : value;
}

/// Reverses the bytes of each of `count` numbers of `size` bytes, one behind the other.
inline void reverseBytes(void* numbers, std::size_t count, std::size_t size) {
  auto* bytes = static_cast<unsigned char*>(numbers);
  for (std::size_t i = 0; size > 1 && i < count; ++i, bytes += size) {
    std::reverse(bytes, bytes + size);
  }
}

/// Brings numbers from the order of this processor into that of files, or back. Elements of other
/// than 2, 4 or 8 bytes are no numbers, but bytes, such as colours, and stay as they are.
/// @param size bytes of an element
inline void swapLittle(void* elements, std::size_t count, std::size_t size) {
  if (kIsBigEndian && (size == 2 || size == 4 || size == 8)) reverseBytes(elements, count, size);
}

}  // namespace base
