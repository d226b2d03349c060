#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "core/internal/camera_state.h"
#include "input/internal/frame_source.h"
#include "pv/camera.h"
#include "recording_fixture.h"

namespace pv {
namespace {

// Points the virtual camera at a recording for the life of the object.
class VirtualCameraEnv {
 public:
  explicit VirtualCameraEnv(const std::string& path, const char* options = nullptr) {
    setenv("PAVO_VIRTUAL_CAMERA", path.c_str(), 1);
    if (options)
      setenv("PAVO_VIRTUAL_CAMERA_OPTIONS", options, 1);
    else
      unsetenv("PAVO_VIRTUAL_CAMERA_OPTIONS");
  }
  ~VirtualCameraEnv() {
    unsetenv("PAVO_VIRTUAL_CAMERA");
    unsetenv("PAVO_VIRTUAL_CAMERA_OPTIONS");
  }
};

InitParameters liveParameters() {
  InitParameters p;
  p.input.setFromCameraID(0);
  p.depth_mode = DEPTH_MODE::NONE;
  return p;
}

size_t countVirtual(const std::vector<DeviceProperties>& list) {
  size_t n = 0;
  for (const DeviceProperties& d : list) n += d.camera_model == MODEL::PAVO_VIRTUAL;
  return n;
}

TEST(VirtualCamera, IsListedOnlyWhenItsRecordingIsUsable) {
  unsetenv("PAVO_VIRTUAL_CAMERA");
  EXPECT_EQ(countVirtual(Camera::getDeviceList()), 0u);
  {
    VirtualCameraEnv env("/nonexistent.ktr");
    EXPECT_EQ(countVirtual(Camera::getDeviceList()), 0u);
  }
  VirtualCameraEnv env(test::smallRecording());
  const std::vector<DeviceProperties> list = Camera::getDeviceList();
  ASSERT_EQ(countVirtual(list), 1u);
  const DeviceProperties& d = list.back();
  EXPECT_EQ(d.serial_number, 31337u);
  EXPECT_EQ(d.camera_state, CAMERA_STATE::AVAILABLE);
  EXPECT_EQ(d.id, int(list.size()) - 1);
}

TEST(VirtualCamera, PlaysInRealTimeAndRewindsLikeALiveCamera) {
  VirtualCameraEnv env(test::smallRecording());
  const std::vector<DeviceProperties> list = Camera::getDeviceList();
  ASSERT_FALSE(list.empty());
  Camera camera;
  InitParameters p = liveParameters();
  p.input.setFromSerialNumber(31337);
  ASSERT_EQ(camera.open(p), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  const CameraInformation info = camera.getCameraInformation();
  EXPECT_EQ(info.input_type, INPUT_TYPE::VIRTUAL);
  EXPECT_EQ(info.camera_model, MODEL::PAVO_VIRTUAL);
  EXPECT_EQ(info.serial_number, 31337u);
  EXPECT_EQ(camera.getKTRNumberOfFrames(), -1);

  const auto start = std::chrono::steady_clock::now();
  cv::Mat first;
  uint64_t previous_ts = 0;
  for (int i = 0; i < 15; ++i) {
    ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS) << "grab " << i;
    const internal::FrameData& f = camera.state()->frame;
    EXPECT_EQ(f.index, i);
    EXPECT_GT(f.timestamp_ns, previous_ts);
    previous_ts = f.timestamp_ns;
    if (i == 0) first = f.left_bgr.clone();
    if (i == 12) {
      EXPECT_EQ(cv::norm(f.left_bgr, first, cv::NORM_INF), 0);  // rewound
    }
  }
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(elapsed, 14 / 30.0 - 0.01);  // paced at the recording's 30 fps, never faster
}

TEST(VirtualCamera, OptionsChangeTheRateAndUnplugTheCamera) {
  VirtualCameraEnv env(test::smallRecording(), "disconnect_after=5,fps=100");
  Camera camera;
  ASSERT_EQ(camera.open(liveParameters()), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_FLOAT_EQ(camera.getCameraInformation().camera_configuration.fps, 100.f);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 5; ++i) ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
  EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 4 / 100.0 - 0.005);
  EXPECT_EQ(camera.grab(), ERROR_CODE::CAMERA_NOT_DETECTED);
  EXPECT_EQ(camera.grab(), ERROR_CODE::CAMERA_NOT_DETECTED);

  internal::VirtualCameraOptions options;
  std::string why;
  for (const char* bad : {"fps=0", "fps=abc", "disconnect_after=-2", "speed=3", "fps", "disconnect_after=1.5"})
    EXPECT_FALSE(internal::parseVirtualCameraOptions(bad, options, why)) << bad;
  EXPECT_TRUE(internal::parseVirtualCameraOptions("", options, why));
  EXPECT_EQ(options.disconnect_after, -1);
  VirtualCameraEnv malformed(test::smallRecording(), "fps=-4");
  EXPECT_EQ(camera.open(liveParameters()), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
  EXPECT_NE(std::string(lastErrorDetail().c_str()).find("PAVO_VIRTUAL_CAMERA_OPTIONS"), std::string::npos);
}

TEST(VirtualCamera, GainAndExposureActOnBrightness) {
  VirtualCameraEnv env(test::smallRecording(), "fps=200");
  Camera camera;
  ASSERT_EQ(camera.open(liveParameters()), ERROR_CODE::SUCCESS);
  auto meanOfNextFrame = [&] {
    EXPECT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
    return cv::mean(camera.state()->frame.left_gray)[0];
  };
  EXPECT_EQ(camera.getCameraSettings(VIDEO_SETTINGS::GAIN), -1);
  const double automatic = meanOfNextFrame();
  ASSERT_EQ(camera.setCameraSettings(VIDEO_SETTINGS::GAIN, 10), ERROR_CODE::SUCCESS);
  EXPECT_EQ(camera.getCameraSettings(VIDEO_SETTINGS::GAIN), 10);
  const double dark = meanOfNextFrame();
  ASSERT_EQ(camera.setCameraSettings(VIDEO_SETTINGS::EXPOSURE, 100), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.setCameraSettings(VIDEO_SETTINGS::GAIN, 90), ERROR_CODE::SUCCESS);
  const double bright = meanOfNextFrame();
  EXPECT_LT(dark, 0.8 * automatic);
  EXPECT_GT(bright, 1.3 * automatic);
  EXPECT_EQ(camera.setCameraSettings(VIDEO_SETTINGS::GAIN, 101), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
  ASSERT_EQ(camera.setCameraSettings(VIDEO_SETTINGS::GAIN, -1), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.setCameraSettings(VIDEO_SETTINGS::EXPOSURE, -1), ERROR_CODE::SUCCESS);
  EXPECT_NEAR(meanOfNextFrame(), automatic, 0.15 * automatic);
}

}  // namespace
}  // namespace pv
