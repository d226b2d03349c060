// The stereo engine in each mode on exact synthetic pairs, and its refusal of bad input.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "depth/internal/stereo_engine.h"
#include "stereo_scenes.h"

namespace pv::internal {
namespace {

using mapura::test::medianError;
using mapura::test::renderStep;
using mapura::test::shareWithin;

const cv::Size kSize(320, 240);

StereoOutput run(const mapura::test::SyntheticPair& pair, DEPTH_MODE mode, int range = 32) {
  StereoParameters params;
  params.mode = mode;
  params.max_disparity_px = range;
  StereoOutput out;
  std::string error;
  EXPECT_TRUE(computeStereo(pair.left, pair.right, params, out, error)) << error;
  return out;
}

// Pixels at least `margin` away from the image border and from where the truth changes.
cv::Mat awayFromEdges(const mapura::test::SyntheticPair& pair, int margin) {
  cv::Mat edges, grad_x, grad_y;
  cv::Sobel(pair.disparity_px, grad_x, CV_32F, 1, 0);
  cv::Sobel(pair.disparity_px, grad_y, CV_32F, 0, 1);
  edges = (cv::abs(grad_x) + cv::abs(grad_y)) > 0.01f;
  cv::dilate(edges, edges, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * margin + 1, 2 * margin + 1)));
  cv::Mat mask = pair.visible & ~edges;
  cv::Mat inner(mask.size(), CV_8U, cv::Scalar(0));
  inner(cv::Rect(margin, margin, mask.cols - 2 * margin, mask.rows - 2 * margin)).setTo(255);
  return mask & inner;
}

class DepthModeTest : public ::testing::TestWithParam<DEPTH_MODE> {};

TEST_P(DepthModeTest, PlanesAndStepsComeOutAtTheirDisparity) {
  // A whole-pixel plane, a fractional plane (sub-pixel) and a box in front of a plane.
  const auto plane = renderStep(kSize, 9.f, 9.f, cv::Rect());
  const StereoOutput p = run(plane, GetParam());
  ASSERT_EQ(p.disparity_px.size(), kSize);
  ASSERT_EQ(p.disparity_px.type(), CV_32F);
  const cv::Mat plane_mask = awayFromEdges(plane, 4);
  EXPECT_GT(shareWithin(p.disparity_px, plane.disparity_px, plane_mask, 1.f), 0.97);
  // Half-resolution modes see 4.5 pixels here, between whole pixels, and 6.25 on the fractional
  // plane: their sub-pixel fit is at half resolution, so its error doubles at full size.
  const double exact = GetParam() == DEPTH_MODE::ULTRA ? 0.2 : 0.4;
  EXPECT_LT(medianError(p.disparity_px, plane.disparity_px, plane_mask), exact);

  const auto fractional = renderStep(kSize, 12.5f, 12.5f, cv::Rect(), 7);
  const StereoOutput f = run(fractional, GetParam());
  EXPECT_LT(medianError(f.disparity_px, fractional.disparity_px, awayFromEdges(fractional, 4)), exact);

  const auto step = renderStep(kSize, 8.f, 24.f, cv::Rect(110, 70, 100, 100), 3);
  const StereoOutput s = run(step, GetParam());
  const cv::Mat step_mask = awayFromEdges(step, 6);
  const cv::Mat front = step_mask & (step.disparity_px == 24.f);
  const cv::Mat back = step_mask & (step.disparity_px == 8.f);
  EXPECT_GT(shareWithin(s.disparity_px, step.disparity_px, front, 1.f), 0.95);
  EXPECT_GT(shareWithin(s.disparity_px, step.disparity_px, back, 1.f), 0.95);
}

TEST_P(DepthModeTest, ConfidenceDoubtsDepthEdgesMoreThanFlatSurfaces) {
  const auto step = renderStep(kSize, 8.f, 24.f, cv::Rect(110, 70, 100, 100), 5);
  const StereoOutput s = run(step, GetParam());
  ASSERT_EQ(s.confidence.size(), kSize);
  double lo = 0, hi = 0;
  cv::minMaxLoc(s.confidence, &lo, &hi, nullptr, nullptr, s.confidence == s.confidence);
  EXPECT_GE(lo, 1.0);
  EXPECT_LE(hi, 100.0);
  // Along the box's vertical edges versus the middle of the box.
  cv::Mat edge_band(kSize, CV_8U, cv::Scalar(0)), middle(kSize, CV_8U, cv::Scalar(0));
  edge_band(cv::Rect(106, 80, 8, 80)).setTo(255);
  edge_band(cv::Rect(206, 80, 8, 80)).setTo(255);
  middle(cv::Rect(130, 90, 60, 60)).setTo(255);
  const cv::Mat valid = s.confidence == s.confidence;
  EXPECT_GT(cv::mean(s.confidence, edge_band & valid)[0], cv::mean(s.confidence, middle & valid)[0] + 10.0);
  // Texture doubt: flat grey is as doubtful as it gets, the random texture is not.
  EXPECT_LT(cv::mean(s.texture_confidence)[0], 50.0);
}

INSTANTIATE_TEST_SUITE_P(Modes, DepthModeTest,
                         ::testing::Values(DEPTH_MODE::PERFORMANCE, DEPTH_MODE::QUALITY, DEPTH_MODE::ULTRA),
                         [](const auto& info) { return std::string(toString(info.param).c_str()); });

TEST(DepthEngine, RefusesBadInputWithAReason) {
  const auto pair = renderStep(cv::Size(64, 32), 4.f, 4.f, cv::Rect());
  StereoParameters params;
  params.max_disparity_px = 16;
  StereoOutput out;
  std::string error;
  EXPECT_FALSE(computeStereo(cv::Mat(), pair.right, params, out, error));
  EXPECT_FALSE(error.empty());
  error.clear();
  EXPECT_FALSE(computeStereo(pair.left, pair.right(cv::Rect(0, 0, 60, 32)), params, out, error));
  EXPECT_NE(error.find("size"), std::string::npos);
  cv::Mat floats;
  pair.left.convertTo(floats, CV_32F);
  EXPECT_FALSE(computeStereo(floats, floats, params, out, error));
  EXPECT_FALSE(
      computeStereo(pair.left(cv::Rect(0, 0, 20, 10)), pair.right(cv::Rect(0, 0, 20, 10)), params, out, error));
  params.max_disparity_px = 65;
  EXPECT_FALSE(computeStereo(pair.left, pair.right, params, out, error));
  params.max_disparity_px = 0;
  EXPECT_FALSE(computeStereo(pair.left, pair.right, params, out, error));
  params.max_disparity_px = 16;
  for (DEPTH_MODE mode : {DEPTH_MODE::NONE, DEPTH_MODE::NEURAL, static_cast<DEPTH_MODE>(42)}) {
    params.mode = mode;
    EXPECT_FALSE(computeStereo(pair.left, pair.right, params, out, error));
  }
  EXPECT_TRUE(out.disparity_px.empty());
  // Colour input is accepted and matched on its grey levels.
  params.mode = DEPTH_MODE::PERFORMANCE;
  cv::Mat left_bgr, right_bgr;
  cv::cvtColor(pair.left, left_bgr, cv::COLOR_GRAY2BGR);
  cv::cvtColor(pair.right, right_bgr, cv::COLOR_GRAY2BGR);
  EXPECT_TRUE(computeStereo(left_bgr, right_bgr, params, out, error)) << error;
  EXPECT_EQ(out.disparity_px.size(), pair.left.size());
}

}  // namespace
}  // namespace pv::internal
