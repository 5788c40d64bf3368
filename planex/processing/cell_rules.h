#pragma once

#include <cstdint>

namespace datafusion::planex::kernel {

// The answers to a cell of the height map that several points cover, for the modes in which one
// point wins. Each rule ranks points, the smallest rank winning and the earlier point where ranks
// are equal, and says whether the winner replaces what the cell holds. Folding the points of a
// row one by one, in any order that keeps these two comparisons, gives the same cell.

struct LowestRule {
  static constexpr bool kRanksIntensity = false;
  static std::uint32_t rank(std::uint32_t height) { return height - 1; }
  static std::uint32_t heightOfRank(std::uint32_t rank) { return rank + 1; }
  static bool replaces(std::uint32_t height, std::uint32_t /*intensity*/,
                       std::uint32_t storedHeight, std::uint32_t /*storedIntensity*/) {
    return storedHeight == 0 || height < storedHeight;
  }
};

struct HighestRule {
  static constexpr bool kRanksIntensity = false;
  static std::uint32_t rank(std::uint32_t height) { return 65535 - height; }
  static std::uint32_t heightOfRank(std::uint32_t rank) { return 65535 - rank; }
  static bool replaces(std::uint32_t height, std::uint32_t /*intensity*/,
                       std::uint32_t storedHeight, std::uint32_t /*storedIntensity*/) {
    return height > storedHeight;
  }
};

struct DarkestRule {
  static constexpr bool kRanksIntensity = true;
  static std::uint32_t rank(std::uint32_t intensity) { return intensity; }
  static bool replaces(std::uint32_t /*height*/, std::uint32_t intensity,
                       std::uint32_t storedHeight, std::uint32_t storedIntensity) {
    return storedHeight == 0 || intensity < storedIntensity;
  }
};

/// The stored height is not looked at: a point of intensity 0 never fills a cell.
struct BrightestRule {
  static constexpr bool kRanksIntensity = true;
  static std::uint32_t rank(std::uint32_t intensity) { return 255 - intensity; }
  static bool replaces(std::uint32_t /*height*/, std::uint32_t intensity,
                       std::uint32_t /*storedHeight*/, std::uint32_t storedIntensity) {
    return storedIntensity < intensity;
  }
};

}  // namespace datafusion::planex::kernel
