#include "planex/io/library_versions.h"

#include <cjson/cJSON.h>
#include <fmt/format.h>
#include <nettle/version.h>
#include <png.h>
#include <tiffio.h>
#include <zlib.h>
#include <zstd.h>

namespace planex::io {
namespace {

/// "LIBTIFF, Version 4.5.0\nCopyright ..." is told by its number.
std::string tiffVersion() {
  const std::string text = TIFFGetVersion();
  const std::size_t begin = text.find_first_of("0123456789");
  if (begin == std::string::npos) return "unknown";
  return text.substr(begin, text.find_first_not_of("0123456789.", begin) - begin);
}

}  // namespace

std::vector<std::pair<std::string, std::string>> libraryVersions() {
  return {{"cJSON", cJSON_Version()},
          {"libpng", png_get_libpng_ver(nullptr)},
          {"libtiff", tiffVersion()},
          {"nettle", fmt::format("{}.{}", nettle_version_major(), nettle_version_minor())},
          {"zlib", zlibVersion()},
          {"zstd", ZSTD_versionString()}};
}

}  // namespace planex::io
