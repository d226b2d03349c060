// Reading stereo data sets, scoring disparities against their ground truth, and the modes against
// OpenCV's SGBM on the shared pairs.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

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

  // Scoring: invalid counts as bad in the dense rates, the error and the returned rate only over
  // valid estimates.
  cv::Mat estimate = pair.disparity_px.clone();
  estimate(cv::Rect(0, 50, 120, 10)).setTo(std::numeric_limits<float>::quiet_NaN());
  estimate(cv::Rect(100, 0, 20, 10)) += 1.5f;
  estimate(cv::Rect(0, 0, 10, 10)) += 0.75f;
  estimate(cv::Rect(0, 20, 10, 10)) += 2.5f;
  const cv::Mat all(pair.left.size(), CV_8U, cv::Scalar(255));
  const DisparityErrors e = compareDisparity(estimate, pair.disparity_px, all);
  EXPECT_EQ(e.pixels, 120 * 60);
  EXPECT_EQ(e.returned, 120 * 50);
  EXPECT_NEAR(e.valid_pct, 100.0 * 50 / 60, 1e-6);
  EXPECT_NEAR(e.bad2_pct, 100.0 * (10 * 120 + 100) / 7200, 1e-6);
  EXPECT_NEAR(e.bad1_pct, 100.0 * (10 * 120 + 300) / 7200, 1e-6);
  EXPECT_NEAR(e.bad05_pct, 100.0 * (10 * 120 + 400) / 7200, 1e-6);
  EXPECT_NEAR(e.bad2_returned_pct, 100.0 * 100 / 6000, 1e-6);
  EXPECT_NEAR(e.mae_px, (1.5 * 200 + 0.75 * 100 + 2.5 * 100) / (50 * 120), 1e-6);

  // Missing pieces are named.
  std::remove((dir + "/disp0.pfm").c_str());
  EXPECT_FALSE(loadStereoSample(dir, s, error));
  EXPECT_NE(error.find("ground truth"), std::string::npos);
  EXPECT_FALSE(loadStereoSample(dir + "/nothing", s, error));
}

TEST(DepthDataset, MostConfidentPixelsAndTheSparsificationCurve) {
  // 100 returned pixels of ten confidence levels, the bad ones (off by 3) among the doubtful;
  // one pixel returned without a confidence, one not returned, one outside the mask.
  cv::Mat gt(1, 103, CV_32F, cv::Scalar(5.f)), estimate = gt.clone(), confidence(1, 103, CV_32F);
  for (int i = 0; i < 100; ++i) {
    confidence.at<float>(i) = float(1 + 10 * (i / 10));   // 1, 11, .., 91: ten pixels each
    if (i % 10 < (i / 10)) estimate.at<float>(i) += 3.f;  // level k holds k bad pixels
  }
  confidence.at<float>(100) = std::numeric_limits<float>::quiet_NaN();
  estimate.at<float>(100) += 3.f;
  estimate.at<float>(101) = std::numeric_limits<float>::quiet_NaN();
  cv::Mat mask(1, 103, CV_8U, cv::Scalar(255));
  mask.at<uint8_t>(102) = 0;
  estimate.at<float>(102) += 9.f;
  // The first 20: levels 0 and 1 (one bad). 25 cuts level 2 (two bad in ten) in half: one more.
  EXPECT_NEAR(bad2AmongMostConfident(estimate, confidence, gt, mask, 20), 100.0 * 1 / 20, 1e-9);
  EXPECT_NEAR(bad2AmongMostConfident(estimate, confidence, gt, mask, 25), 100.0 * 2 / 25, 1e-9);
  // Asking for more than was returned gives all returned pixels; the one without a confidence last.
  EXPECT_NEAR(bad2AmongMostConfident(estimate, confidence, gt, mask, 500), 100.0 * 46 / 101, 1e-9);
  EXPECT_NEAR(bad2AmongMostConfident(estimate, confidence, gt, mask, 100), 100.0 * 45 / 100, 1e-9);
  EXPECT_EQ(bad2AmongMostConfident(estimate, confidence, gt, mask, 0), 0.0);

  // The curve: densities of the 102 pixels evaluated, capped at the 101 returned.
  const auto curve = sparsificationCurve(estimate, confidence, gt, mask, {10.0, 50.0, 100.0});
  ASSERT_EQ(curve.size(), 3u);
  EXPECT_NEAR(curve[0].density_pct, 100.0 * 10 / 102, 1e-9);
  EXPECT_EQ(curve[0].bad2_pct, 0.0);
  EXPECT_NEAR(curve[1].density_pct, 100.0 * 51 / 102, 1e-9);
  EXPECT_NEAR(curve[1].bad2_pct, 100.0 * (10 + 0.1 * 5) / 51, 1e-9);  // levels 0..4, a tenth of level 5
  EXPECT_NEAR(curve[2].density_pct, 100.0 * 101 / 102, 1e-9);
  EXPECT_NEAR(curve[2].bad2_pct, 100.0 * 46 / 101, 1e-9);
}

