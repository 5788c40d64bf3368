#pragma once

#include <string>
#include <utility>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// The libraries that read and write files, and the versions of them that this process has loaded.
PLANEX_EXPORT std::vector<std::pair<std::string, std::string>> libraryVersions();

}  // namespace planex::io
