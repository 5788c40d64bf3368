// In place of open_camera.cc, where the library that reads cameras was not built.

#include <planex/io/failure.h>

#include "tools/cli/open_camera.h"

namespace planex::tools {
namespace {

[[noreturn]] void refuse() {
  throw io::Failure(
      "planex was built without cameras; build it with libaravis-dev and libusb-1.0-0-dev "
      "installed");
}

}  // namespace

std::unique_ptr<acquisition::CameraFrames> openCamera(
    const acquisition::CameraSettings& /*settings*/) {
  refuse();
}

std::vector<acquisition::CameraIdentity> findCameras() { refuse(); }

}  // namespace planex::tools
