// In place of estimate.cc, where the library that estimates was not built.

#include <planex/io/failure.h>

#include "tools/commands/commands.h"

namespace planex::tools {

void addEstimateCommand(CLI::App& app, Context& /*context*/) {
  CLI::App* command = app.add_subcommand("estimate", "Not in this planex: built without Ceres");
  command->allow_extras();
  command->footer("");
  command->callback([] {
    throw io::Failure("planex was built without estimation; build it with libceres-dev installed");
  });
}

}  // namespace planex::tools
