#include "planex/api/intensity_reduction.h"

#include "planex/foundation/multiversion.h"

namespace tavik::planex {
namespace {

struct Range {
  std::uint16_t min, max;
};

struct FindRange {
  template <bool kHardwareFma>
  PLANEX_ALWAYS_INLINE static Range run(const std::uint16_t* values, std::size_t count) {
    std::uint16_t min = 65535;
    std::uint16_t max = 0;
#pragma omp simd reduction(min : min) reduction(max : max)
    for (std::size_t i = 0; i < count; ++i) {
      min = values[i] < min ? values[i] : min;
      max = values[i] > max ? values[i] : max;
    }
    return {min, max};
  }
};

/// Quotients that should end in .5 do so exactly, and all others are further from it than the
/// rounding of quotient and sum reaches: adding a half and truncating rounds half away from zero.
struct Spread {
  template <bool kHardwareFma>
  PLANEX_ALWAYS_INLINE static void run(const std::uint16_t* __restrict values, std::size_t count,
                                       int min, double span, std::uint8_t* __restrict out) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
      const double scaled = (values[i] - min) * 255.0 / span;
      // NOLINTNEXTLINE(bugprone-incorrect-roundings): exact, see above, and lround is a call
      out[i] = static_cast<std::uint8_t>(static_cast<int>(scaled + 0.5));
    }
  }
};

using FindRangeVariants =
    cmnalg::KernelVariants<FindRange, Range(const std::uint16_t*, std::size_t)>;
using SpreadVariants = cmnalg::KernelVariants<Spread, void(const std::uint16_t*, std::size_t, int,
                                                           double, std::uint8_t*)>;

}  // namespace

void reduceTo8Bit(const std::uint16_t* values, std::size_t count, std::uint8_t* out) {
  const cmnalg::InstructionSet set = cmnalg::currentInstructionSet();
  const Range range = FindRangeVariants::choose(set)(values, count);
  const double span = range.max > range.min ? range.max - range.min : 1.0;
  SpreadVariants::choose(set)(values, count, range.min, span, out);
}

}  // namespace tavik::planex
