// The live cameras the SDK can open (V4L2 stereo cameras and the virtual camera) and the
// hardware-independent parts of the live path.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/internal/error.h"
#include "input/internal/frame_source.h"
#include "input/internal/live_camera.h"

namespace pv::internal {

namespace fs = std::filesystem;

// Listed by v4l2_source.cpp: /dev/video nodes that deliver side-by-side stereo frames.
std::vector<LiveDevice> listV4l2Devices();

unsigned int usbSerialNumber(const std::string& sysfs_root, const std::string& node_name) {
  std::error_code ec;
  const fs::path device = fs::canonical(fs::path(sysfs_root) / node_name / "device", ec);
  if (ec) return 0;
  // The interface's parent (or the device itself) is the USB device holding the descriptor.
  for (const fs::path& dir : {device, device.parent_path()}) {
    std::ifstream in(dir / "serial");
    std::string text;
    if (!(in >> text)) continue;
    std::string digits;
    for (char c : text)
      if (c >= '0' && c <= '9') digits += c;
    if (digits.empty() || digits.size() > 10) return 0;
    const unsigned long long v = std::strtoull(digits.c_str(), nullptr, 10);
    return v > 0xffffffffULL ? 0 : unsigned(v);
  }
  return 0;
}

std::string findCalibrationFile(unsigned int serial_number) {
  const std::string name = "SN" + std::to_string(serial_number) + ".yml";
  std::vector<fs::path> dirs;
  if (const char* dir = std::getenv("PAVO_CALIBRATION_DIR")) dirs.emplace_back(dir);
  if (const char* home = std::getenv("HOME")) dirs.push_back(fs::path(home) / ".local/share/pavo/calibration");
  std::error_code ec;
  for (const fs::path& dir : dirs)
    if (fs::is_regular_file(dir / name, ec)) return (dir / name).string();
  return std::string();
}

ERROR_CODE loadCameraCalibration(unsigned int serial_number, StereoCalibration& calibration) {
  const std::string path = findCalibrationFile(serial_number);
  if (path.empty())
    return fail(ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE,
                "no calibration SN" + std::to_string(serial_number) +
                    ".yml in $PAVO_CALIBRATION_DIR or ~/.local/share/pavo/calibration/");
  return readCalibrationYaml(path, calibration);
}

int percentToControl(int percent, int minimum, int maximum, int step) {
  const double v = minimum + (maximum - minimum) * std::clamp(percent, 0, 100) / 100.0;
  const int s = std::max(step, 1);
  return std::clamp(minimum + int(std::lround((v - minimum) / s)) * s, minimum, maximum);
}

int controlToPercent(int value, int minimum, int maximum) {
  if (maximum <= minimum) return 0;
  return std::clamp(int(std::lround(100.0 * (value - minimum) / (maximum - minimum))), 0, 100);
}

std::vector<LiveDevice> listLiveDevices() {
  std::vector<LiveDevice> devices = listV4l2Devices();
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

}  // namespace pv::internal
