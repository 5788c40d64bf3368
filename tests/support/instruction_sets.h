#pragma once

#include <omp.h>

#include <cstdint>

#include "planex/foundation/multiversion.h"
#include "planex/processing/row_parallel.h"

namespace test {

/// Runs `body` once for every instruction set that this processor has.
template <typename Body>
void forEachInstructionSet(Body&& body) {
  for (int set = 0; set < cmnalg::kInstructionSetCount; ++set) {
    const auto limit = static_cast<cmnalg::InstructionSet>(set);
    cmnalg::limitInstructionSet(limit);
    if (cmnalg::currentInstructionSet() == limit) body(limit);
  }
  cmnalg::limitInstructionSet(cmnalg::InstructionSet::Avx512);
}

/// How many threads the regions of the library take from now on, from one pixel a thread on.
inline void useThreads(int count) {
  omp_set_num_threads(count);
  datafusion::threading_helpers::setMinimumPixelsPerThread(1);
}

}  // namespace test
