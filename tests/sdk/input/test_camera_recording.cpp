#include <gtest/gtest.h>

#include <chrono>
#include <opencv2/imgproc.hpp>
#include <random>
#include <thread>

#include "core/internal/camera_state.h"
#include "pv/camera.h"
#include "recording_fixture.h"

namespace pv {
namespace {

InitParameters recordingParameters(const std::string& path) {
  InitParameters p;
  p.input.setFromKTRFile(path.c_str());
  p.depth_mode = DEPTH_MODE::NONE;
  return p;
}

cv::Mat asCv(const Mat& m, MEM mem = MEM::CPU) {
  return cv::Mat(int(m.getHeight()), int(m.getWidth()), CV_8UC4, m.getPtr<unsigned char>(mem), m.getStepBytes(mem));
}

TEST(CameraRecording, OpensAndDescribesTheRecording) {
  const std::string path = test::smallRecording();
  ASSERT_FALSE(path.empty()) << lastErrorDetail().c_str();
  Camera camera;
  ASSERT_EQ(camera.open(recordingParameters(path)), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_TRUE(camera.isOpened());
  EXPECT_EQ(camera.getKTRNumberOfFrames(), 12);
  const CameraInformation info = camera.getCameraInformation();
  EXPECT_EQ(info.serial_number, 31337u);
  EXPECT_EQ(info.input_type, INPUT_TYPE::KTR);
  EXPECT_EQ(info.camera_configuration.resolution, Resolution(640, 360));
  EXPECT_FLOAT_EQ(info.camera_configuration.fps, 30.f);
  const CalibrationParameters& rect = info.camera_configuration.calibration_parameters;
  const CalibrationParameters& raw = info.camera_configuration.calibration_parameters_raw;
  EXPECT_NEAR(rect.baseline_m, 0.12f, 0.002f);
  EXPECT_NEAR(rect.left_cam.fx, 350.f, 20.f);
  EXPECT_EQ(rect.left_cam.disto[0], 0.0);
  EXPECT_NE(raw.left_cam.disto[0], 0.0);
  EXPECT_NEAR(rect.stereo_translation.x, 0.12f, 0.002f);  // the right eye sits at +x
  EXPECT_NEAR(raw.stereo_translation.x, 0.12f, 0.002f);
  EXPECT_NEAR(raw.stereo_rotation(0, 0), 1.f, 1e-4f);
  EXPECT_FLOAT_EQ(raw.left_cam.fx, 350.f);
  const CameraInformation half = camera.getCameraInformation(Resolution(320, 180));
  EXPECT_NEAR(half.camera_configuration.calibration_parameters.left_cam.fx, rect.left_cam.fx / 2, 1e-3);
  const internal::CameraState& state = *camera.state();
  EXPECT_NEAR(state.calibration.fx, rect.left_cam.fx, 1e-3);
  camera.close();
  camera.close();
  EXPECT_FALSE(camera.isOpened());
  EXPECT_EQ(camera.grab(), ERROR_CODE::CAMERA_NOT_INITIALIZED);
}

TEST(CameraRecording, GrabSeekGrabReturnsExactlyTheFramesAskedFor) {
  const std::string path = test::smallRecording();
  Camera camera;
  ASSERT_EQ(camera.open(recordingParameters(path)), ERROR_CODE::SUCCESS);
  std::vector<cv::Mat> lefts;
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(camera.getKTRPosition(), i);
    ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
    EXPECT_EQ(camera.state()->frame.index, i);
    lefts.push_back(camera.state()->frame.left_bgr.clone());
  }
  EXPECT_EQ(camera.grab(), ERROR_CODE::END_OF_KTR_FILE_REACHED);
  EXPECT_EQ(camera.grab(), ERROR_CODE::END_OF_KTR_FILE_REACHED);
  const uint64_t t0 = camera.state()->frame.timestamp_ns;
  for (int target : {7, 2, 2, 11, 0, 5}) {
    camera.setKTRPosition(target);
    EXPECT_EQ(camera.getKTRPosition(), target);
    ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS) << "frame " << target;
    EXPECT_EQ(camera.state()->frame.index, target);
    EXPECT_EQ(cv::norm(camera.state()->frame.left_bgr, lefts[size_t(target)], cv::NORM_INF), 0) << target;
    if (target == 11) {
      EXPECT_EQ(camera.grab(), ERROR_CODE::END_OF_KTR_FILE_REACHED);
      continue;
    }
    ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
    EXPECT_EQ(camera.state()->frame.index, target + 1);
  }
  EXPECT_NE(t0, 0u);
  // Seeking from another thread while this one grabs stays consistent.
  std::thread seeker([&] {
    for (int i = 0; i < 50; ++i) camera.setKTRPosition(i % 12);
  });
  for (int i = 0; i < 20; ++i) {
    const ERROR_CODE err = camera.grab();
    EXPECT_TRUE(err == ERROR_CODE::SUCCESS || err == ERROR_CODE::END_OF_KTR_FILE_REACHED);
  }
  seeker.join();
  camera.setKTRPosition(4);
  ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
  EXPECT_EQ(camera.state()->frame.index, 4);
}

TEST(CameraRecording, DamagedFramesAreReportedWithTheirReasonAndPlaybackGoesOn) {
  // Each damaged frame is its own error, with its reason naming it; the frames after it still play.
  const std::string path = test::smallRecording();
  std::string bytes = mapura::test::readFileBytes(path);
  std::mt19937 gen(3);
  for (size_t i = bytes.size() * 2 / 5; i < bytes.size() * 3 / 5; ++i) bytes[i] = char(gen());
  const std::string damaged = path + ".damaged.ktr";
  mapura::test::writeFileBytes(damaged, bytes);
  Camera camera;
  if (camera.open(recordingParameters(damaged)) != ERROR_CODE::SUCCESS) GTEST_SKIP() << "the damage hit the index";
  int good = 0, corrupted = 0, last_index = -1;
  for (int i = 0; i < 20; ++i) {
    const int position = camera.getKTRPosition();
    const ERROR_CODE err = camera.grab();
    if (err == ERROR_CODE::END_OF_KTR_FILE_REACHED) break;
    if (err == ERROR_CODE::CORRUPTED_FRAME) {
      ++corrupted;
      const std::string why = lastErrorDetail().str();
      EXPECT_NE(why.find("frame " + std::to_string(position) + " "), std::string::npos) << why;
      continue;
    }
    ASSERT_EQ(err, ERROR_CODE::SUCCESS) << int(err);
    EXPECT_GT(camera.state()->frame.index, last_index);
    last_index = camera.state()->frame.index;
    ++good;
  }
  EXPECT_GT(corrupted, 0);
  EXPECT_GT(good, 3);
  EXPECT_EQ(good + corrupted, camera.getKTRNumberOfFrames());
  EXPECT_EQ(camera.getKTRPosition(), camera.getKTRNumberOfFrames());
}

TEST(CameraRecording, ImagesGoIntoTheCallersBuffersInEveryView) {
  const std::string path = test::smallRecording();
  Camera camera;
  ASSERT_EQ(camera.open(recordingParameters(path)), ERROR_CODE::SUCCESS);
  Mat before;
  EXPECT_EQ(camera.retrieveImage(before), ERROR_CODE::NOT_A_NEW_FRAME);
  ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);

