#include "tools/commands/commands.h"

#include <memory>

#include "tools/cli/version_text.h"

namespace planex::tools {

void addCommands(CLI::App& app, Context& context) {
  app.name("planex");
  app.description(
      "From range images of laser-line cameras to height maps and point clouds.\n"
      "The option --help of a command tells its options and gives examples.");
  // Found before --version ends the parsing, wherever it stands.
  const auto verbose = std::make_shared<bool>(false);
  CLI::Option* more = app.add_flag("--verbose", *verbose,
                                   "With --version: libraries, instruction sets and threads, too");
  more->needs(app.set_version_flag("--version",
                                   [verbose, &context] { return versionText(*verbose, context); }));
  app.require_subcommand(1);
  app.footer("Exit status: 0 success, 1 an input is faulty, 2 the command line is.");
  for (const auto addCommand :
       {addInfoCommand, addCheckCommand, addCalibrateCommand, addRectifyCommand, addProfileCommand,
        addStatsCommand, addMapCommand, addBoundsCommand, addConvertCommand, addDiffCommand,
        addEstimateCommand, addReportCommand, addExtractCommand, addGrabCommand, addCamerasCommand,
        addSelftestCommand, addViewCommand}) {
    addCommand(app, context);
  }
}

}  // namespace planex::tools
