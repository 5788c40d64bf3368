#include "planex/processing/world_heights.h"

#include "planex/foundation/multiversion.h"
#include "planex/infra/float_environment.h"

namespace datafusion::planex {
namespace {

struct ToWorldKernel {
  template <bool kHardwareFma>
  PLANEX_ALWAYS_INLINE static void run(const std::uint16_t* __restrict values, std::size_t count,
                                       float scale, float origin, float missing,
                                       float* __restrict out) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
      const float height =
          cmnalg::fusedMultiplyAdd<kHardwareFma>(static_cast<float>(values[i]), scale, origin);
      out[i] = values[i] == 0 ? missing : height;
    }
  }
};

using ToWorldVariants =
    cmnalg::KernelVariants<ToWorldKernel,
                           void(const std::uint16_t*, std::size_t, float, float, float, float*)>;

}  // namespace

void toWorldHeights(const std::uint16_t* values, std::size_t count, const GridAxis& levels,
                    float missing, float* out) {
  const base::DefaultFloatEnvironment environment;
  ToWorldVariants::choose(cmnalg::currentInstructionSet())(
      values, count, static_cast<float>(levels.scale), static_cast<float>(levels.origin), missing,
      out);
}

}  // namespace datafusion::planex
