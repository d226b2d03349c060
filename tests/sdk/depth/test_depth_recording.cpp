// Depth end to end: a synthesized room recording opened by pv::Camera, grabbed (decode, rectify,
// depth) and compared with the renderer's true depth.
#include <gtest/gtest.h>

#include <cmath>

#include "core/internal/camera_state.h"
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

TEST_F(DepthRecording, AGrabWithoutDepthLeavesNoneFromTheFrameBefore) {
  Camera camera;
  InitParameters init;
  init.input.setFromKTRFile(path_.c_str());
  init.depth_mode = DEPTH_MODE::QUALITY;
  ASSERT_EQ(camera.open(init), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
  ASSERT_TRUE(camera.state()->depth.valid);
  ASSERT_EQ(camera.grab(RuntimeParameters(SENSING_MODE::STANDARD, false)), ERROR_CODE::SUCCESS);
  Mat depth;
  EXPECT_EQ(camera.retrieveMeasure(depth, MEASURE::DEPTH), ERROR_CODE::MODULE_NOT_ENABLED);
  // Tracking and mapping read the frame's depth directly: the previous frame's must be gone.
  EXPECT_FALSE(camera.state()->depth.valid);
  EXPECT_TRUE(camera.state()->depth.depth_m.empty());
}

}  // namespace
}  // namespace pv::internal
