#include "tools/support/options.h"

#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

#include "tools/support/failure.h"
#include "tools/support/json.h"
#include "tools/support/model_file.h"
#include "tools/support/utf8.h"

namespace planex_tools {
namespace {

constexpr std::size_t kLongestUnit = 32;  // it stands in headers of a line

std::optional<double> parseDecimal(std::string_view text) {
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

/// The sidecar's object "sensor"; null when there is neither a file nor an object in it.
class Sidecar {
 public:
  Sidecar(const SensorOptions& options, const std::string& image)
      : path_(!options.sidecar.empty() ? options.sidecar
              : image.empty()          ? image
                                       : image + ".json") {
    if (path_.empty() || (options.sidecar.empty() && access(path_.c_str(), F_OK) != 0)) return;
    json_.reset(cJSON_Parse(readTextFile(path_).c_str()));
    if (json_ == nullptr) throw Failure(path_, "is not JSON; correct it or name another --sensor");
    sensor_ = cJSON_GetObjectItemCaseSensitive(json_.get(), "sensor");
    if (sensor_ == nullptr ? !options.sidecar.empty() : !cJSON_IsObject(sensor_)) {
      throw Failure(path_, "has no object \"sensor\"; add one or name another --sensor");
    }
  }

  /// A number by which positions are multiplied; see number().
  double scale(const std::optional<double>& option, const char* name, double otherwise) const {
    const double value = number(option, name, otherwise);
    if (value == 0 && !option) {
      throw Failure(path_, std::string("sensor.") + name + " is 0; correct it");
    }
    return value;
  }

  /// The file where it gives the number, else the model.
  const std::string& sourceOf(const char* name, const std::string& model) const {
    return cJSON_HasObjectItem(sensor_, name) != 0 ? path_ : model;
  }

  /// The option, else the member, else the default.
  double number(const std::optional<double>& option, const char* name, double otherwise) const {
    if (option) return *option;
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(sensor_, name);
    if (item == nullptr) {
      if (cJSON_HasObjectItem(sensor_, name) == 0) return otherwise;
      throw Failure(path_, std::string("sensor.") + name + " is not spelt so; correct it");
    }
    if (!cJSON_IsNumber(item) || !std::isfinite(item->valuedouble)) {
      throw Failure(path_, std::string("sensor.") + name + " is not a number; correct it");
    }
    return item->valuedouble;
  }

 private:
  std::string path_;
  Json json_;
  const cJSON* sensor_ = nullptr;
};

/// What is left of a sensor of that size from the origin on, in the direction of the scale.
double remaining(double scale, double origin, int sensorSize) {
  return std::floor(scale < 0 ? origin : sensorSize - origin);
}

/// A size from the option, from the sidecar, or what is left of the sensor.
std::uint16_t regionSize(const Sidecar& sidecar, const std::optional<double>& option,
                         const std::string& name, double left, const std::string& model) {
  const double size = sidecar.number(option, name.c_str(), left);
  if (size >= 1 && size <= 65535 && std::floor(size) == size) {
    return static_cast<std::uint16_t>(size);
  }
  if (option) throw CLI::ValidationError("--sensor-" + name, "must be 1 to 65535");
  const std::string& source = sidecar.sourceOf(name.c_str(), model);
  if (source != model) throw Failure(source, "sensor." + name + " is not 1 to 65535; correct it");
  throw Failure(model, "its sensor has no " + std::string(name == "width" ? "columns" : "rows") +
                           " from the origin on; correct --origin-" +
                           (name == "width" ? "x" : "z") + " or give --sensor-" + name);
}

}  // namespace

void addQuietOption(CLI::App& command, Context& context) {
  command.add_flag("-q,--quiet", context.quiet, "Show neither progress nor summary");
}

void addForceOption(CLI::App& command, Context& context) {
  command.add_flag("-f,--force", context.force, "Replace outputs that exist");
}

void addThreadsOption(CLI::App& command, Context& context) {
  command
      .add_option("--threads", context.threads,
                  "Use at most N threads; results do not depend on it")
      ->check(CLI::Range(1, 4096))
      ->type_name("N");
}

void addUnitOption(CLI::App& command, Context& context) {
  const auto isName = [](const std::string& unit) {
    const auto printable = [](char c) { return static_cast<unsigned char>(c) >= ' ' && c != 0x7F; };
    const bool good = !unit.empty() && unit.size() <= kLongestUnit &&
                      std::all_of(unit.begin(), unit.end(), printable) && asUtf8(unit) == unit;
    return std::string(good ? "" : "is no short printable name");
  };
  command.add_option("--unit", context.unit, "Length unit of the model, written into every output")
      ->check(isName)
      ->capture_default_str()
      ->type_name("UNIT");
}

void applyThreads(const Context& context) {
  if (context.threads > 0) omp_set_num_threads(context.threads);
}

std::optional<double> parseNumber(const std::string& text) {
  const std::string_view all = text;
  const std::size_t slash = all.find('/');
  std::optional<double> value = parseDecimal(all.substr(0, slash));
  if (value && slash != std::string_view::npos) {
    const std::optional<double> divisor = parseDecimal(all.substr(slash + 1));
    value = divisor ? std::optional<double>(*value / *divisor) : std::nullopt;
  }
  return value && std::isfinite(*value) ? value : std::nullopt;
}

CLI::Option* addNumberOption(CLI::App& command, const std::string& names,
                             std::optional<double>& value, const std::string& description) {
  const auto read = [&value, names](const std::string& text) {
    value = parseNumber(text);
    if (!value) throw CLI::ValidationError(names, "'" + text + "' is not a number");
  };
  return command.add_option_function<std::string>(names, read, description)->type_name("NUMBER");
}

void addSensorOptions(CLI::App& command, SensorOptions& options) {
  const auto number = [&](const char* name, std::optional<double>& value, const char* text) {
    addNumberOption(command, name, value, text)->group("Sensor");
  };
  number("--scale-x", options.scaleX, "Sensor columns per image column [1]");
  number("--origin-x", options.originX, "Sensor column of image column 0 [0]");
  number("--scale-z", options.scaleZ, "Sensor rows per step of the range values [1/16]");
  number("--origin-z", options.originZ, "Sensor row of range value 0 [0]");
  number("--sensor-width", options.width,
         "Columns of the sensor region [up to the edge of the sensor]");
  number("--sensor-height", options.height,
         "Rows of the sensor region [up to the edge of the sensor]");
  command
      .add_option("--sensor", options.sidecar,
                  "JSON file whose object \"sensor\" has scaleX, originX, scaleZ, originZ, width, "
                  "height; by default IMAGE.json where that exists")
      ->type_name("FILE")
      ->group("Sensor");
}

SensorTraits resolveSensor(const SensorOptions& options, const std::string& image,
                           const datafusion::planex::CalibrationModel& model,
                           const std::string& modelName) {
  const Sidecar sidecar(options, image);
  SensorTraits traits{};
  traits.scaleX = sidecar.scale(options.scaleX, "scaleX", 1);
  traits.originX = sidecar.number(options.originX, "originX", 0);
  traits.scaleZ = sidecar.scale(options.scaleZ, "scaleZ", 1.0 / 16);
  traits.originZ = sidecar.number(options.originZ, "originZ", 0);
  if (traits.scaleX == 0) throw CLI::ValidationError("--scale-x", "must not be 0");
  if (traits.scaleZ == 0) throw CLI::ValidationError("--scale-z", "must not be 0");
  const double columns = remaining(traits.scaleX, traits.originX, model.SensorSize.x);
  const double rows = remaining(traits.scaleZ, traits.originZ, model.SensorSize.y);
  traits.width = regionSize(sidecar, options.width, "width", columns, modelName);
  traits.height = regionSize(sidecar, options.height, "height", rows, modelName);
  return traits;
}

}  // namespace planex_tools
