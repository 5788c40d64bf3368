#include "planex/processing/calibration_kernel.h"

#include <limits>

#include "planex/foundation/pixel_dispatch.h"
#include "planex/model/homography.h"
#include "planex/model/lens_polynomial.h"

namespace datafusion::planex::kernel {
namespace {

using cmnalg::fusedMultiplyAdd;
using cmnalg::InstructionSet;
using cmnalg::KernelVariants;

template <bool kHardwareFma>
PLANEX_ALWAYS_INLINE float scaled(float value, float scale, float offset) {
  return fusedMultiplyAdd<kHardwareFma>(value, scale, offset);
}
template <bool kHardwareFma>
PLANEX_ALWAYS_INLINE double scaled(double value, double scale, double offset) {
  return value * scale + offset;
}

/// The lens polynomial with the terms of the variant; arithmetic in double, results in T.
template <LensVariant kLens, typename T>
PLANEX_ALWAYS_INLINE void undistortVariant(const double* c, double xn, double yn, T& xd, T& yd) {
  if constexpr (kLens == LensVariant::General) {
    double x = xn;
    double y = yn;
    basic::undistort(c, x, y);
    xd = static_cast<T>(x);
    yd = static_cast<T>(y);
  } else {
    const double rho = xn * xn + yn * yn;
    const double radial = 1.0 + rho * (c[0] + rho * c[1]);
    if constexpr (kLens == LensVariant::Scheimpflug) {
      xd = static_cast<T>(xn * radial + c[5] * rho);
      yd = static_cast<T>(yn * radial + c[6] * rho);
    } else {
      xd = static_cast<T>(xn * radial);
      yd = static_cast<T>(yn * radial);
    }
  }
}

template <typename Pixel, typename Real, LensVariant kLens>
struct CalibrateRowKernel {
  template <bool kHardwareFma>
  static PLANEX_ALWAYS_INLINE void run(const void* samples, const double* __restrict xNormalised,
                                       int columns, const CalibrationConstants& constants,
                                       float* __restrict x, float* __restrict z) {
    const auto* __restrict range = static_cast<const Pixel*>(samples);
    const CalibrationConstants k = constants;
    const Real scale = static_cast<Real>(k.valueScale);
    const Real offset = static_cast<Real>(k.valueOffset);
    constexpr Real kMissing = std::numeric_limits<Real>::quiet_NaN();
#pragma omp simd
    for (int u = 0; u < columns; ++u) {
      // A missing sample enters as NaN and runs through, so that the loop has no branch.
      const Real r = range[u] > Pixel{0} ? static_cast<Real>(range[u]) : kMissing;
      const Real yn = scaled<kHardwareFma>(r, scale, offset);
      Real xd;
      Real yd;
      undistortVariant<kLens>(k.lens, xNormalised[u], static_cast<double>(yn), xd, yd);
      double xWorld = static_cast<double>(xd);
      double zWorld = static_cast<double>(yd);
      basic::applyHomography(k.transform, xWorld, zWorld);
      x[u] = static_cast<float>(xWorld);
      z[u] = static_cast<float>(zWorld);
    }
  }
};

template <typename Real>
struct NormaliseColumnsKernel {
  template <bool kHardwareFma>
  static PLANEX_ALWAYS_INLINE void run(double a, double c, int first, int count,
                                       double* __restrict xNormalised) {
    const Real scale = static_cast<Real>(a);
    const Real offset = static_cast<Real>(c);
#pragma omp simd
    for (int i = 0; i < count; ++i) {
      xNormalised[i] =
          static_cast<double>(scaled<kHardwareFma>(static_cast<Real>(first + i), scale, offset));
    }
  }
};

struct SheetCurveRowKernel {
  template <bool kHardwareFma>
  static PLANEX_ALWAYS_INLINE void run(const double* sheetCurve, int columns,
                                       const float* __restrict x, float* __restrict z) {
    const double s[6] = {sheetCurve[0], sheetCurve[1], sheetCurve[2],
                         sheetCurve[3], sheetCurve[4], sheetCurve[5]};
#pragma omp simd
    for (int u = 0; u < columns; ++u) {
      const double zFlat = static_cast<double>(z[u]);
      const double t = (static_cast<double>(x[u]) - s[0]) * (1.0 + zFlat * s[1]);
      const double correction = s[2] + s[3] * t + s[4] * (t * t) + s[5] * (t * t * t);
      z[u] = static_cast<float>(correction) + z[u];
    }
  }
};

template <typename Pixel, typename Real>
CalibrateRow chooseLens(LensVariant variant, InstructionSet set) {
  using Signature =
      void(const void*, const double*, int, const CalibrationConstants&, float*, float*);
  switch (variant) {
    case LensVariant::Radial:
      return KernelVariants<CalibrateRowKernel<Pixel, Real, LensVariant::Radial>,
                            Signature>::choose(set);
    case LensVariant::Scheimpflug:
      return KernelVariants<CalibrateRowKernel<Pixel, Real, LensVariant::Scheimpflug>,
                            Signature>::choose(set);
    default:
      return KernelVariants<CalibrateRowKernel<Pixel, Real, LensVariant::General>,
                            Signature>::choose(set);
  }
}

template <typename Pixel>
void markMissing(const void* samples, int columns, float missing, float* x, float* z) {
  const auto* range = static_cast<const Pixel*>(samples);
  for (int u = 0; u < columns; ++u) {
    if (range[u] > Pixel{0}) continue;
    x[u] = missing;
    z[u] = missing;
  }
}

}  // namespace

LensVariant lensVariant(const double* lens) {
  if (lens[2] != 0.0 || lens[3] != 0.0 || lens[4] != 0.0) return LensVariant::General;
  // A NaN differs from 0, so it takes the loop that has its term.
  return lens[5] != 0.0 || lens[6] != 0.0 ? LensVariant::Scheimpflug : LensVariant::Radial;
}

CalibrateRow calibrateRow(cmnalg::ImageType type, bool doublePrecision, LensVariant variant,
                          InstructionSet set) {
  CalibrateRow chosen = nullptr;
  cmnalg::dispatchMeasuredType(type, [&](auto pixel) {
    using Pixel = typename decltype(pixel)::type;
    chosen = doublePrecision ? chooseLens<Pixel, double>(variant, set)
                             : chooseLens<Pixel, float>(variant, set);
    return true;
  });
  return chosen;
}

void fillNormalisedColumns(bool doublePrecision, double a, double c, int first, int count,
                           double* xNormalised, InstructionSet set) {
  using Signature = void(double, double, int, int, double*);
  const auto fill = doublePrecision
                        ? KernelVariants<NormaliseColumnsKernel<double>, Signature>::choose(set)
                        : KernelVariants<NormaliseColumnsKernel<float>, Signature>::choose(set);
  fill(a, c, first, count, xNormalised);
}

SheetCurveRow sheetCurveRow(InstructionSet set) {
  return KernelVariants<SheetCurveRowKernel,
                        void(const double*, int, const float*, float*)>::choose(set);
}

MarkMissingRow markMissingRow(cmnalg::ImageType type) {
  MarkMissingRow chosen = nullptr;
  cmnalg::dispatchMeasuredType(type, [&](auto pixel) {
    chosen = markMissing<typename decltype(pixel)::type>;
    return true;
  });
  return chosen;
}

}  // namespace datafusion::planex::kernel
