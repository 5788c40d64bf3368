#include "tools/cli/open_camera.h"

#include <planex/acquisition/camera_list.h>

namespace planex::tools {

std::unique_ptr<acquisition::CameraFrames> openCamera(const acquisition::CameraSettings& settings) {
  return acquisition::CameraFrames::open(settings);
}

std::vector<acquisition::CameraIdentity> findCameras() { return acquisition::listCameras(); }

}  // namespace planex::tools
