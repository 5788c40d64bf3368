#include <fmt/format.h>
#include <planex/foundation/instruction_set.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/scan/selftest.h>
#include <planex/version.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tools/cli/progress.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using scan::ComputingWay;
using scan::SceneDifference;

constexpr int kLeastThreads = 2;  // also on one processor

std::string nameOf(const ComputingWay& way) {
  return fmt::format("{}, {} thread{}, {}", cmnalg::nameOf(way.set), way.threads,
                     way.threads == 1 ? "" : "s",
                     way.rows == 0 ? "whole images" : fmt::format("blocks of {} rows", way.rows));
}

std::vector<std::string> namesOf(const std::vector<ComputingWay>& ways) {
  std::vector<std::string> names;
  names.reserve(ways.size());
  for (const ComputingWay& way : ways) names.push_back(nameOf(way));
  return names;
}

/// A scene that differs in several ways is one.
std::size_t scenesIn(const std::vector<SceneDifference>& differences) {
  std::set<std::string> names;
  for (const SceneDifference& difference : differences) names.insert(difference.name);
  return names.size();
}

std::string plainText(const std::vector<ComputingWay>& ways,
                      const std::vector<SceneDifference>& differences) {
  std::string text =
      fmt::format("{} scenes, each in {} ways:\n", scan::referenceScenes().size(), ways.size());
  for (const std::string& name : namesOf(ways)) text += "  " + name + "\n";
  for (const SceneDifference& difference : differences) {
    text += fmt::format("differs: {} ({})\n", difference.name, nameOf(difference.way));
  }
  if (differences.empty()) text += "all as published for version " PLANEX_VERSION_STRING "\n";
  return text;
}

std::string jsonText(const std::vector<ComputingWay>& ways,
                     const std::vector<SceneDifference>& differences) {
  io::JsonText root;
  root.add("version", PLANEX_VERSION_STRING);
  root.addTexts("ways", namesOf(ways));
  root.add("differing", static_cast<double>(scenesIn(differences)));
  root.addList("scenes", nullptr, 0);
  for (const scan::ReferenceScene& scene : scan::referenceScenes()) {
    const io::JsonObject entry = root.appendTo("scenes");
    entry.add("name", scene.name);
    entry.add("sha256", scene.sha256);
  }
  root.addList("differences", nullptr, 0);
  for (const SceneDifference& difference : differences) {
    const io::JsonObject entry = root.appendTo("differences");
    entry.add("name", difference.name);
    entry.add("way", nameOf(difference.way));
    entry.add("published", difference.published);
    entry.add("found", difference.found);
  }
  return root.print();
}

void runSelftest(bool json, const Context& context) {
  Context threads = context;
  if (threads.threads == 0) threads.threads = std::max(kLeastThreads, workerCount(context));
  applyThreads(threads);
  const std::vector<ComputingWay> ways = scan::computingWays(threads.threads);
  std::vector<SceneDifference> differences;
  {
    Progress progress(context, "computing", static_cast<std::int64_t>(ways.size()), "ways");
    differences = scan::runSelftest(scan::referenceScenes(), ways, [&progress](std::size_t way) {
      if (way > 0) progress.advance(1);
    });
  }
  const std::string text = json ? jsonText(ways, differences) : plainText(ways, differences);
  std::fputs(text.c_str(), stdout);
  if (differences.empty()) return;
  throw io::Failure(fmt::format(
      "other numbers than were published come out of {} of {} scenes; do not measure with this "
      "build, and report what planex selftest --json prints",
      scenesIn(differences), scan::referenceScenes().size()));
}

}  // namespace

void addSelftestCommand(CLI::App& app, Context& context) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand(
      "selftest", "Tell whether this machine and this build give the numbers that were published");
  command->add_flag("--json", *json, "Print JSON");
  addThreadsOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Examples:\n"
      "  planex selftest\n"
      "  planex selftest --json | grep differing");
  command->callback([json, &context] { runSelftest(*json, context); });
}

}  // namespace planex::tools
