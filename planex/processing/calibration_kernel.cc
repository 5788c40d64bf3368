#include "planex/processing/calibration_kernel.h"

#include <cmath>
#include <limits>

#include "planex/foundation/pixel_dispatch.h"
#include "planex/model/homography.h"

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

/// a + 2 b. Doubling is exact, so that the fused form gives the bits of the plain one.
template <bool kHardwareFma>
PLANEX_ALWAYS_INLINE double plusTwice(double a, double b) {
  if constexpr (kHardwareFma) {
    return std::fma(2.0, b, a);
  } else {
    return a + 2.0 * b;
  }
}

/// basic::undistort of (xn, yn) from the terms of column u, with those of the variant only;
/// arithmetic in double, results in T.
template <bool kHardwareFma, LensVariant kLens, typename T>
PLANEX_ALWAYS_INLINE void undistortColumn(const double* c, const ColumnTerms& terms, int u,
                                          double yn, T& xd, T& yd) {
  const double xn = terms.xn[u];
  const double xn2 = terms.xnSquared[u];
  const double yn2 = yn * yn;
  const double rho = xn2 + yn2;
  if constexpr (kLens == LensVariant::General) {
    const double radial = 1.0 + rho * (c[0] + rho * (c[1] + rho * c[2]));
    xd = static_cast<T>(xn * radial + terms.xnTimesC3[u] * yn +
                        c[4] * plusTwice<kHardwareFma>(rho, xn2) + c[5] * rho);
    yd = static_cast<T>(yn * radial + c[3] * plusTwice<kHardwareFma>(rho, yn2) +
                        terms.xnTimesC4[u] * yn + c[6] * rho);
  } else {
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
  static PLANEX_ALWAYS_INLINE void run(const void* samples, const ColumnTerms& columnTerms,
                                       int columns, const CalibrationConstants& constants,
                                       float* __restrict x, float* __restrict z) {
    const auto* __restrict range = static_cast<const Pixel*>(samples);
    const ColumnTerms terms = columnTerms;
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
      undistortColumn<kHardwareFma, kLens>(k.lens, terms, u, static_cast<double>(yn), xd, yd);
      double xWorld = static_cast<double>(xd);
      double zWorld = static_cast<double>(yd);
      basic::applyHomography(k.transform, xWorld, zWorld);
      x[u] = static_cast<float>(xWorld);
      z[u] = static_cast<float>(zWorld);
    }
  }
};

template <typename Real>
struct ColumnTermsKernel {
  template <bool kHardwareFma>
  static PLANEX_ALWAYS_INLINE void run(double a, double c, const double* lens, int first, int count,
                                       const ColumnTerms& terms) {
    const Real scale = static_cast<Real>(a);
    const Real offset = static_cast<Real>(c);
    const double twiceC3 = 2 * lens[3];
    const double twiceC4 = 2 * lens[4];
    double* __restrict xn = terms.xn;
    double* __restrict xnSquared = terms.xnSquared;
    double* __restrict xnTimesC3 = terms.xnTimesC3;
    double* __restrict xnTimesC4 = terms.xnTimesC4;
#pragma omp simd
    for (int i = 0; i < count; ++i) {
      const double x =
          static_cast<double>(scaled<kHardwareFma>(static_cast<Real>(first + i), scale, offset));
      xn[i] = x;
      xnSquared[i] = x * x;
      xnTimesC3[i] = twiceC3 * x;
      xnTimesC4[i] = twiceC4 * x;
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
      void(const void*, const ColumnTerms&, int, const CalibrationConstants&, float*, float*);
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

void fillColumnTerms(bool doublePrecision, double a, double c, const double* lens, int first,
                     int count, const ColumnTerms& terms, InstructionSet set) {
  using Signature = void(double, double, const double*, int, int, const ColumnTerms&);
  const auto fill = doublePrecision
                        ? KernelVariants<ColumnTermsKernel<double>, Signature>::choose(set)
                        : KernelVariants<ColumnTermsKernel<float>, Signature>::choose(set);
  fill(a, c, lens, first, count, terms);
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
