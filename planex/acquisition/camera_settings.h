#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace planex::acquisition {

/// A feature of a camera by the name that GenICam gives it, and what it is to be: "ExposureTime",
/// "300".
struct FeatureValue {
  std::string name;   ///< of the feature
  std::string value;  ///< a number, true or false, the name of an entry, or a text
};

/// The part of the sensor that the camera delivers, in pixels of its frames.
struct FrameRegion {
  int width = 0;   ///< columns
  int height = 0;  ///< rows
  int x = 0;       ///< first column
  int y = 0;       ///< first row
};

/// What becomes of frames that the camera has counted and that did not arrive.
enum class LostFrames {
  kMark,  ///< frames of zeros stand in for them
  kSkip,  ///< they are counted
  kFail,  ///< they end the acquisition
};

/// How a camera is set and read.
struct CameraSettings {
  std::string camera;  ///< an id of listCameras(), an IP address, or a serial number
  /// Set one after the other, before all that follows.
  std::vector<FeatureValue> features;
  std::optional<FrameRegion> region;  ///< nothing: as the camera is set; likewise below
  std::optional<double> frameRate;    ///< frames a second
  std::optional<double> exposure;     ///< microseconds
  std::string trigger;                ///< what starts a frame, "Line1"; empty: as the camera is set

  int buffers = 0;     ///< frames that may wait; 0: those of a second, and no more than 1 GiB
  double timeout = 5;  ///< seconds without a frame that end the acquisition
  LostFrames lost = LostFrames::kMark;  ///< what stands in for frames that did not arrive

  /// @{
  /// Where FrameNote::y comes from: one of them, or neither.
  std::optional<double> lengthPerSecond;  ///< y = this times the time since the first frame
  std::string chunk;                      ///< y = lengthPerTick times this chunk of every frame
  double lengthPerTick = 1;
  /// @}

  std::optional<std::int64_t> frames;  ///< ends the acquisition, lost ones that are marked included
  std::optional<double> seconds;       ///< since the first frame; likewise
  /// Asked ten times a second or more often, on the thread that reads; true ends the acquisition.
  std::function<bool()> isStopped;
};

}  // namespace planex::acquisition
