// In place of view.cc, where three.js was not there to be built in.

#include <planex/io/failure.h>

#include "tools/commands/commands.h"

namespace planex::tools {

void addViewCommand(CLI::App& app, Context& /*context*/) {
  CLI::App* command = app.add_subcommand("view", "Not in this planex: built without three.js");
  command->allow_extras();
  command->footer("");
  command->callback([] {
    throw io::Failure("planex was built without pages; build it with libjs-three installed");
  });
}

}  // namespace planex::tools
