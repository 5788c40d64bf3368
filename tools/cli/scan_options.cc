#include "tools/cli/scan_options.h"

#include <fmt/format.h>
#include <planex/io/failure.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <system_error>

#include "tools/cli/options.h"

namespace planex::tools {
namespace {

constexpr int kBlockPixels = 1 << 17;      // of a block that caches hold
constexpr int kMostBlockPixels = 1 << 22;  // of any, some 200 MB

[[noreturn]] void refuseRows(const RowOptions& options, const io::ImageShape& image) {
  throw CLI::ValidationError("--rows", "'" + options.rows + "' is no part A:B of the rows 0:" +
                                           std::to_string(image.height) + " of the image");
}

/// The number between begin and end; `otherwise` where nothing stands there.
int parseRow(const char* begin, const char* end, int otherwise, const RowOptions& options,
             const io::ImageShape& image) {
  if (begin == end) return otherwise;
  int row = 0;
  const auto result = std::from_chars(begin, end, row);
  if (result.ec != std::errc() || result.ptr != end) refuseRows(options, image);
  return row;
}

bool isScale(double value) { return value != 0; }
bool isSize(double value) { return value >= 1 && value <= 65535 && std::floor(value) == value; }

}  // namespace

void addRangeOptions(CLI::App& command, scan::SensorSettings& settings) {
  const NumberRule scale{isScale, "must not be 0"};
  const auto number = [&](const char* name, std::optional<double>& value, const char* text,
                          const NumberRule& rule) {
    addNumberOption(command, name, value, text, rule)->group("Sensor");
  };
  number("--scale-x", settings.scaleX, "Sensor columns per image column [1]", scale);
  number("--origin-x", settings.originX, "Sensor column of image column 0 [0]", {});
  number("--scale-z", settings.scaleZ,
         "Sensor rows per step of the range values [1/16, of 8-bit values and floats 1]", scale);
  number("--origin-z", settings.originZ, "Sensor row of range value 0 [0]", {});
}

void addSensorOptions(CLI::App& command, scan::SensorSettings& settings) {
  addRangeOptions(command, settings);
  const NumberRule size{isSize, "must be 1 to 65535"};
  addNumberOption(command, "--sensor-width", settings.width,
                  "Columns of the sensor region [up to the edge of the sensor]", size)
      ->group("Sensor");
  addNumberOption(command, "--sensor-height", settings.height,
                  "Rows of the sensor region [up to the edge of the sensor]", size)
      ->group("Sensor");
  command
      .add_option("--sensor", settings.sidecar,
                  "JSON file whose object \"sensor\" has scaleX, originX, scaleZ, originZ, width, "
                  "height, and \"rows\" scaleY, originY; by default IMAGE.json where that exists")
      ->type_name("FILE")
      ->group("Sensor");
}

void addCompressOption(CLI::App& command, std::optional<io::Compression>& compression) {
  static const std::map<std::string, io::Compression> names = {
      {"none", io::Compression::kNone},
      {"deflate", io::Compression::kDeflate},
      {"zstd", io::Compression::kZstd}};
  command
      .add_option_function<std::string>(
          "--compress", [&](const std::string& name) { compression = names.at(name); },
          "Compress a .tif; fewer programs read zstd [none]")
      ->check(CLI::IsMember(names))
      ->type_name("METHOD");
}

void addRowOptions(CLI::App& command, RowOptions& options) {
  command
      .add_option("--rows", options.rows,
                  "Process rows A to B - 1 only, counted from 0; A or B may be left out")
      ->type_name("A:B");
  command
      .add_option("--block", options.block,
                  "Hand at most N rows at a time to a thread; results do not depend on it")
      ->check(CLI::Range(1, 1 << 20))
      ->type_name("N");
}

scan::RowBlocks resolveRows(const RowOptions& options, const io::ImageShape& image, int columns) {
  scan::RowBlocks blocks{0, image.height, options.block};
  if (!options.rows.empty()) {
    const char* const begin = options.rows.data();
    const char* const end = begin + options.rows.size();
    const char* const colon = std::find(begin, end, ':');
    if (colon == end) refuseRows(options, image);
    blocks.first = parseRow(begin, colon, 0, options, image);
    blocks.end = parseRow(colon + 1, end, image.height, options, image);
    if (blocks.first < 0 || blocks.first >= blocks.end || blocks.end > image.height) {
      refuseRows(options, image);
    }
  }
  const int widest = std::max(image.width, columns);
  const int most = std::max(1, kMostBlockPixels / widest);
  blocks.block =
      blocks.block == 0 ? std::max(1, kBlockPixels / widest) : std::min(blocks.block, most);
  return blocks;
}

void addYOptions(CLI::App& command, scan::RowSettings& settings) {
  CLI::Option* scale = addNumberOption(
      command, "--y-scale", settings.scale,
      "Distance of neighbouring rows; below 0 where Y falls [what the sidecar says, else rows are "
      "counted]",
      {isScale, "must not be 0"});
  CLI::Option* offset = addNumberOption(command, "--y-offset", settings.origin, "Y of row 0 [0]");
  command
      .add_option("--y-file", settings.positions,
                  "File with the Y of every row of the image, one a line")
      ->type_name("FILE")
      ->excludes(scale)
      ->excludes(offset);
}

void requireOneStandardInput(const std::vector<std::string>& inputs) {
  if (std::count(inputs.begin(), inputs.end(), "-") < 2) return;
  throw CLI::ValidationError("-", "only one of the inputs can be standard input");
}

void tellOfReplacedMembers(const scan::SensorSettings& sensor, const scan::RowSettings& rows,
                           const scan::ScanSidecar& sidecar) {
  std::string text;
  const auto compare = [&](const char* name, const std::optional<double>& option,
                           const std::optional<double>& member) {
    if (!option || !member || *option == *member) return;
    text += fmt::format("{}{} {} replaces {}", text.empty() ? "" : ", ", name, *option, *member);
  };
  compare("--scale-x", sensor.scaleX, sidecar.scaleX);
  compare("--origin-x", sensor.originX, sidecar.originX);
  compare("--scale-z", sensor.scaleZ, sidecar.scaleZ);
  compare("--origin-z", sensor.originZ, sidecar.originZ);
  compare("--sensor-width", sensor.width, sidecar.width);
  compare("--sensor-height", sensor.height, sidecar.height);
  compare("--y-scale", rows.scale, sidecar.scaleY);
  compare("--y-offset", rows.origin, sidecar.originY);
  const bool hasRows = sidecar.scaleY || !sidecar.positions.empty();
  const bool otherKind = rows.positions.empty() ? rows.scale && !sidecar.positions.empty()
                                                : hasRows && rows.positions != sidecar.positions;
  if (otherKind) {
    text += fmt::format("{}{} replaces its rows", text.empty() ? "" : ", ",
                        rows.positions.empty() ? "--y-scale" : "--y-file");
  }
  if (text.empty()) return;
  std::fprintf(stderr, "planex: %s: %s\n", io::inOneLine(sidecar.path).c_str(), text.c_str());
}

void warnOfCountedRows(const scan::YPositions& y, bool aligned, const std::string& range,
                       const Context& context) {
  if (y.isKnown()) return;
  const std::string taken = aligned ? fmt::format(", taken as 1 {} apart", context.unit) : "";
  std::fprintf(stderr,
               "planex: %s: Y counts rows%s, because nothing tells their distance; give "
               "--y-scale\n",
               io::inOneLine(io::Failure::nameOf(range)).c_str(), taken.c_str());
}

}  // namespace planex::tools
