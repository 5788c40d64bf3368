#pragma once

#include <planex/acquisition/camera_frames.h>
#include <planex/io/json.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/options.h"

namespace planex::tools {

/// What the options of the group "Camera" were given: -n, --time, --set, --region, --rate,
/// --exposure, --trigger, --buffers, --timeout, --lost and --y-from.
struct CameraOptions {
  std::optional<std::int64_t> frames;
  std::optional<double> time, rate, exposure, timeout;
  std::vector<std::string> features;
  std::string region, trigger, yFrom, lost = "mark";
  int buffers = 0;
};

/// Adds them to a command.
void addCameraOptions(CLI::App& command, CameraOptions& options);

/// Whether the name of a source is that of a camera, "camera:NAME".
bool isCamera(const std::string& source);

/// Refuses options of the group "Camera" that were given, where the source is none.
void requireNoCameraOptions(const CLI::App& command);

/// Opens the camera of a source "camera:NAME", which a StopRequest ends. Throws
/// CLI::ValidationError for options that are written wrongly, and a Failure for what the camera
/// refuses, and where planex was built without cameras.
std::unique_ptr<acquisition::CameraFrames> openCamera(const CameraOptions& options,
                                                      const std::string& source);

/// "3 lost, 40 of 50 buffers free": what the live line says behind the rate.
std::string liveText(const acquisition::CameraStatistics& statistics);

/// Adds the member "camera" with maker, model, serial, pixel format, lost frames and
/// features.
void addCamera(const io::JsonObject& parent, const acquisition::CameraFrames& camera);

/// Behind the outputs: tells of lost frames on standard error with what may help, and throws a
/// Failure where a fault has ended the acquisition.
void tellHowItEnded(const acquisition::CameraFrames& camera);

}  // namespace planex::tools
