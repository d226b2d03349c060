// Rectified stereo pairs with ground-truth disparity, read from a folder in the Middlebury layout,
// and the error figures of a disparity map against them.
#pragma once

#include <opencv2/core.hpp>
#include <string>

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

/// Reads a one-channel PFM file into CV_32F (rows top to bottom). False when unreadable.
bool readPfm(const std::string& path, cv::Mat& out, std::string& error);

/// 255 where `gt_disparity_px` is known and the point is seen by the right camera: inside the
/// right image and not hidden by a nearer surface.
cv::Mat visibleInRight(const cv::Mat& gt_disparity_px);

/// Figures of an estimate against the ground truth over a mask. A pixel without estimate counts
/// as bad; the mean absolute error is taken over pixels that have one.
struct DisparityErrors {
  double bad1_pct = 0, bad2_pct = 0, mae_px = 0, valid_pct = 0;
  int pixels = 0;  ///< pixels evaluated
};

/// `estimate_px` CV_32F (NaN or non-finite where invalid) at the ground truth's size.
DisparityErrors compareDisparity(const cv::Mat& estimate_px, const cv::Mat& gt_disparity_px, const cv::Mat& mask);

}  // namespace pv::internal
