#pragma once

/// @file
/// Fixed scenes, computed from whole numbers, with the SHA-256 of what must come out. They are the
/// same on every processor, with every instruction set, any number of threads and any blocks of
/// rows; whoever runs them knows that this holds for the machine and the build at hand.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "planex/foundation/instruction_set.h"
#include "planex/infra/export.h"

namespace planex::scan {

/// A way to compute a scene, on which its result does not depend.
struct ComputingWay {
  cmnalg::InstructionSet set = cmnalg::InstructionSet::Baseline;  ///< of the kernels
  int threads = 1;  ///< of a call, at most; the default team of OpenMP bounds it, too
  int rows = 0;     ///< that go through a call at a time; 0: the whole image
};

/// A scene and what comes out of it.
struct ReferenceScene {
  std::string name;    ///< "rectification MEAN uint16"
  std::string sha256;  ///< of the results, see docs/reproducibility.md
};

/// A result that is another one than was published.
struct SceneDifference {
  std::string name;       ///< of the scene
  std::string published;  ///< its checksum; empty for a scene without
  ComputingWay way;       ///< that gave the other one
  std::string found;      ///< the other one; empty for a scene that nobody computes
};

/// The scenes with their published checksums, which hold for a major version.
PLANEX_EXPORT const std::vector<ReferenceScene>& referenceScenes();

/// For each instruction set that this build has and this processor can run, the least first: whole
/// images on one thread and on `threads`, and blocks of seven rows.
PLANEX_EXPORT std::vector<ComputingWay> computingWays(int threads);

/// Computes all scenes in all ways. Files are written to the folder for temporary files, without
/// names; a Failure where it takes none.
///
/// @param published what must come out
/// @param advance   called before each way with its place in the list; may be empty
/// @return what is another one, in the order of the ways; empty: all is as published
///
/// Changes the limit of instruction sets while it runs, so that nothing else should compute then.
PLANEX_EXPORT std::vector<SceneDifference> runSelftest(
    const std::vector<ReferenceScene>& published, const std::vector<ComputingWay>& ways,
    const std::function<void(std::size_t way)>& advance = {});

}  // namespace planex::scan
