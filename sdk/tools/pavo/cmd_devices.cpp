// pavo devices: the live cameras now connected, one per line.
#include <iostream>

#include "command.h"
#include "pv/camera.h"

namespace {

int runDevices(int argc, char** argv) {
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError("devices", args.error());
  if (!args.positional().empty() || !args.unknown({}).empty()) return pavo::usageError("devices", "takes no arguments");
  const std::vector<pv::DeviceProperties> list = pv::Camera::getDeviceList();
  if (list.empty()) std::cerr << "no camera is connected (set PAVO_VIRTUAL_CAMERA=FILE.ktr for the virtual camera)\n";
  for (const pv::DeviceProperties& d : list)
    std::cout << d.id << ": serial " << d.serial_number << ", " << pv::toString(d.camera_model).c_str() << ", "
              << d.path.c_str() << "\n";
  return 0;
}

}  // namespace

PAVO_COMMAND("devices", "", "lists the live cameras, one per line with its serial number", runDevices);
