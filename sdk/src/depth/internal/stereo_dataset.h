// Rectified stereo pairs with ground-truth disparity, read from a folder in the Middlebury layout,
// and the error figures of a disparity map against them.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace pv::internal {

/// One rectified pair with its ground truth, left image as reference.
struct StereoSample {
  std::string name;
  cv::Mat left_bgr, right_bgr;  ///< CV_8UC3
  cv::Mat gt_disparity_px;      ///< CV_32F, NaN where unknown
  cv::Mat eval_mask;            ///< CV_8U, 255 where known and visible in the right image
  bool mask_from_file = false;  ///< false: occlusions derived from the ground truth
  int max_disparity_px = 0;     ///< search range the data set states (0: unknown)
};

/// Reads `dir`: im0/im1 or imL/imR; ground truth disp0.pfm (+inf unknown), or groundtruth.png /
/// disp0.png scaled by info.txt's first number (0 unknown); calib.txt (ndisp) or info.txt (max
/// disparity); occlusion mask nonocc.png or mask0nocc.png when present, else derived from the
/// ground truth. Returns false with `error` set when something is missing or unreadable.
bool loadStereoSample(const std::string& dir, StereoSample& sample, std::string& error);

/// The search range to match a sample over: the data set's own unless it is a placeholder (half
/// the width or more, as some calib.txt files give), else 1.5 times its largest true disparity.
int searchRangeFor(const StereoSample& sample);

/// Reads a one-channel PFM file into CV_32F (rows top to bottom). False when unreadable.
bool readPfm(const std::string& path, cv::Mat& out, std::string& error);

/// 255 where `gt_disparity_px` is known and the point is seen by the right camera: inside the
/// right image and not hidden by a nearer surface.
cv::Mat visibleInRight(const cv::Mat& gt_disparity_px);

/// Figures of an estimate against the ground truth over a mask. The bad-pixel rates ending in
/// `_pct` are dense: a pixel without estimate counts as bad. `bad2_returned_pct` counts only the
/// pixels that have one; so does the mean absolute error.
struct DisparityErrors {
  double bad05_pct = 0, bad1_pct = 0, bad2_pct = 0, mae_px = 0;
  double valid_pct = 0;          ///< pixels returned over pixels evaluated (the density)
  double bad2_returned_pct = 0;  ///< bad-2px among the returned pixels
  int pixels = 0;                ///< pixels evaluated
  int returned = 0;              ///< of those, pixels with an estimate
};

/// `estimate_px` CV_32F (NaN or non-finite where invalid) at the ground truth's size.
DisparityErrors compareDisparity(const cv::Mat& estimate_px, const cv::Mat& gt_disparity_px, const cv::Mat& mask);

/// Bad-2px among the `count` most confident returned pixels of the mask: those of lowest
/// `confidence` (CV_32F, 1 sure .. 100 unsure, as the engine gives it). Pixels tied with the last
/// one taken count with the bad share of their tie. All returned pixels when fewer than `count`
/// were returned; 0 when none was.
double bad2AmongMostConfident(const cv::Mat& estimate_px, const cv::Mat& confidence, const cv::Mat& gt_disparity_px,
                              const cv::Mat& mask, int count);

/// One point of a sparsification curve: density (percent of the evaluated pixels) and bad-2px
/// among the pixels kept.
struct SparsificationPoint {
  double density_pct = 0, bad2_pct = 0;
};

/// Bad-2px among the most confident returned pixels at each density of `densities_pct` (percent
/// of the pixels evaluated; a density above the returned one gives all returned pixels).
std::vector<SparsificationPoint> sparsificationCurve(const cv::Mat& estimate_px, const cv::Mat& confidence,
                                                     const cv::Mat& gt_disparity_px, const cv::Mat& mask,
                                                     const std::vector<double>& densities_pct);

}  // namespace pv::internal
