#include "tools/cli/camera_options.h"

#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/number_text.h>

#include <charconv>
#include <limits>

#include "tools/cli/open_camera.h"
#include "tools/cli/stop_request.h"
#include "tools/cli/warnings.h"

namespace planex::tools {
namespace {

using acquisition::CameraSettings;
using acquisition::LostFrames;

constexpr const char* kGroup = "Camera";
constexpr const char* kPrefix = "camera:";
constexpr int kMostBuffers = 100000;

acquisition::FeatureValue featureOf(const std::string& text) {
  const std::size_t sign = text.find('=');
  if (sign == std::string::npos || sign == 0 || sign + 1 == text.size()) {
    throw CLI::ValidationError("--set", "'" + text + "' is not NAME=VALUE");
  }
  return {text.substr(0, sign), text.substr(sign + 1)};
}

acquisition::FrameRegion regionOf(const std::string& text) {
  acquisition::FrameRegion region;
  int* const numbers[] = {&region.width, &region.height, &region.x, &region.y};
  const char signs[] = {'x', '+', '+', '\0'};
  const char* at = text.data();
  const char* const end = at + text.size();
  for (int i = 0; i < 4; ++i) {
    const auto number = std::from_chars(at, end, *numbers[i]);
    at = number.ptr;
    if (number.ec != std::errc() || *numbers[i] < 0) break;
    if (at == end && (i == 1 || i == 3)) return region;  // without a place it begins at 0
    if (at == end || *at++ != signs[i]) break;
  }
  throw CLI::ValidationError("--region", "'" + text + "' is not WIDTHxHEIGHT or WIDTHxHEIGHT+X+Y");
}

void setPlaces(const std::string& text, CameraSettings& settings) {
  const std::size_t first = text.find(':'), last = text.rfind(':');
  const std::string kind = text.substr(0, first);
  const auto scale =
      last == std::string::npos ? std::nullopt : io::parseNumber(text.substr(last + 1));
  if (kind == "time" && first == last && scale) {
    settings.lengthPerSecond = scale;
  } else if (kind == "chunk" && last > first + 1 && scale) {
    settings.chunk = text.substr(first + 1, last - first - 1);
    settings.lengthPerTick = *scale;
  } else {
    throw CLI::ValidationError("--y-from",
                               "'" + text + "' is neither time:SPEED nor chunk:NAME:LENGTH");
  }
}

CameraSettings settingsOf(const CameraOptions& options, const std::string& source) {
  CameraSettings settings;
  settings.camera = source.substr(std::string(kPrefix).size());
  for (const std::string& feature : options.features) {
    settings.features.push_back(featureOf(feature));
  }
  if (!options.region.empty()) settings.region = regionOf(options.region);
  if (!options.yFrom.empty()) setPlaces(options.yFrom, settings);
  settings.frameRate = options.rate;
  settings.exposure = options.exposure;
  settings.trigger = options.trigger;
  settings.buffers = options.buffers;
  if (options.timeout) settings.timeout = *options.timeout;
  settings.lost = options.lost == "mark"   ? LostFrames::kMark
                  : options.lost == "skip" ? LostFrames::kSkip
                                           : LostFrames::kFail;
  settings.frames = options.frames;
  settings.seconds = options.time;
  settings.isStopped = StopRequest::isMade;
  return settings;
}

}  // namespace

void addCameraOptions(CLI::App& command, CameraOptions& options) {
  const NumberRule positive{[](double value) { return value > 0; }, "must be above 0"};
  const auto number = [&](const char* name, std::optional<double>& value, const char* text) {
    addNumberOption(command, name, value, text, positive)->group(kGroup);
  };
  command.add_option("-n,--count", options.frames, "Frames to take [until Ctrl-C]")
      ->check(CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()))
      ->type_name("N")
      ->group(kGroup);
  number("--time", options.time, "Seconds to take frames for [until Ctrl-C]");
  command
      .add_option("--set", options.features,
                  "Feature of the camera by its GenICam name, such as Gain=3; may be repeated")
      ->allow_extra_args(false)
      ->type_name("NAME=VALUE")
      ->group(kGroup);
  command
      .add_option("--region", options.region,
                  "Part of the frames: WIDTHxHEIGHT or WIDTHxHEIGHT+X+Y")
      ->type_name("REGION")
      ->group(kGroup);
  number("--rate", options.rate, "Frames a second");
  number("--exposure", options.exposure, "Exposure in microseconds");
  command.add_option("--trigger", options.trigger, "What starts each frame, such as Line1")
      ->type_name("SOURCE")
      ->group(kGroup);
  command
      .add_option("--buffers", options.buffers,
                  "Frames that may wait [those of a second, at most 1 GiB]")
      ->check(CLI::Range(2, kMostBuffers))
      ->type_name("N")
      ->group(kGroup);
  number("--timeout", options.timeout, "Seconds without a frame that end it as a failure [5]");
  command
      .add_option(
          "--lost", options.lost,
          "Lost frames: mark stands empty ones in for them, skip leaves them out, fail ends")
      ->check(CLI::IsMember({"mark", "skip", "fail"}))
      ->capture_default_str()
      ->type_name("RULE")
      ->group(kGroup);
  command
      .add_option("--y-from", options.yFrom,
                  "Where frames were taken: time:SPEED, lengths a second, or chunk:NAME:LENGTH, "
                  "length a tick")
      ->type_name("SOURCE")
      ->group(kGroup);
}

bool isCamera(const std::string& source) { return source.rfind(kPrefix, 0) == 0; }

void requireNoCameraOptions(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_group() == kGroup && option->count() > 0) {
      throw CLI::ValidationError(option->get_name(), "needs a camera, camera:NAME");
    }
  }
}

std::unique_ptr<acquisition::CameraFrames> openCamera(const CameraOptions& options,
                                                      const std::string& source) {
  return openCamera(settingsOf(options, source));
}

std::string liveText(const acquisition::CameraStatistics& statistics) {
  return fmt::format("{} lost, {} of {} buffers free", statistics.lost, statistics.freeBuffers,
                     statistics.buffers);
}

void addCamera(const io::JsonObject& parent, const acquisition::CameraFrames& camera) {
  const io::JsonObject object = parent.addObject("camera");
  object.add("maker", camera.identity().maker);
  object.add("model", camera.identity().model);
  object.add("serial", camera.identity().serial);
  object.add("pixelFormat", camera.pixelFormat());
  object.add("lost", static_cast<double>(camera.statistics().lost));
  const io::JsonObject features = object.addObject("features");
  for (const auto& [name, value] : camera.features()) features.add(name.c_str(), value);
}

void tellHowItEnded(const acquisition::CameraFrames& camera) {
  if (const std::int64_t lost = camera.statistics().lost; lost > 0) {
    const std::string advice = camera.advice();
    warn(camera.name(),
         fmt::format("{} frames are lost{}{}", lost, advice.empty() ? "" : "; ", advice));
  }
  if (!camera.fault().empty()) {
    throw io::Failure(camera.name(), camera.fault() + "; what came before is kept");
  }
}

}  // namespace planex::tools
