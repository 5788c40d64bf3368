#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace test {

/// Turns the bytes of an input into arguments. Behind the end every byte is 0.
class ByteSource {
 public:
  ByteSource(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool IsEmpty() const { return size_ == 0; }

  /// Any value of an arithmetic type that has no bits without meaning (bool has).
  template <typename T>
  T Raw() {
    T value{};
    const std::size_t taken = std::min(sizeof value, size_);
    if (taken > 0) std::memcpy(&value, data_, taken);
    Skip(taken);
    return value;
  }

  bool Flip() { return (Raw<std::uint8_t>() & 1) != 0; }

  /// A number from `low` to `high`, at most 256 of them, from one byte.
  int Between(int low, int high) { return low + Raw<std::uint8_t>() % (high - low + 1); }

  /// One of the elements of a C array.
  template <typename T, std::size_t N>
  const T& OneOf(const T (&values)[N]) {
    return values[static_cast<std::size_t>(Between(0, static_cast<int>(N) - 1))];
  }

  /// Mostly plain numbers; else one of those that break formulas, or any bits.
  double Real() {
    const auto kind = Raw<std::uint8_t>();
    if (kind < 96) return static_cast<double>(kind) - 32;
    if (kind < 160) return Raw<std::int16_t>() / 16.0;
    if (kind < 224) return OneOf(kSpecialReals);
    return Raw<double>();
  }

  /// Counts and sizes around the limits of their types, or any bits.
  std::uint32_t Count() {
    const auto kind = Raw<std::uint8_t>();
    if (kind < 128) return kind;
    return kind < 224 ? OneOf(kSpecialCounts) : Raw<std::uint32_t>();
  }

  /// All bytes that are left.
  std::string Rest() { return Text(size_); }

  /// Up to `size` bytes of text.
  std::string Text(std::size_t size) {
    const std::size_t taken = std::min(size, size_);
    std::string text(reinterpret_cast<const char*>(data_), taken);
    Skip(taken);
    return text;
  }

 private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();
  static constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  static constexpr double kMax = std::numeric_limits<double>::max();
  static constexpr double kDenormal = std::numeric_limits<double>::denorm_min();
  static constexpr double kSpecialReals[] = {
      kNan,  kInfinity, -kInfinity, kMax, -kMax, kDenormal, -kDenormal, -0.0,   1e-300,
      1e300, 1e-13,     1e38,       4e38, -1e38, 0x1p24,    0x1p31,     0x1p32, 0x1p63,
      65535, 65536,     0.5,        -0.5, 1e-3,  1e4,       -1e4};
  static constexpr std::uint32_t kSpecialCounts[] = {
      0, 1, 2, 255, 256, 65535, 65536, 0x7ffffffe, 0x7fffffff, 0x80000000, 0x80000001, 0xffffffff};

  void Skip(std::size_t count) {
    data_ += count;
    size_ -= count;
  }

  const std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace test
