// The live cameras the SDK can open: V4L2 stereo cameras and the virtual camera.
#include <fstream>

#include "core/internal/error.h"
#include "input/internal/frame_source.h"

namespace pv::internal {

std::vector<LiveDevice> listLiveDevices() {
  std::vector<LiveDevice> devices;
  const std::string virtual_path = virtualCameraPath();
  if (!virtual_path.empty()) {
    KtrReader reader;
    if (reader.open(virtual_path) == ERROR_CODE::SUCCESS) {
      LiveDevice d;
      d.path = virtual_path;
      d.serial_number = reader.metadata().serial_number;
      d.is_virtual = true;
      devices.push_back(d);
    }
  }
  return devices;
}

std::unique_ptr<FrameSource> openV4l2Source(const LiveDevice& device, int, int, int, ERROR_CODE& err) {
  err = fail(ERROR_CODE::CAMERA_NOT_DETECTED, device.path + ": V4L2 capture is not in this build yet");
  return nullptr;
}

}  // namespace pv::internal
