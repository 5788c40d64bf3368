#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "planex/report/canvas.h"

namespace planex::tools {

/// Adds --colors, the name of a colour map.
CLI::Option* addColorsOption(CLI::App& command, std::string& name);

/// The format of the picture that an option names; a CLI::ValidationError for other endings.
report::PictureFormat pictureFormat(const char* option, const std::string& path);

}  // namespace planex::tools
