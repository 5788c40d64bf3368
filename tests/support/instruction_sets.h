#pragma once

#include <cstdint>

#include "planex/foundation/multiversion.h"
#include "planex/processing/row_parallel.h"

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

/// Lets regions open a team however small the image is, while the object lives.
class SmallTeams {
 public:
  SmallTeams() { datafusion::threading_helpers::setMinimumPixelsPerThread(1); }
  ~SmallTeams() {
    datafusion::threading_helpers::setMinimumPixelsPerThread(
        datafusion::threading_helpers::kDefaultMinimumPixelsPerThread);
  }
  SmallTeams(const SmallTeams&) = delete;
  SmallTeams& operator=(const SmallTeams&) = delete;
};