  // The application's layout: one double-height GPU buffer with two non-owning views.
  Mat buffer(640, 720, MAT_TYPE::U8_C4, MEM::GPU);
  unsigned char* base = buffer.getPtr<unsigned char>(MEM::GPU);
  const size_t step = buffer.getStepBytes(MEM::GPU);
  Mat upper(Resolution(640, 360), MAT_TYPE::U8_C4, base, step, MEM::GPU);
  Mat lower(Resolution(640, 360), MAT_TYPE::U8_C4, base + 360 * step, step, MEM::GPU);
  ASSERT_EQ(camera.retrieveImage(upper, VIEW::LEFT, MEM::GPU), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.retrieveImage(lower, VIEW::RIGHT, MEM::GPU), ERROR_CODE::SUCCESS);
  EXPECT_EQ(upper.getPtr<unsigned char>(MEM::GPU), base);
  EXPECT_EQ(lower.getPtr<unsigned char>(MEM::GPU), base + 360 * step);

  Mat left, right, left_gray, sbs, small;
  ASSERT_EQ(camera.retrieveImage(left, VIEW::LEFT), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.retrieveImage(right, VIEW::RIGHT), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.retrieveImage(left_gray, VIEW::LEFT_GRAY), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.retrieveImage(sbs, VIEW::SIDE_BY_SIDE), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.retrieveImage(small, VIEW::LEFT, MEM::CPU, Resolution(320, 180)), ERROR_CODE::SUCCESS);
  EXPECT_EQ(left.getDataType(), MAT_TYPE::U8_C4);
  EXPECT_EQ(sbs.getResolution(), Resolution(1280, 360));
  EXPECT_EQ(small.getResolution(), Resolution(320, 180));

