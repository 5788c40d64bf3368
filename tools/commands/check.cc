#include <planex/io/failure.h>
#include <planex/io/model_file.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "tools/commands/commands.h"
#include "tools/commands/model_findings.h"

namespace planex::tools {
namespace {

struct CheckOptions {
  std::string model;
};

void runCheck(const CheckOptions& options, const Context& context) {
  const ModelFindings findings = findingsOf(io::readTextFile(options.model));
  const std::string name = io::Failure::nameOf(options.model);
  const auto print = [&name](const std::string& text) {
    std::puts(io::inOneLine(name + ": " + text).c_str());
  };
  for (const io::Fault& fault : findings.faults) print(fault.path + ": " + fault.text);
  if (!findings.recovery.empty()) print(findings.recovery);
  if (!findings.faults.empty()) throw io::Failure(options.model, findings.sentence());
  if (!context.quiet) print(findings.sentence());
}

}  // namespace

void addCheckCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* command = app.add_subcommand(
      "check", "Look for faults in a model document, also such that reading forgives");
  command->add_option("MODEL", options->model, "Model document; - is standard input")->required();
  addQuietOption(*command, context);
  command->footer(
      "Every fault is a line: the file, the path of the member, what is wrong.\n"
      "Exit status: 0 no faults, 1 faults or no readable file.\n\n"
      "Examples:\n"
      "  planex check model.json\n"
      "  planex check model.json --quiet && start_measuring");
  command->callback([options, &context] { runCheck(*options, context); });
}

}  // namespace planex::tools
