#pragma once

#include <vector>

#include "planex/infra/export.h"

namespace cmnalg {

/// What kernels may be compiled for, from the poorest. Where a build has one variant of them, that
/// is Baseline: what the flags of the compiler ask for.
enum class InstructionSet : int {
  Baseline = 0,  ///< the least that the build asks of a processor
  Avx2 = 1,      ///< x86-64 with AVX2, FMA, BMI and BMI2
  Avx512 = 2,    ///< and with AVX-512 F, BW, CD, DQ and VL
};

/// @return the best set that this build has and this processor can run, at most the limit.
///         Constant as long as nobody changes the limit
PLANEX_EXPORT InstructionSet currentInstructionSet();

/// Has kernels of no set beyond `limit` chosen from now on, by all threads. No result depends on
/// it: it is for tests, benchmarks and self-tests.
PLANEX_EXPORT void limitInstructionSet(InstructionSet limit);

/// Those that this build has kernels for, from the poorest, whatever the processor can run.
PLANEX_EXPORT std::vector<InstructionSet> builtInstructionSets();

/// "baseline", "AVX2" or "AVX-512".
PLANEX_EXPORT const char* nameOf(InstructionSet set);

}  // namespace cmnalg
