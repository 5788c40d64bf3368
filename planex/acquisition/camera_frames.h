#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "planex/acquisition/camera_list.h"
#include "planex/acquisition/camera_settings.h"
#include "planex/infra/export.h"
#include "planex/io/frame_source.h"
#include "planex/model/sensor_region.h"

namespace planex::acquisition {

/// How an acquisition goes.
struct CameraStatistics {
  std::int64_t frames = 0;  ///< that arrived
  std::int64_t lost = 0;    ///< that the camera has counted and that did not arrive
  int freeBuffers = 0;      ///< for frames to come; those of 0 are lost
  int buffers = 0;          ///< in all
};

/// Frames of a GenICam camera, GigE Vision or USB3 Vision, as they arrive.
///
/// They wait in buffers that another thread fills; the first read() starts the camera. The end,
/// where read() gives 0, comes with the number of frames or the time that the settings tell, with a
/// stop, and with a fault(): the camera is gone, sends nothing, or has lost frames that it must
/// not. What was read before is good then. A fault before the first frame is a Failure.
///
/// Pixels of Mono8 are UINT8, those of Mono10, Mono10p, Mono12, Mono12p and Mono16 UINT16; others
/// are refused. A lost frame is one whose number is missing between those of frames that are whole.
class PLANEX_EXPORT CameraFrames : public io::FrameSource {
 public:
  /// Opens a camera and sets it. A Failure, before anything starts, for a camera that is not there
  /// or is controlled by another program, for features that it does not have, and values that it
  /// does not take.
  static std::unique_ptr<CameraFrames> open(const CameraSettings& settings);

  ~CameraFrames() override;

  /// Which camera it is.
  virtual const CameraIdentity& identity() const = 0;
  /// As GenICam calls it, "Mono8".
  virtual const std::string& pixelFormat() const = 0;
  /// The features that were set, with the values that the camera tells then.
  virtual const std::vector<FeatureValue>& features() const = 0;
  /// Where frames lie on the sensor: scaleX and originX are for their columns, scaleZ and originZ
  /// for their rows, or the values of ranges. From offsets, sizes, binning, decimation and
  /// mirroring, and the scale that a camera tells of its ranges.
  virtual const datafusion::planex::SensorRegion& sensor() const = 0;
  /// Whether the camera finds the laser line itself: each row of its frames is a profile of ranges,
  /// in which 0 stands for no measurement.
  virtual bool hasRanges() const = 0;
  /// The type of the intensities that come with ranges; IMAGE_TYPE_INVALID without.
  virtual cmnalg::ImageType intensityType() const = 0;

  /// Reads ranges together with their intensities, as read() does for frames alone.
  /// @param intensities as many pixels of intensityType() as there are ranges; null: not wanted
  virtual int readRanges(int most, void* ranges, void* intensities, io::FrameNote* notes) = 0;

  /// How the acquisition goes; on any thread.
  virtual CameraStatistics statistics() const = 0;
  /// Why it has ended early; empty where it has not.
  virtual const std::string& fault() const = 0;
  /// What may help against lost frames, as far as the settings of this computer tell; or empty.
  virtual std::string advice() const = 0;

 protected:
  /// Announces nothing yet.
  explicit CameraFrames(std::string name);
};

}  // namespace planex::acquisition
