#include "planex/foundation/multiversion.h"

#include <algorithm>
#include <atomic>

namespace cmnalg {
namespace {

InstructionSet detect() {
#if PLANEX_MULTIVERSION
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
                    __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
  const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                      __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512vl");
  if (avx2 && avx512) return InstructionSet::Avx512;
  if (avx2) return InstructionSet::Avx2;
#endif
  return InstructionSet::Baseline;
}

std::atomic<InstructionSet> setLimit{InstructionSet::Avx512};

}  // namespace

InstructionSet currentInstructionSet() {
  static const InstructionSet best = detect();
  return std::min(best, setLimit.load(std::memory_order_relaxed));
}

void limitInstructionSet(InstructionSet limit) { setLimit = limit; }

std::vector<InstructionSet> builtInstructionSets() {
  std::vector<InstructionSet> sets;
  sets.reserve(kInstructionSetCount);
  for (int set = 0; set < kInstructionSetCount; ++set) {
    sets.push_back(static_cast<InstructionSet>(set));
  }
  return sets;
}

const char* nameOf(InstructionSet set) {
  switch (set) {
    case InstructionSet::Avx512:
      return "AVX-512";
    case InstructionSet::Avx2:
      return "AVX2";
    case InstructionSet::Baseline:
      break;
  }
  return "baseline";
}

}  // namespace cmnalg
