#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "planex/report/canvas.h"
#include "planex/report/document.h"

namespace planex::tools {

/// Adds --colors, the name of a colour map.
CLI::Option* addColorsOption(CLI::App& command, std::string& name);

/// The format of the picture that an option names; a CLI::ValidationError for other endings.
report::PictureFormat pictureFormat(const char* option, const std::string& path);

/// What writes the page that an option names, .html, .htm or .pdf; a CLI::ValidationError for other
/// endings.
std::string (*pageWriter(const char* option, const std::string& path))(const report::Document&);

}  // namespace planex::tools
