#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "input/internal/live_camera.h"
#include "test_utils.h"

namespace pv::internal {
namespace {

namespace fs = std::filesystem;

TEST(LiveCamera, SerialNumberComesFromTheUsbDeviceInSysfs) {
  const fs::path root = mapura::test::scratchDir("fake_sysfs");
  // /sys/class/video4linux/video0/device -> the USB interface; its parent holds "serial".
  const fs::path usb = root / "devices/usb1/1-1";
  fs::create_directories(usb / "1-1:1.0");
  std::ofstream(usb / "serial") << "SN00012345\n";
  fs::create_directories(root / "class/video0");
  fs::create_symlink(usb / "1-1:1.0", root / "class/video0/device");
  EXPECT_EQ(usbSerialNumber((root / "class").string(), "video0"), 12345u);
  EXPECT_EQ(usbSerialNumber((root / "class").string(), "video7"), 0u);
  std::ofstream(usb / "serial") << "no digits here";
  EXPECT_EQ(usbSerialNumber((root / "class").string(), "video0"), 0u);
  std::ofstream(usb / "serial") << "99999999999999";
  EXPECT_EQ(usbSerialNumber((root / "class").string(), "video0"), 0u);
}

TEST(LiveCamera, CalibrationIsLookedUpBySerialAndChecked) {
  const std::string dir = mapura::test::scratchDir("calibration_dir");
  setenv("PAVO_CALIBRATION_DIR", dir.c_str(), 1);
  setenv("HOME", dir.c_str(), 1);  // keep a real user's calibrations out of the test
  StereoCalibration c;
  EXPECT_EQ(findCalibrationFile(42), "");
  EXPECT_EQ(loadCameraCalibration(42, c), ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE);

  StereoCalibration good;
  good.width = 1280;
  good.height = 720;
  good.left = {700, 700, 640, 360, {-0.1, 0.02, 0, 0, 0}};
  good.right = good.left;
  good.T = {-0.12, 0, 0};
  ASSERT_EQ(writeCalibrationYaml(dir + "/SN42.yml", good), ERROR_CODE::SUCCESS);
  EXPECT_EQ(findCalibrationFile(42), dir + "/SN42.yml");
  ASSERT_EQ(loadCameraCalibration(42, c), ERROR_CODE::SUCCESS);
  EXPECT_DOUBLE_EQ(c.left.disto[0], -0.1);

  std::ofstream(dir + "/SN43.yml") << "%YAML:1.0\nimage_width: 1280\n";
  EXPECT_EQ(loadCameraCalibration(43, c), ERROR_CODE::INVALID_CALIBRATION_FILE);
  good.left.fx = -5;
  ASSERT_EQ(writeCalibrationYaml(dir + "/SN44.yml", good), ERROR_CODE::SUCCESS);
  EXPECT_EQ(loadCameraCalibration(44, c), ERROR_CODE::INVALID_CALIBRATION_FILE);

  // The per-user folder is the fallback.
  unsetenv("PAVO_CALIBRATION_DIR");
  fs::create_directories(dir + "/.local/share/pavo/calibration");
  fs::copy_file(dir + "/SN42.yml", dir + "/.local/share/pavo/calibration/SN42.yml");
  EXPECT_EQ(findCalibrationFile(42), dir + "/.local/share/pavo/calibration/SN42.yml");
}

TEST(LiveCamera, PercentSettingsSpanTheControlRange) {
  EXPECT_EQ(percentToControl(0, 0, 255, 1), 0);
  EXPECT_EQ(percentToControl(100, 0, 255, 1), 255);
  EXPECT_EQ(percentToControl(50, 0, 255, 1), 128);
  EXPECT_EQ(percentToControl(50, 3, 2047, 10), 1023);
  EXPECT_EQ(percentToControl(150, -10, 10, 1), 10);
  EXPECT_EQ(controlToPercent(128, 0, 255), 50);
  EXPECT_EQ(controlToPercent(5, 5, 5), 0);
  for (int p = 0; p <= 100; p += 7) EXPECT_EQ(controlToPercent(percentToControl(p, 1, 5000, 1), 1, 5000), p);
}

}  // namespace
}  // namespace pv::internal
