#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "planex/foundation/instruction_set.h"

/// One kernel text, several instruction sets.
///
/// A kernel is a struct with a static member function template
///
///     template <bool kHardwareFma> static void run(arguments...)
///
/// marked PLANEX_ALWAYS_INLINE. KernelVariants compiles it once per instruction set and chooses
/// at run time, so that one build serves every processor and a test can step through all of
/// them. Every variant computes the same bits: contraction is off, and the float multiply-add
/// that formulas name is exact in each.
///
/// With PLANEX_NO_MULTIVERSION, and elsewhere than on x86-64, there is one variant: the one that
/// the compiler's own flags ask for.

#define PLANEX_ALWAYS_INLINE inline __attribute__((always_inline))

#if defined(__x86_64__) && !defined(PLANEX_NO_MULTIVERSION)
#define PLANEX_MULTIVERSION 1
#define PLANEX_TARGET_AVX2 __attribute__((target("avx2,fma,bmi,bmi2")))
#ifdef __clang__  // knows no preferred width; it chooses by itself
#define PLANEX_TARGET_AVX512 \
  __attribute__((target("avx512f,avx512bw,avx512cd,avx512dq,avx512vl,fma,bmi,bmi2")))
#else
#define PLANEX_TARGET_AVX512                                             \
  __attribute__((                                                        \
      target("avx512f,avx512bw,avx512cd,avx512dq,avx512vl,fma,bmi,bmi2," \
             "prefer-vector-width=512")))
#endif
#else
#define PLANEX_MULTIVERSION 0
#endif

namespace cmnalg {

constexpr int kInstructionSetCount = PLANEX_MULTIVERSION ? 3 : 1;

#ifdef __FMA__
constexpr bool kBaselineHasFma = true;
#elif defined(__aarch64__)
constexpr bool kBaselineHasFma = true;
#else
constexpr bool kBaselineHasFma = false;
#endif

/// a * b + c with one rounding, as std::fma gives it, without needing the instruction.
///
/// The product of two floats is exact in double. The sum is rounded to odd there, from which the
/// second rounding, to float, gives the correctly rounded result (Boldo and Melquiond, Emulation
/// of FMA and correctly rounded sums, IEEE Transactions on Computers 57(4), 2008). Any NaN
/// stands for any NaN.
PLANEX_ALWAYS_INLINE float emulatedFma(float a, float b, float c) {
  const double product = static_cast<double>(a) * static_cast<double>(b);
  const double addend = static_cast<double>(c);
  const double sum = product + addend;
  const double addendPart = sum - product;
  const double error = (product - (sum - addendPart)) + (addend - addendPart);
  std::int64_t bits;
  std::int64_t errorBits;
  std::memcpy(&bits, &sum, sizeof bits);
  std::memcpy(&errorBits, &error, sizeof errorBits);
  // An inexact even sum moves one step towards the exact value, to its odd neighbour.
  const std::int64_t even = ~bits & 1;
  const std::int64_t opposite =
      static_cast<std::int64_t>(static_cast<std::uint64_t>(bits ^ errorBits) >> 63);
  const std::int64_t step = even - ((even & opposite) << 1);
  const bool inexact = error < 0.0 || error > 0.0;
  bits += inexact ? step : 0;
  double odd;
  std::memcpy(&odd, &bits, sizeof odd);
  return static_cast<float>(odd);
}

/// a * b + c with one rounding; `kHardwareFma` tells whether the code is compiled for a
/// processor with the instruction.
template <bool kHardwareFma>
PLANEX_ALWAYS_INLINE float fusedMultiplyAdd(float a, float b, float c) {
  if constexpr (kHardwareFma) {
    return std::fma(a, b, c);
  } else {
    return emulatedFma(a, b, c);
  }
}

/// The variants of one kernel; Signature is that of its `run`.
template <typename Kernel, typename Signature>
struct KernelVariants;

template <typename Kernel, typename Result, typename... Arguments>
struct KernelVariants<Kernel, Result(Arguments...)> {
  using Function = Result (*)(Arguments...);

  static Result baseline(Arguments... arguments) {
    return Kernel::template run<kBaselineHasFma>(arguments...);
  }
#if PLANEX_MULTIVERSION
  PLANEX_TARGET_AVX2 static Result avx2(Arguments... arguments) {
    return Kernel::template run<true>(arguments...);
  }
  PLANEX_TARGET_AVX512 static Result avx512(Arguments... arguments) {
    return Kernel::template run<true>(arguments...);
  }
#endif

  static Function choose(InstructionSet set) {
#if PLANEX_MULTIVERSION
    if (set == InstructionSet::Avx512) return avx512;
    if (set == InstructionSet::Avx2) return avx2;
#else
    static_cast<void>(set);
#endif
    return baseline;
  }
};

}  // namespace cmnalg
