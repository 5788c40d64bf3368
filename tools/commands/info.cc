#include <cstdio>
#include <memory>
#include <string>

#include "tools/commands/commands.h"
#include "tools/support/model_file.h"

namespace planex_tools {
namespace {

struct InfoOptions {
  std::string model;
};

void runInfo(const InfoOptions& options) { std::puts(loadModel(options.model).toString().c_str()); }

}  // namespace

void addInfoCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* command = app.add_subcommand("info", "Tell what a model is and what it covers");
  command->add_option("MODEL", options->model, "Model document")->required();
  addUnitOption(*command, context);
  command->footer("Examples:\n  planex info model.json");
  command->callback([options] { runInfo(*options); });
}

}  // namespace planex_tools