  if (buffer.isGPUHostBacked()) {
    const cv::Mat whole = asCv(buffer, MEM::GPU);
    EXPECT_EQ(cv::norm(whole.rowRange(0, 360), asCv(left), cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(whole.rowRange(360, 720), asCv(right), cv::NORM_INF), 0);
  }
  EXPECT_EQ(cv::norm(asCv(sbs).colRange(0, 640), asCv(left), cv::NORM_INF), 0);
  EXPECT_EQ(cv::norm(asCv(sbs).colRange(640, 1280), asCv(right), cv::NORM_INF), 0);
  cv::Mat channels[4];
  cv::split(asCv(left_gray), channels);
  EXPECT_EQ(cv::norm(channels[0], channels[2], cv::NORM_INF), 0);
  EXPECT_EQ(cv::countNonZero(channels[3] != 255), 0);
  cv::Mat expected_gray;
  cv::cvtColor(asCv(left), expected_gray, cv::COLOR_BGRA2GRAY);
  EXPECT_LE(cv::norm(channels[1], expected_gray, cv::NORM_INF), 1);
  // The right eye is rectified in grey for matching and in colour on request: the two agree up to
  // the rounding of the interpolation.
  Mat right_gray;
  ASSERT_EQ(camera.retrieveImage(right_gray, VIEW::RIGHT_GRAY), ERROR_CODE::SUCCESS);
  cv::split(asCv(right_gray), channels);
  cv::cvtColor(asCv(right), expected_gray, cv::COLOR_BGRA2GRAY);
  EXPECT_LE(cv::norm(channels[1], expected_gray, cv::NORM_INF), 2);
  EXPECT_GT(cv::norm(channels[1], cv::NORM_L1), 0);

  // A caller's CPU Mat of the right size is written in place, not replaced.
  Mat target(640, 360, MAT_TYPE::U8_C4, MEM::CPU);
  unsigned char* kept = target.getPtr<unsigned char>();
  ASSERT_EQ(camera.retrieveImage(target, VIEW::RIGHT), ERROR_CODE::SUCCESS);
  EXPECT_EQ(target.getPtr<unsigned char>(), kept);
  EXPECT_EQ(camera.retrieveImage(target, VIEW(77)), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
}

TEST(CameraRecording, BadInputsFailWithTheirCodesAndLeaveNothingOpen) {
  Camera camera;
  InitParameters p = recordingParameters("/nonexistent/file.ktr");
  EXPECT_EQ(camera.open(p), ERROR_CODE::INVALID_KTR_FILE);
  EXPECT_FALSE(camera.isOpened());
  EXPECT_EQ(camera.getKTRNumberOfFrames(), -1);
  EXPECT_EQ(camera.getCameraInformation().serial_number, 0u);
  EXPECT_EQ(camera.getCameraInformation().camera_configuration.resolution, Resolution(0, 0));

  p = recordingParameters(test::smallRecording());
  p.depth_mode = DEPTH_MODE::NEURAL;
  EXPECT_EQ(camera.open(p), ERROR_CODE::AI_MODEL_NOT_AVAILABLE);
  EXPECT_FALSE(Camera::checkAIModelStatus(AI_MODELS::NEURAL_DEPTH).downloaded);
  EXPECT_FALSE(Camera::checkAIModelStatus(AI_MODELS::NEURAL_DEPTH).optimized);
  p.depth_mode = DEPTH_MODE::NONE;
  p.depth_minimum_distance = 20;
  EXPECT_EQ(camera.open(p), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
  p.depth_minimum_distance = 0.3f;
  p.camera_resolution = RESOLUTION(9);
  EXPECT_EQ(camera.open(p), ERROR_CODE::INVALID_RESOLUTION);
  EXPECT_FALSE(camera.isOpened());
  Mat m;
  EXPECT_EQ(camera.retrieveImage(m), ERROR_CODE::CAMERA_NOT_INITIALIZED);
  EXPECT_EQ(camera.setCameraSettings(VIDEO_SETTINGS::GAIN, 50), ERROR_CODE::CAMERA_NOT_INITIALIZED);
  EXPECT_EQ(camera.getCameraSettings(VIDEO_SETTINGS::GAIN), -1);

  // A recording has no camera controls.
  p.camera_resolution = RESOLUTION::HD720;
  ASSERT_EQ(camera.open(p), ERROR_CODE::SUCCESS);
  EXPECT_NE(camera.setCameraSettings(VIDEO_SETTINGS::GAIN, 50), ERROR_CODE::SUCCESS);
}

TEST(CameraRecording, RealTimeModeKeepsTheRecordedPace) {
  InitParameters p = recordingParameters(test::smallRecording());
  p.ktr_real_time_mode = true;
  Camera camera;
  ASSERT_EQ(camera.open(p), ERROR_CODE::SUCCESS);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 10; ++i) ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
  // Ten frames at 30 fps span 9 frame intervals; never played faster than recorded.
  EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 9 / 30.0 - 0.01);
  camera.setKTRPosition(0);
  ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);  // a seek restarts the pacing, no long wait
  EXPECT_EQ(camera.state()->frame.index, 0);
}

