#include "planex/scan/selftest.h"

#include <algorithm>
#include <map>
#include <utility>

#include "planex/processing/thread_limit.h"
#include "planex/scan/reference_scenes.h"

namespace planex::scan {
namespace {

using cmnalg::InstructionSet;

/// Has the set chosen that is chosen otherwise when it goes.
class InstructionSetLimit {
 public:
  InstructionSetLimit() : former_(cmnalg::currentInstructionSet()) {}
  ~InstructionSetLimit() { cmnalg::limitInstructionSet(former_); }
  InstructionSetLimit(const InstructionSetLimit&) = delete;
  InstructionSetLimit& operator=(const InstructionSetLimit&) = delete;

 private:
  const InstructionSet former_;
};

std::vector<Scene> makeScenes() {
  std::vector<Scene> scenes;
  addProcessingScenes(scenes);
  addFileScenes(scenes);
  return scenes;
}

}  // namespace

std::vector<ComputingWay> computingWays(int threads) {
  const int best = static_cast<int>(cmnalg::currentInstructionSet());
  std::vector<ComputingWay> ways;
  for (int set = 0; set <= best; ++set) {
    const auto kernels = static_cast<InstructionSet>(set);
    ways.push_back({kernels, 1, 0});
    if (threads > 1) ways.push_back({kernels, threads, 0});
    ways.push_back({kernels, 1, 7});
  }
  return ways;
}

std::vector<SceneDifference> runSelftest(const std::vector<ReferenceScene>& published,
                                         const std::vector<ComputingWay>& ways,
                                         const std::function<void(std::size_t way)>& advance) {
  const InstructionSetLimit limit;
  const std::vector<Scene> scenes = makeScenes();
  std::vector<SceneDifference> differences;
  for (std::size_t i = 0; i < ways.size(); ++i) {
    const ComputingWay& way = ways[i];
    if (advance) advance(i);
    cmnalg::limitInstructionSet(way.set);
    const datafusion::planex::ThreadLimit threads(way.threads);
    std::map<std::string, std::string> expected;
    for (const ReferenceScene& scene : published) expected[scene.name] = scene.sha256;
    for (const Scene& scene : scenes) {
      SceneSum sum;
      scene.compute(way.rows, sum);
      std::string found = sum.take();
      const auto wanted = expected.extract(scene.name);
      const std::string checksum = wanted.empty() ? std::string() : wanted.mapped();
      if (found != checksum) differences.push_back({scene.name, checksum, way, std::move(found)});
    }
    for (const auto& [name, checksum] : expected) differences.push_back({name, checksum, way, {}});
  }
  return differences;
}

}  // namespace planex::scan
