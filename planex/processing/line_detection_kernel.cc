#include "planex/processing/line_detection_kernel.h"

#include <type_traits>

namespace datafusion::planex::kernel {
namespace {

using cmnalg::InstructionSet;
using cmnalg::KernelVariants;

/// A condition as a number of all ones or none, as wide as the values it chooses among: g++ turns
/// a bool into vectors for AVX-512 only.
template <typename Sum>
PLANEX_ALWAYS_INLINE Sum mask(bool condition) {
  return static_cast<Sum>(-static_cast<Sum>(condition));
}

template <typename Sum>
PLANEX_ALWAYS_INLINE Sum select(Sum mask, Sum a, Sum b) {
  return static_cast<Sum>((a & mask) | (b & ~mask));
}

template <typename Sum>
PLANEX_ALWAYS_INLINE Sum larger(Sum a, Sum b) {
  return a > b ? a : b;
}

/// What a step does with v beside moving the sums.
enum class Keeping { kLargest, kStrongest, kFirst, kLast, kNearest };

/// Whether a line that ends displaces the chosen one.
template <Keeping kKeeping, typename Sum>
PLANEX_ALWAYS_INLINE Sum displaces(Sum current, Sum currentPlace, Sum chosen, Sum place,
                                   Sum nearest) {
  if constexpr (kKeeping == Keeping::kStrongest) return mask<Sum>(current > chosen);
  if constexpr (kKeeping == Keeping::kFirst) return mask<Sum>(chosen == 0);
  if constexpr (kKeeping == Keeping::kNearest) {
    const Sum way = static_cast<Sum>(currentPlace - nearest);
    const Sum chosenWay = static_cast<Sum>(place - nearest);
    const Sum length = way < 0 ? static_cast<Sum>(-way) : way;
    const Sum chosenLength = chosenWay < 0 ? static_cast<Sum>(-chosenWay) : chosenWay;
    return static_cast<Sum>(mask<Sum>(chosen == 0) | mask<Sum>(length < chosenLength));
  }
  return static_cast<Sum>(-1);
}

template <typename Pixel, Keeping kKeeping, int kRows>
struct DetectRowsKernel {
  static constexpr bool kWithLines = kKeeping != Keeping::kLargest;

  template <bool>
  static PLANEX_ALWAYS_INLINE void run(const DetectionRows* rows, int row, int columns,
                                       const DetectionRule& rule, const void* state) {
    using Sum = LineSum<Pixel>;
    const auto& s = *static_cast<const DetectionState<Sum>*>(state);
    Sum* __restrict above = s.above;
    Sum* __restrict below = s.below;
    Sum* __restrict chosen = s.chosen;
    Sum* __restrict place = s.place;
    Sum* __restrict other = s.other;
    Sum* __restrict current = s.current;
    Sum* __restrict currentPlace = s.currentPlace;
    const Pixel* next[kRows];
    const Pixel* last[kRows];
    const Pixel* over[kRows];
    const Pixel* under[kRows];
    for (int k = 0; k < kRows; ++k) {
      next[k] = static_cast<const Pixel*>(rows[k].next);
      last[k] = static_cast<const Pixel*>(rows[k].last);
      over[k] = static_cast<const Pixel*>(rows[k].above);
      under[k] = static_cast<const Pixel*>(rows[k].below);
    }
    const Sum least = static_cast<Sum>(rule.leastStrength);
    const Sum nearest = static_cast<Sum>(rule.nearestRow);
    const Sum firstRow = static_cast<Sum>(row);
#pragma omp simd
    for (int u = 0; u < columns; ++u) {
      // What has an address in an OpenMP loop, as the sides of `a > b ? a : b` have, keeps its
      // vectors to the length of the baseline's.
      Sum a = above[u];
      Sum b = below[u];
      Sum best = chosen[u];
      Sum bestPlace = place[u];
      Sum loser = kWithLines ? other[u] : Sum{0};
      Sum strength = kWithLines ? current[u] : Sum{0};
      Sum strongest = kWithLines ? currentPlace[u] : Sum{0};
#pragma GCC unroll 4
      for (int k = 0; k < kRows; ++k) {
        const Sum in = static_cast<Sum>(next[k][u]);
        const Sum out = static_cast<Sum>(last[k][u]);
        const Sum step = static_cast<Sum>(in - out);
        a = static_cast<Sum>(a + step - out + static_cast<Sum>(over[k][u]));
        b = static_cast<Sum>(b + step + in - static_cast<Sum>(under[k][u]));
        const Sum v = a < b ? a : b;
        const Sum here = static_cast<Sum>(firstRow + k);
        if constexpr (!kWithLines) {
          bestPlace = select(mask<Sum>(v > best), here, bestPlace);
          best = larger(v, best);
        } else {
          const Sum inside = mask<Sum>(v >= least);
          const Sum ends = static_cast<Sum>(~inside & mask<Sum>(strength > 0));
          const Sum taken = static_cast<Sum>(
              ends & displaces<kKeeping>(strength, strongest, best, bestPlace, nearest));
          const Sum lost = static_cast<Sum>(ends & select(taken, best, strength));
          loser = larger(lost, loser);
          best = select(taken, strength, best);
          bestPlace = select(taken, strongest, bestPlace);
          strongest = select(static_cast<Sum>(inside & mask<Sum>(v > strength)), here, strongest);
          strength = static_cast<Sum>(inside & larger(v, strength));
        }
      }
      above[u] = a;
      below[u] = b;
      chosen[u] = best;
      place[u] = bestPlace;
      if constexpr (kWithLines) {
        other[u] = loser;
        current[u] = strength;
        currentPlace[u] = strongest;
      }
    }
  }
};

template <typename Pixel, Keeping kKeeping>
DetectRows choose(bool one, InstructionSet set) {
  using Signature = void(const DetectionRows*, int, int, const DetectionRule&, const void*);
  return one ? KernelVariants<DetectRowsKernel<Pixel, kKeeping, 1>, Signature>::choose(set)
             : KernelVariants<DetectRowsKernel<Pixel, kKeeping, kDetectedRows>, Signature>::choose(
                   set);
}

template <typename Pixel>
DetectRows choose(const DetectionRule& rule, bool one, InstructionSet set) {
  switch (rule.choice) {
    case LineChoice::FIRST:
      return choose<Pixel, Keeping::kFirst>(one, set);
    case LineChoice::LAST:
      return choose<Pixel, Keeping::kLast>(one, set);
    case LineChoice::NEAREST:
      return choose<Pixel, Keeping::kNearest>(one, set);
    default:
      return rule.withOther ? choose<Pixel, Keeping::kStrongest>(one, set)
                            : choose<Pixel, Keeping::kLargest>(one, set);
  }
}

}  // namespace

DetectRows detectRows(bool wide, const DetectionRule& rule, bool one, InstructionSet set) {
  return wide ? choose<std::uint16_t>(rule, one, set) : choose<std::uint8_t>(rule, one, set);
}

}  // namespace datafusion::planex::kernel
