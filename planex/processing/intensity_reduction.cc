#include "planex/processing/intensity_reduction.h"

#include "planex/foundation/multiversion.h"
#include "planex/infra/float_environment.h"

namespace datafusion::planex {
namespace {

struct FindLimits {
  template <bool kHardwareFma>
  PLANEX_ALWAYS_INLINE static IntensityLimits run(const std::uint16_t* values, std::size_t count) {
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
                                       int min, int max, double span,
                                       std::uint8_t* __restrict out) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
      const int atMost = values[i] < max ? values[i] : max;
      const double scaled = ((atMost > min ? atMost : min) - min) * 255.0 / span;
      // NOLINTNEXTLINE(bugprone-incorrect-roundings): exact, see above, and lround is a call
      out[i] = static_cast<std::uint8_t>(static_cast<int>(scaled + 0.5));
    }
  }
};

using FindLimitsVariants =
    cmnalg::KernelVariants<FindLimits, IntensityLimits(const std::uint16_t*, std::size_t)>;
using SpreadVariants = cmnalg::KernelVariants<Spread, void(const std::uint16_t*, std::size_t, int,
                                                           int, double, std::uint8_t*)>;

}  // namespace

IntensityLimits findIntensityLimits(const std::uint16_t* values, std::size_t count) {
  return FindLimitsVariants::choose(cmnalg::currentInstructionSet())(values, count);
}

void reduceIntensities(const std::uint16_t* values, std::size_t count,
                       const IntensityLimits& limits, std::uint8_t* out) {
  const base::DefaultFloatEnvironment environment;
  const double span = limits.max > limits.min ? limits.max - limits.min : 1.0;
  SpreadVariants::choose(cmnalg::currentInstructionSet())(values, count, limits.min, limits.max,
                                                          span, out);
}

}  // namespace datafusion::planex
