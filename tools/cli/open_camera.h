#pragma once

#include <planex/acquisition/camera_frames.h>

#include <memory>
#include <vector>

namespace planex::tools {

/// @{
/// CameraFrames::open() and listCameras(); a Failure where planex was built without them.
std::unique_ptr<acquisition::CameraFrames> openCamera(const acquisition::CameraSettings& settings);
std::vector<acquisition::CameraIdentity> findCameras();
/// @}

}  // namespace planex::tools
