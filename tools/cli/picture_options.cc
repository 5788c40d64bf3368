#include "tools/cli/picture_options.h"

namespace planex::tools {

using report::ColorMap;

CLI::Option* addColorsOption(CLI::App& command, std::string& name) {
  return command.add_option("--colors", name, "Colours of the picture; diverging has white at 0")
      ->check(CLI::IsMember(ColorMap::names()))
      ->capture_default_str()
      ->type_name("NAME");
}

report::PictureFormat pictureFormat(const char* option, const std::string& path) {
  const auto format = report::pictureFormatOf(path);
  if (!format) {
    throw CLI::ValidationError(option, "'" + path + "' ends neither in .png nor in .svg");
  }
  return *format;
}

std::string (*pageWriter(const char* option, const std::string& path))(const report::Document&) {
  const auto writer = report::writerOf(path);
  if (writer == nullptr) throw CLI::ValidationError(option, "must end in .html, .htm or .pdf");
  return writer;
}

}  // namespace planex::tools
