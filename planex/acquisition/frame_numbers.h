#pragma once

#include <cstdint>
#include <optional>

namespace planex::acquisition {

/// Counts lost frames by the numbers of those that are whole. Numbers of 16 bits run 1 ... 65535,
/// 1; those of 64 bits go on. What a frame that is not whole says of its number may be wrong, and
/// it comes when it will: it has no say.
class FrameNumbers {
 public:
  /// Numbers that jump by more are of a camera that counts anew.
  static constexpr std::uint64_t kMostLost = 32767;

  /// Takes the number of the next frame.
  /// @return how many are missing before it; nothing where the camera counts anew
  std::optional<std::int64_t> take(std::uint64_t number) {
    constexpr std::uint64_t kLast16 = 65535;
    if (!last_) {
      last_ = number;
      return 0;
    }
    const std::uint64_t last = *last_;
    last_ = number;
    if (number <= last && (last > kLast16 || number == 0)) return std::nullopt;
    const std::uint64_t step = number > last ? number - last : kLast16 - last + number;
    if (step > kMostLost) return std::nullopt;
    return static_cast<std::int64_t>(step) - 1;
  }

 private:
  std::optional<std::uint64_t> last_;
};

}  // namespace planex::acquisition
