#include "planex/acquisition/camera_list.h"

#include "planex/acquisition/aravis.h"

namespace planex::acquisition {

std::vector<CameraIdentity> listCameras() {
  arv_update_device_list();
  std::vector<CameraIdentity> cameras(arv_get_n_devices());
  for (unsigned i = 0; i < cameras.size(); ++i) {
    cameras[i] = {textOf(arv_get_device_id(i)),      textOf(arv_get_device_vendor(i)),
                  textOf(arv_get_device_model(i)),   textOf(arv_get_device_serial_nbr(i)),
                  textOf(arv_get_device_address(i)), textOf(arv_get_device_protocol(i))};
  }
  return cameras;
}

}  // namespace planex::acquisition