TEST(CameraRecording, RecordingAgainWritesAPlayableCopy) {
  const std::string path = test::smallRecording();
  Camera camera;
  ASSERT_EQ(camera.open(recordingParameters(path)), ERROR_CODE::SUCCESS);
  const std::string copy = mapura::test::scratchDir("camera_rerecord") + "/copy.ktr";
  EXPECT_NE(camera.enableRecording(RecordingParameters("")), ERROR_CODE::SUCCESS);
  ASSERT_EQ(camera.enableRecording(RecordingParameters(copy.c_str(), KTR_COMPRESSION_MODE::LOSSLESS)),
            ERROR_CODE::SUCCESS);
  for (int i = 0; i < 5; ++i) ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
  const cv::Mat last = camera.state()->frame.left_bgr.clone();
  camera.disableRecording();
  Camera replay;
  ASSERT_EQ(replay.open(recordingParameters(copy)), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(replay.getKTRNumberOfFrames(), 5);
  EXPECT_EQ(replay.getCameraInformation().serial_number, 31337u);
  replay.setKTRPosition(4);
  ASSERT_EQ(replay.grab(), ERROR_CODE::SUCCESS);
  EXPECT_EQ(cv::norm(replay.state()->frame.left_bgr, last, cv::NORM_INF), 0);
}

}  // namespace
}  // namespace pv
