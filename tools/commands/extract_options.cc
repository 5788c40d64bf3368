#include "tools/commands/extract_options.h"

#include <fmt/format.h>
#include <planex/io/failure.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

namespace planex::tools {
namespace {

using datafusion::planex::LineChoice;
using datafusion::planex::LineMethod;
using datafusion::planex::LineSettings;

/// The rule of --pick.
void choose(const std::string& text, LineSettings& settings) {
  const std::map<std::string, LineChoice> names = {{"strongest", LineChoice::STRONGEST},
                                                   {"first", LineChoice::FIRST},
                                                   {"last", LineChoice::LAST}};
  const auto named = names.find(text);
  if (named != names.end()) {
    settings.choice = named->second;
    return;
  }
  constexpr const char* kNearest = "nearest:";
  const std::size_t length = std::char_traits<char>::length(kNearest);
  const char* const end = text.data() + text.size();
  if (text.compare(0, length, kNearest) == 0) {
    const auto row = std::from_chars(text.data() + length, end, settings.nearestRow);
    settings.choice = LineChoice::NEAREST;
    if (row.ec == std::errc() && row.ptr == end && settings.nearestRow >= 0) return;
  }
  throw CLI::ValidationError("--pick",
                             "'" + text + "' is neither strongest, first, last nor nearest:ROW");
}

/// The greatest level of frames with so many bits.
double fullScale(const ExtractOptions& options, const io::ImageShape& shape,
                 std::optional<int> formatBits) {
  const int type = shape.type == cmnalg::IMAGE_TYPE_UINT8 ? 8 : 16;
  const double bits = options.bits.value_or(std::min(formatBits.value_or(type), type));
  if (bits > type) {
    throw io::Failure(options.frames.front(),
                      fmt::format("has {} bits a pixel; give no more with --bits", type));
  }
  return std::ldexp(1.0, static_cast<int>(bits)) - 1.0;
}

void addLineOptions(CLI::App& command, ExtractOptions& options) {
  constexpr const char* kGroup = "Line";
  const auto number = [&](const char* name, std::optional<double>& value, const char* text,
                          const char* type, const NumberRule& rule) {
    addNumberOption(command, name, value, text, rule)->type_name(type)->group(kGroup);
  };
  const NumberRule width{[](double value) { return value >= 1 && value <= 60; }, "must be 1 to 60"};
  const NumberRule limit{[](double value) { return value >= 0 && value <= 240; },
                         "must be 0 to 240"};
  const NumberRule above{[](double value) { return value > 0; }, "must be above 0"};
  const NumberRule positive{[](double value) { return value >= 0; }, "must not be below 0"};
  number("--line-width", options.lineWidth, "Width of the line at half height [5]", "ROWS", width);
  number("--threshold", options.threshold,
         "Levels by which a line outshines what is above and below it, on the mean of 1.3 line "
         "widths [4 % of full scale]",
         "LEVELS", above);
  const std::map<std::string, LineMethod> methods = {{"fir", LineMethod::DERIVATIVE},
                                                     {"cog", LineMethod::CENTRE_OF_GRAVITY}};
  command
      .add_option_function<std::string>(
          "--method",
          [&options, methods](const std::string& name) { options.method = methods.at(name); },
          "fir: zero crossing of a derivative filter [default]; cog: centre of gravity, better "
          "under speckle")
      ->check(CLI::IsMember({"fir", "cog"}))
      ->type_name("METHOD")
      ->group(kGroup);
  command
      .add_option("--pick", options.pick,
                  "Which line of several: strongest [default], first, last, or nearest:ROW")
      ->type_name("RULE")
      ->group(kGroup);
  command.add_option("--band", options.band, "Look in rows A to B - 1 only")
      ->type_name("A:B")
      ->group(kGroup);
  number("--min-width", options.leastWidth, "Narrower lines are none [1.2]: hot pixels", "ROWS",
         limit);
  number("--max-width", options.mostWidth, "Wider lines are none [4 line widths]", "ROWS", limit);
  command
      .add_option("--dark", options.dark,
                  "Frame without the laser, taken off every frame, not below 0")
      ->type_name("IMAGE")
      ->group(kGroup);
  command.add_flag("--transpose", options.transpose, "The line runs along the columns of frames")
      ->group(kGroup);
  number("--gain", options.gain, "Variance of shot noise a level, for --deviation", "LEVELS",
         positive);
  number("--read-noise", options.readNoise, "Noise of a dark pixel, for --deviation", "LEVELS",
         positive);
}

void addFrameOptions(CLI::App& command, ExtractOptions& options) {
  constexpr const char* kGroup = "Frames";
  command
      .add_option("--frames", options.part,
                  "Take frames A to B - 1 only, counted from 0; A or B may be left out")
      ->type_name("A:B")
      ->group(kGroup);
  command
      .add_option("--raw", options.raw,
                  "Files have no headings: 2560x1024:mono8, or mono10, mono12, mono16, mono10p, "
                  "mono12p")
      ->type_name("WxH:FORMAT")
      ->group(kGroup);
  addNumberOption(command, "--bits", options.bits,
                  "Used bits of a pixel [those of the camera's format, of --raw, or all]",
                  {[](double bits) { return bits >= 1 && bits <= 16 && std::floor(bits) == bits; },
                   "must be 1 to 16"})
      ->type_name("N")
      ->group(kGroup);
}

void addPlaceOptions(CLI::App& command, ExtractOptions& options) {
  const auto number = [&](const char* name, std::optional<double>& value, const char* text,
                          const NumberRule& rule = {}) {
    addNumberOption(command, name, value, text, rule)->group("Place");
  };
  const NumberRule scale{[](double value) { return value != 0; }, "must not be 0"};
  const NumberRule size{
      [](double value) { return value >= 1 && value <= 65535 && std::floor(value) == value; },
      "must be a whole number from 1 to 65535"};
  number("--scale-x", options.scaleX, "Sensor columns a column of the frames [1]", scale);
  number("--origin-x", options.originX, "Sensor column of their first column [0]");
  number("--scale-z", options.scaleZ, "Sensor rows a row of the frames [1]", scale);
  number("--origin-z", options.originZ, "Sensor row of their first row [0]");
  number("--sensor-width", options.sensorWidth, "Sensor columns of the region [the frames']", size);
  number("--sensor-height", options.sensorHeight, "Sensor rows of the region [the frames']", size);
  number("--y-scale", options.scaleY, "Distance of neighbouring profiles, a length", scale);
  number("--y-offset", options.originY, "Y of the first profile [0]");
}

}  // namespace

void addExtractOptions(CLI::App& command, ExtractOptions& options) {
  addLineOptions(command, options);
  addFrameOptions(command, options);
  addPlaceOptions(command, options);
}

Part partOf(const std::string& option, const std::string& text) {
  Part part;
  if (text.empty()) return part;
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  const char* const colon = std::find(begin, end, ':');
  const auto parse = [&](const char* from, const char* to, std::int64_t& number) {
    if (from == to) return true;
    const auto result = std::from_chars(from, to, number);
    return result.ec == std::errc() && result.ptr == to;
  };
  if (colon == end || !parse(begin, colon, part.first) || !parse(colon + 1, end, part.end) ||
      part.first < 0 || part.first >= part.end) {
    throw CLI::ValidationError(option, "'" + text + "' is no part A:B");
  }
  return part;
}

scan::FrameExtraction extractionOf(const ExtractOptions& options, const io::ImageShape& shape,
                                   std::optional<int> formatBits) {
  scan::FrameExtraction extraction;
  extraction.transpose = options.transpose;
  LineSettings& settings = extraction.settings;
  settings.method = options.method;
  settings.lineWidth = options.lineWidth.value_or(settings.lineWidth);
  settings.fullScale = fullScale(options, shape, formatBits);
  settings.threshold = options.threshold.value_or(0);
  settings.minimumWidth = options.leastWidth.value_or(settings.minimumWidth);
  settings.maximumWidth = options.mostWidth.value_or(0);
  settings.gain = options.gain.value_or(0);
  settings.readNoise = options.readNoise.value_or(0);
  choose(options.pick, settings);
  const Part band = partOf("--band", options.band);
  const int rows = extraction.shapeOf(shape).height;
  if (!options.band.empty()) {
    if (band.first >= rows) {
      throw io::Failure(options.frames.front(),
                        fmt::format("has {} rows, none of them in --band {}", rows, options.band));
    }
    settings.firstRow = static_cast<int>(band.first);
    settings.endRow = static_cast<int>(std::min<std::int64_t>(band.end, rows));
  }
  extraction.intensity = !options.names.intensity.empty();
  extraction.width = true;
  extraction.quality = !options.names.quality.empty();
  extraction.deviation = !options.names.deviation.empty();
  return extraction;
}

}  // namespace planex::tools
