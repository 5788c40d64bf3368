#pragma once

#include <CLI/CLI.hpp>

#include "tools/cli/options.h"

namespace planex::tools {

/// Makes `app` the command line of planex: what its help says, and all commands below.
void addCommands(CLI::App& app, Context& context);

/// @{
/// Adds a command with its options. When the command line names it, it runs while the line is
/// parsed, after all options are set; it throws Failure, or CLI::ParseError for what the line asks
/// wrongly. `context` outlives the parsing.
void addBoundsCommand(CLI::App& app, Context& context);
void addCalibrateCommand(CLI::App& app, Context& context);
void addCamerasCommand(CLI::App& app, Context& context);
void addCheckCommand(CLI::App& app, Context& context);
void addConvertCommand(CLI::App& app, Context& context);
void addDiffCommand(CLI::App& app, Context& context);
void addEstimateCommand(CLI::App& app, Context& context);
void addExtractCommand(CLI::App& app, Context& context);
void addGrabCommand(CLI::App& app, Context& context);
void addInfoCommand(CLI::App& app, Context& context);
void addMapCommand(CLI::App& app, Context& context);
void addProfileCommand(CLI::App& app, Context& context);
void addRectifyCommand(CLI::App& app, Context& context);
void addReportCommand(CLI::App& app, Context& context);
void addSelftestCommand(CLI::App& app, Context& context);
void addStatsCommand(CLI::App& app, Context& context);
void addViewCommand(CLI::App& app, Context& context);
/// @}

}  // namespace planex::tools
