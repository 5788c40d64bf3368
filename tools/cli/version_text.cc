#include "tools/cli/version_text.h"

#include <fmt/format.h>
#include <planex/foundation/instruction_set.h>
#include <planex/io/library_versions.h>
#include <planex/version.h>

#include <CLI/CLI.hpp>
#include <utility>
#include <vector>

#include "planex/report/canvas.h"

namespace planex::tools {
namespace {

using Versions = std::vector<std::pair<std::string, std::string>>;

Versions builtWith() {
  const int fmt = FMT_VERSION;
  return {
#ifdef PLANEX_ARAVIS_VERSION
      {"Aravis", PLANEX_ARAVIS_VERSION},
#endif
#ifdef PLANEX_CERES_VERSION
      {"Ceres", PLANEX_CERES_VERSION},
#endif
      {"CLI11", CLI11_VERSION},
      {"Eigen", PLANEX_EIGEN_VERSION},
      {"fmt", fmt::format("{}.{}.{}", fmt / 10000, fmt / 100 % 100, fmt % 100)},
      {"OpenMP", PLANEX_OPENMP_VERSION},
      {"compiler", PLANEX_COMPILER}};
}

std::string listOf(const Versions& versions) {
  std::string text;
  for (const auto& [name, version] : versions) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, version);
  }
  return text;
}

}  // namespace

std::string versionText(bool verbose, const Context& context) {
  std::string text = "planex " PLANEX_VERSION_STRING;
  if (!verbose) return text;
  Versions inUse = io::libraryVersions();
  inUse.insert(inUse.begin(), {"cairo", report::Canvas::libraryVersion()});
  text += fmt::format("\nin use             {}\n", listOf(inUse));
  text += fmt::format("built with         {}\n", listOf(builtWith()));
  std::vector<std::string> sets;
  for (const cmnalg::InstructionSet set : cmnalg::builtInstructionSets()) {
    sets.emplace_back(cmnalg::nameOf(set));
  }
  text += fmt::format("instruction sets   {}; in use {}\n", fmt::join(sets, ", "),
                      cmnalg::nameOf(cmnalg::currentInstructionSet()));
  return text + fmt::format("threads            {}", workerCount(context));
}

}  // namespace planex::tools
