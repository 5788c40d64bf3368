#include "planex/processing/alignment_kernel.h"

#include <limits>
#include <type_traits>

#include "planex/foundation/pixel_dispatch.h"

namespace datafusion::planex::kernel {
namespace {

using cmnalg::InstructionSet;
using cmnalg::KernelVariants;

template <typename XPixel, typename ZPixel, bool kPhysical>
struct AlignRowKernel {
  template <bool>
  static PLANEX_ALWAYS_INLINE void run(const void* xSamples, const void* zSamples, float yRow,
                                       int columns, const AlignmentConstants& constants,
                                       float* __restrict xOut, float* __restrict yOut,
                                       float* __restrict zOut) {
    const auto* __restrict xRaw = static_cast<const XPixel*>(xSamples);
    const auto* __restrict zRaw = static_cast<const ZPixel*>(zSamples);
    const AlignmentConstants k = constants;
    const double* t = k.transform;
    const double y = static_cast<double>(yRow);
#pragma omp simd
    for (int u = 0; u < columns; ++u) {
      double x;
      double z;
      if constexpr (kPhysical) {
        x = static_cast<double>(static_cast<float>(xRaw[u]));
        z = static_cast<double>(zRaw[u]);
      } else {
        // A missing Z enters as NaN and reaches all three targets through the sums.
        const double zPhysical = static_cast<double>(zRaw[u]) * k.zScale + k.zOffset;
        const bool missing = std::is_integral_v<ZPixel> && zRaw[u] == ZPixel{0};
        x = static_cast<double>(
            static_cast<float>(static_cast<double>(xRaw[u]) * k.xScale + k.xOffset));
        z = missing ? std::numeric_limits<double>::quiet_NaN()
                    : static_cast<double>(static_cast<float>(zPhysical));
      }
      xOut[u] = static_cast<float>(t[0] * x + t[1] * y + t[2] * z + t[3]);
      yOut[u] = static_cast<float>(t[4] * x + t[5] * y + t[6] * z + t[7]);
      zOut[u] = static_cast<float>(t[8] * x + t[9] * y + t[10] * z + t[11]);
    }
  }
};

}  // namespace

AlignRow alignRow(cmnalg::ImageType xType, cmnalg::ImageType zType, bool physical,
                  InstructionSet set) {
  using Signature =
      void(const void*, const void*, float, int, const AlignmentConstants&, float*, float*, float*);
  AlignRow chosen = nullptr;
  cmnalg::dispatchMeasuredType(zType, [&](auto z) {
    return cmnalg::dispatchMeasuredType(xType, [&](auto x) {
      using X = typename decltype(x)::type;
      using Z = typename decltype(z)::type;
      if constexpr (std::is_floating_point_v<Z>) {
        if (physical) {
          chosen = KernelVariants<AlignRowKernel<X, Z, true>, Signature>::choose(set);
          return true;
        }
      }
      chosen = KernelVariants<AlignRowKernel<X, Z, false>, Signature>::choose(set);
      return true;
    });
  });
  return chosen;
}

}  // namespace datafusion::planex::kernel
