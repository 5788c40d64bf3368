#pragma once

#include <string>

#include "tools/cli/options.h"

namespace planex::tools {

/// What `planex --version` prints.
/// @param verbose  also the versions of libraries, those in use and those that it was built with,
///                 instruction sets and threads
std::string versionText(bool verbose, const Context& context);

}  // namespace planex::tools
