// Reading stereo data sets, scoring disparities against their ground truth, and the modes against
// OpenCV's SGBM on the shared pairs.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "depth/internal/stereo_dataset.h"
#include "depth/internal/stereo_engine.h"
#include "stereo_scenes.h"
#include "test_utils.h"

namespace pv::internal {
namespace {

const float kInf = std::numeric_limits<float>::infinity();

// Writes a one-channel PFM, bottom row first, little- or big-endian.
void writePfm(const std::string& path, const cv::Mat& image, bool big_endian) {
  std::ofstream f(path, std::ios::binary);
  f << "Pf\n" << image.cols << " " << image.rows << "\n" << (big_endian ? "1.0" : "-1.0") << "\n";
  for (int y = image.rows - 1; y >= 0; --y)
    for (int x = 0; x < image.cols; ++x) {
      uint32_t bits;
      const float v = image.at<float>(y, x);
      std::memcpy(&bits, &v, 4);
      if (big_endian) bits = __builtin_bswap32(bits);
      f.write(reinterpret_cast<const char*>(&bits), 4);
    }
}

TEST(DepthDataset, ReadsPfmInBothByteOrdersAndRejectsBrokenFiles) {
  const std::string dir = mapura::test::scratchDir("depth_pfm");
  cv::Mat image(3, 4, CV_32F);
  for (int i = 0; i < 12; ++i) image.at<float>(i / 4, i % 4) = 0.5f * i;
  image.at<float>(1, 1) = kInf;
  for (bool big : {false, true}) {
    writePfm(dir + "/a.pfm", image, big);
    cv::Mat read;
    std::string error;
    ASSERT_TRUE(readPfm(dir + "/a.pfm", read, error)) << error;
    EXPECT_EQ(read.at<float>(2, 3), 5.5f);
    EXPECT_EQ(read.at<float>(0, 1), 0.5f);
    EXPECT_TRUE(std::isinf(read.at<float>(1, 1)));
  }
  std::ofstream(dir + "/cut.pfm") << "Pf\n4 3\n-1.0\n0123";
  std::ofstream(dir + "/colour.pfm") << "PF\n4 3\n-1.0\n";
  std::ofstream(dir + "/huge.pfm") << "Pf\n99999999 3\n-1.0\n";
  cv::Mat read;
  std::string error;
  for (const char* name : {"cut.pfm", "colour.pfm", "huge.pfm", "missing.pfm"}) {
    EXPECT_FALSE(readPfm(dir + "/" + name, read, error)) << name;
    EXPECT_FALSE(error.empty());
  }
}

TEST(DepthDataset, LoadsAFolderAndScoresAgainstItsGroundTruth) {
  // A step scene written in the Middlebury 2014 layout, without an occlusion mask.
  const std::string dir = mapura::test::scratchDir("depth_folder");
  const auto pair = mapura::test::renderStep(cv::Size(120, 60), 4.f, 12.f, cv::Rect(50, 20, 30, 20));
  cv::imwrite(dir + "/im0.png", pair.left);
  cv::imwrite(dir + "/im1.png", pair.right);
  cv::Mat gt = pair.disparity_px.clone();
  gt.at<float>(0, 0) = kInf;
  writePfm(dir + "/disp0.pfm", gt, false);
  std::ofstream(dir + "/calib.txt") << "cam0=[100 0 60; 0 100 30; 0 0 1]\ndoffs=0\nbaseline=100\nndisp=24\n";

  StereoSample s;
  std::string error;
  ASSERT_TRUE(loadStereoSample(dir, s, error)) << error;
  EXPECT_EQ(s.max_disparity_px, 24);
  EXPECT_FALSE(s.mask_from_file);
  EXPECT_TRUE(std::isnan(s.gt_disparity_px.at<float>(0, 0)));
  // The derived mask leaves out what the right camera cannot see, as the renderer knows it (up to
  // the one column that lands exactly on the box's edge).
  cv::Mat disagree;
  cv::absdiff(s.eval_mask, pair.visible, disagree);
  EXPECT_LE(cv::countNonZero(disagree), 20);

  // Scoring: invalid counts as bad, the error only over valid estimates.
  cv::Mat estimate = pair.disparity_px.clone();
  estimate(cv::Rect(0, 50, 120, 10)).setTo(std::numeric_limits<float>::quiet_NaN());
  estimate(cv::Rect(100, 0, 20, 10)) += 1.5f;
  const cv::Mat all(pair.left.size(), CV_8U, cv::Scalar(255));
  const DisparityErrors e = compareDisparity(estimate, pair.disparity_px, all);
  EXPECT_EQ(e.pixels, 120 * 60);
  EXPECT_NEAR(e.valid_pct, 100.0 * 50 / 60, 1e-6);
  EXPECT_NEAR(e.bad2_pct, 100.0 * 10 / 60, 1e-6);
  EXPECT_NEAR(e.bad1_pct, 100.0 * (10 * 120 + 200) / 7200, 1e-6);
  EXPECT_NEAR(e.mae_px, 1.5 * 200 / (50 * 120), 1e-6);

  // Missing pieces are named.
  std::remove((dir + "/disp0.pfm").c_str());
  EXPECT_FALSE(loadStereoSample(dir, s, error));
  EXPECT_NE(error.find("ground truth"), std::string::npos);
  EXPECT_FALSE(loadStereoSample(dir + "/nothing", s, error));
}

// The modes against OpenCV's SGBM on the real pairs: QUALITY has at most 0.8 and ULTRA 0.7 of its
// bad pixels, PERFORMANCE at most 1.2 times as many. Invalid pixels count as errors for both.
TEST(DepthDataset, ModesAgainstTheBaselineOnSharedPairs) {
  MAPURA_REQUIRE_SHARED(root, "middlebury_v2");
  for (const std::string rel : {"middlebury_v2/tsukuba", "middlebury_v2/venus", "eth3d_two_view/terrace"}) {
    const std::string dir = mapura::test::sharedDataPath(rel);
    if (dir.empty()) continue;
    StereoSample s;
    std::string error;
    ASSERT_TRUE(loadStereoSample(dir, s, error)) << error;
    cv::Mat left, right;
    cv::cvtColor(s.left_bgr, left, cv::COLOR_BGR2GRAY);
    cv::cvtColor(s.right_bgr, right, cv::COLOR_BGR2GRAY);
    const int range = s.max_disparity_px < left.cols / 2 ? s.max_disparity_px : 32;
    const DisparityErrors base =
        compareDisparity(baselineSgbmDisparity(left, right, range), s.gt_disparity_px, s.eval_mask);
    for (DEPTH_MODE mode : {DEPTH_MODE::PERFORMANCE, DEPTH_MODE::QUALITY, DEPTH_MODE::ULTRA}) {
      StereoParameters params;
      params.mode = mode;
      params.max_disparity_px = range;
      StereoOutput out;
      ASSERT_TRUE(computeStereo(left, right, params, out, error)) << error;
      const DisparityErrors e = compareDisparity(out.disparity_px, s.gt_disparity_px, s.eval_mask);
      const double allowed = mode == DEPTH_MODE::PERFORMANCE ? 1.2 : (mode == DEPTH_MODE::QUALITY ? 0.8 : 0.7);
      EXPECT_LT(e.bad2_pct, allowed * base.bad2_pct) << rel << " " << toString(mode).c_str();
      EXPECT_GT(e.valid_pct, 95.0) << rel << " " << toString(mode).c_str();
    }
  }
}

}  // namespace
}  // namespace pv::internal
