// Exact synthetic stereo pairs for the depth tests: textured surfaces rendered with known
// disparity.
#pragma once

#include <opencv2/core.hpp>

namespace mapura::test {

/// A rendered pair and its true left disparity.
struct SyntheticPair {
  cv::Mat left, right;   ///< CV_8UC1
  cv::Mat disparity_px;  ///< CV_32F, true disparity of every left pixel
  cv::Mat visible;       ///< CV_8U, 255 where the left pixel is seen by the right camera
};

/// Random texture (blurred noise, full contrast), deterministic from `seed`.
cv::Mat makeTexture(cv::Size size, unsigned seed);

/// A textured background plane at `background_px` with a textured rectangle `box` (left-image
/// coordinates) in front of it at `foreground_px`. Disparities may be fractional. An empty box
/// gives a single plane.
SyntheticPair renderStep(cv::Size size, float background_px, float foreground_px, cv::Rect box, unsigned seed = 1);

/// Share of `mask` pixels whose estimate lies within `tolerance_px` of the truth (NaN counts as
/// wrong), and the median absolute error over the valid ones.
double shareWithin(const cv::Mat& estimate, const cv::Mat& truth, const cv::Mat& mask, float tolerance_px);
double medianError(const cv::Mat& estimate, const cv::Mat& truth, const cv::Mat& mask);

/// Bytes that differ between two CV_32F images of one size (NaN compares unequal as a number,
/// so the bits are compared): 0 when they are the same, holes included.
inline int differingBytes(const cv::Mat& a, const cv::Mat& b) {
  const auto bytes = [](const cv::Mat& m) { return cv::Mat(m.rows, m.cols * 4, CV_8U, m.data, m.step); };
  return cv::countNonZero(bytes(a) != bytes(b));
}

}  // namespace mapura::test