// The modes against OpenCV's SGBM on the shared real pairs, as `pavo eval depth` scores them. Over
// the scenes (each weighing the same): bad-2px of each mode's most confident pixels, as many as
// SGBM returned, against SGBM's returned pixels at most 1.05x (PERFORMANCE), 0.8x (QUALITY) and
// 0.6x (ULTRA); dense bad-2px (holes count) at most 0.7x SGBM's in QUALITY and ULTRA. No scene
// breaks: each mode's confident pixels at most twice as often wrong as SGBM's, and the half it
// is surest of clearly better than all it returns (the confidence ranks its errors).
TEST(DepthDataset, ModesAgainstTheBaselineOnSharedPairs) {
  MAPURA_REQUIRE_SHARED(root, "middlebury2014_quarter");
  std::vector<std::string> scenes;
  for (const char* name : {"Adirondack", "ArtL", "Jadeplant", "Motorcycle", "MotorcycleE", "Piano", "PianoL", "Pipes",
                           "Playroom", "Recycle"})
    scenes.push_back(root + "/" + name);
  for (const char* rel : {"middlebury_v2/tsukuba", "middlebury_v2/venus", "eth3d_two_view/terrace"}) {
    const std::string dir = mapura::test::sharedDataPath(rel);
    if (!dir.empty()) scenes.push_back(dir);
  }
  const DEPTH_MODE modes[3] = {DEPTH_MODE::PERFORMANCE, DEPTH_MODE::QUALITY, DEPTH_MODE::ULTRA};
  double confident[3] = {0, 0, 0}, dense[3] = {0, 0, 0}, base_returned = 0, base_dense = 0;
  for (const std::string& dir : scenes) {
    StereoSample s;
    std::string error;
    ASSERT_TRUE(loadStereoSample(dir, s, error)) << error;
    cv::Mat left, right;
    cv::cvtColor(s.left_bgr, left, cv::COLOR_BGR2GRAY);
    cv::cvtColor(s.right_bgr, right, cv::COLOR_BGR2GRAY);
    const int range = searchRangeFor(s);
    const DisparityErrors base =
        compareDisparity(baselineSgbmDisparity(left, right, range), s.gt_disparity_px, s.eval_mask);
    base_returned += base.bad2_returned_pct / double(scenes.size());
    base_dense += base.bad2_pct / double(scenes.size());
    for (int m = 0; m < 3; ++m) {
      StereoParameters params;
      params.mode = modes[m];
      params.max_disparity_px = range;
      StereoOutput out;
      ASSERT_TRUE(computeStereo(left, right, params, out, error)) << error;
      const DisparityErrors e = compareDisparity(out.disparity_px, s.gt_disparity_px, s.eval_mask);
      const double at_base =
          bad2AmongMostConfident(out.disparity_px, out.confidence, s.gt_disparity_px, s.eval_mask, base.returned);
      confident[m] += at_base / double(scenes.size());
      dense[m] += e.bad2_pct / double(scenes.size());
      const std::string what = s.name + " " + toString(modes[m]).c_str();
      EXPECT_LE(at_base, 2.0 * base.bad2_returned_pct + 0.5) << what;
      EXPECT_GT(e.valid_pct, 85.0) << what;
      const double surest_half =
          bad2AmongMostConfident(out.disparity_px, out.confidence, s.gt_disparity_px, s.eval_mask, e.returned / 2);
      if (e.bad2_returned_pct > 1.0) {
        EXPECT_LT(surest_half, 0.75 * e.bad2_returned_pct) << what;
      }
    }
  }
  EXPECT_LE(confident[0], 1.05 * base_returned);
  EXPECT_LE(confident[1], 0.8 * base_returned);
  EXPECT_LE(confident[2], 0.6 * base_returned);
  EXPECT_LE(dense[1], 0.7 * base_dense);
  EXPECT_LE(dense[2], 0.7 * base_dense);
}

}  // namespace
}  // namespace pv::internal
