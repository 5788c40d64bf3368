#pragma once

#include <string>
#include <vector>

#include "planex/infra/export.h"

namespace planex::acquisition {

/// What tells a camera from others. Texts are as the camera gives them; some may be empty.
struct CameraIdentity {
  std::string id;        ///< names it for CameraSettings
  std::string maker;     ///< of the camera
  std::string model;     ///< as its maker calls it
  std::string serial;    ///< number
  std::string address;   ///< IP or USB address
  std::string protocol;  ///< "GigEVision", "USB3Vision"
};

/// Looks for the GenICam cameras that answer on the networks and USB buses of this computer, which
/// takes about a second. Cameras that another program controls are among them.
PLANEX_EXPORT std::vector<CameraIdentity> listCameras();

}  // namespace planex::acquisition
