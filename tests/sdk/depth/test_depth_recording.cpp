// Depth end to end: a synthesized room recording opened by pv::Camera, grabbed (decode, rectify,
// depth) and compared with the renderer's true depth; the measures and views the application
// reads.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "core/internal/camera_state.h"
#include "depth/internal/stereo_stages.h"
#include "pv/camera.h"
#include "synth/internal/synth.h"
#include "test_utils.h"

namespace pv::internal {
namespace {

class DepthRecording : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    options_.frames = 3;
    options_.resolution = RESOLUTION::VGA;
    options_.codec = KTR_COMPRESSION_MODE::LOSSLESS;
    path_ = mapura::test::scratchDir("depth_recording") + "/room.ktr";
    ASSERT_EQ(synth::synthesize(options_, path_), ERROR_CODE::SUCCESS);
    ASSERT_EQ(sequence_.init(options_), ERROR_CODE::SUCCESS);
  }
  static synth::SynthOptions options_;
  static synth::SyntheticSequence sequence_;
  static std::string path_;
};
synth::SynthOptions DepthRecording::options_;
synth::SyntheticSequence DepthRecording::sequence_;
std::string DepthRecording::path_;

TEST_F(DepthRecording, EachModeMatchesTheTrueDepth) {
  cv::Mat truth;
  sequence_.renderDepth(1, truth);
  for (DEPTH_MODE mode : {DEPTH_MODE::PERFORMANCE, DEPTH_MODE::QUALITY, DEPTH_MODE::ULTRA}) {
    Camera camera;
    InitParameters init;
    init.input.setFromKTRFile(path_.c_str());
    init.depth_mode = mode;
    init.coordinate_units = UNIT::MILLIMETER;
    init.depth_minimum_distance = 200;
    init.depth_maximum_distance = 20000;
    ASSERT_EQ(camera.open(init), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    camera.setKTRPosition(1);
    ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    Mat depth, disparity;
    ASSERT_EQ(camera.retrieveMeasure(depth, MEASURE::DEPTH), ERROR_CODE::SUCCESS);
    ASSERT_EQ(camera.retrieveMeasure(disparity, MEASURE::DISPARITY), ERROR_CODE::SUCCESS);
    ASSERT_EQ(depth.getWidth(), static_cast<size_t>(truth.cols));
    ASSERT_EQ(depth.getHeight(), static_cast<size_t>(truth.rows));
    // Share of pixels whose disparity is within one pixel of the truth's (away from the left
    // border, which the right camera does not see), and depth and disparity agree.
    const RectifiedCalibration& c = camera.state()->calibration;
    const double focal_baseline = c.fx * c.baseline_m;
    long n = 0, good = 0;
    for (int y = 0; y < truth.rows; ++y)
      for (int x = 40; x < truth.cols; ++x) {
        const float t = truth.at<float>(y, x);
        if (!(t > 0)) continue;
        ++n;
        const float d = *disparity.getPixel<float>(x, y);
        good += std::isfinite(d) && std::abs(d - focal_baseline / t) <= 1.0;
        if (std::isfinite(d)) {
          ASSERT_NEAR(*depth.getPixel<float>(x, y), 1000 * focal_baseline / d, 0.01 * 1000 * t);
        }
      }
    ASSERT_GT(n, static_cast<long>(truth.total() / 2));
    EXPECT_GT(static_cast<double>(good) / n, 0.9) << toString(mode).c_str();
  }
}

TEST_F(DepthRecording, ViewsAndPointCloudOfAGrab) {
  Camera camera;
  InitParameters init;
  init.input.setFromKTRFile(path_.c_str());
  init.depth_mode = DEPTH_MODE::QUALITY;
  init.coordinate_system = COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
  ASSERT_EQ(camera.open(init), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
  for (VIEW view : {VIEW::DEPTH, VIEW::DEPTH_COLOR}) {
    Mat picture;
    ASSERT_EQ(camera.retrieveImage(picture, view), ERROR_CODE::SUCCESS) << toString(view).c_str();
    EXPECT_EQ(picture.getDataType(), MAT_TYPE::U8_C4);
    const cv::Mat bgra(static_cast<int>(picture.getHeight()), static_cast<int>(picture.getWidth()), CV_8UC4,
                       picture.getPtr<uchar>(), picture.getStepBytes());
    cv::Scalar mean, stddev;
    cv::meanStdDev(bgra, mean, stddev);
    EXPECT_GT(stddev[0] + stddev[1] + stddev[2], 30.0) << "a depth picture of a room is not flat";
  }
  // Every valid point lies in front of the camera: negative z in a right-handed y-up system.
  Mat cloud;
  ASSERT_EQ(camera.retrieveMeasure(cloud, MEASURE::XYZRGBA), ERROR_CODE::SUCCESS);
  long valid = 0, in_front = 0;
  for (size_t y = 0; y < cloud.getHeight(); y += 4)
    for (size_t x = 0; x < cloud.getWidth(); x += 4) {
      const float4 p = *cloud.getPixel<float4>(x, y);
      if (!std::isfinite(p.z)) continue;
      ++valid;
      in_front += p.z < 0;
    }
  EXPECT_GT(valid, 0);
  EXPECT_EQ(in_front, valid);
  // With depth disabled the grab carries none.
  ASSERT_EQ(camera.grab(RuntimeParameters(SENSING_MODE::STANDARD, false)), ERROR_CODE::SUCCESS);
  EXPECT_EQ(camera.retrieveMeasure(cloud, MEASURE::DEPTH), ERROR_CODE::MODULE_NOT_ENABLED);
}

TEST(DepthRecordingOpen, NeuralDepthIsRefusedAtOpen) {
  const AI_Model_status status = Camera::checkAIModelStatus(AI_MODELS::NEURAL_DEPTH, 0);
  EXPECT_FALSE(status.downloaded);
  EXPECT_FALSE(status.optimized);
  Camera camera;
  InitParameters init;
  init.depth_mode = DEPTH_MODE::NEURAL;
  init.input.setFromKTRFile("any.ktr");
  EXPECT_EQ(camera.open(init), ERROR_CODE::AI_MODEL_NOT_AVAILABLE);
  EXPECT_FALSE(camera.isOpened());
}

}  // namespace
}  // namespace pv::internal
