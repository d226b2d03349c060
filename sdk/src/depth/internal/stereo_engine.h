// The stereo depth engine: a rectified grey pair in, disparity and confidence out, in one of the
// depth modes. Needs no camera, so data sets and tests drive it directly.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "pv/defines.h"

namespace pv::internal {

struct StereoParameters {
  DEPTH_MODE mode = DEPTH_MODE::QUALITY;  ///< PERFORMANCE, QUALITY or ULTRA
  int max_disparity_px = 128;             ///< search range at the input's resolution, pixels
  bool with_texture_confidence = false;   ///< also fill StereoOutput::texture_confidence
  /// Where the mode's last step would only double a half-size result, leave that to the caller
  /// (StereoOutput::half_*), which can go on with each doubled row while it is in the cache.
  bool half_size_output = false;
};

/// Result at the input's full resolution.
struct StereoOutput {
  cv::Mat disparity_px;  ///< CV_32F, NaN where invalid
  cv::Mat confidence;    ///< CV_32F, 1 (sure) .. 100 (unsure), NaN where invalid
  /// With half_size_output, when the input has even sizes and the mode ends on a doubling: the
  /// half-size disparity (in its own pixels) and confidence that upsampleWithConfidence brings to
  /// the full size; disparity_px and confidence are empty then.
  cv::Mat half_disparity_px, half_confidence;
  cv::Mat texture_confidence;  ///< CV_32F, 1 (strong texture) .. 100 (flat); empty when not asked for
  double elapsed_ms = 0;
};

/// How a mode works: matching resolution and the stages it runs.
struct ModeRecipe {
  double scale = 0.5;  ///< matching resolution relative to the input
  /// Largest search matched in full, pixels times disparities; larger ones coarse to fine (0: never)
  double max_search_cost = 0;
  int refine_radius_px = 2;       ///< coarse to fine: disparities searched on each side of the prior
  int full_refine_radius_px = 0;  ///< reduced-resolution modes: disparities searched at full size
  int full_refine_window_px = 9;  ///< and the cost window there
  int refine_window_px = 5;       ///< coarse to fine: cost window of the refinement
  int uniqueness_pct = 0;         ///< matcher's uniqueness margin (0: none)
  int speckle_px = 0;             ///< speckle removal size at the matching resolution (0: off)
  float lr_max_diff_px = 1.f;     ///< left-right disagreement that invalidates a pixel
  bool edge_aware = false;        ///< confidence-weighted smoothing guided by the image
  double edge_lambda = 500;       ///< its strength
  double full_edge_lambda = 100;  ///< its strength after a refinement at full size
  double edge_sigma = 4;          ///< grey-level difference that stops it
};

/// The recipe of `mode`; NONE and NEURAL have none (false).
bool recipeFor(DEPTH_MODE mode, ModeRecipe& recipe);

/// Runs the mode's stages on `left` and `right` (CV_8UC1, or CV_8UC3 BGR converted to grey; same
/// size, at least 32x16 pixels). False with `error` set on bad input; never throws.
bool computeStereo(const cv::Mat& left, const cv::Mat& right, const StereoParameters& params, StereoOutput& out,
                   std::string& error);

/// OpenCV's StereoSGBM with its customary settings (window 3, P1 = 8*9, P2 = 32*9, uniqueness
/// 10, speckle window 100 / range 32, one-pixel left-right check), as the accuracy baseline.
/// CV_32F disparity, NaN where invalid. Throws cv::Exception on bad input (tools only).
/// `uniqueness_pct` replaces the uniqueness margin (its own way of trading density for accuracy).
cv::Mat baselineSgbmDisparity(const cv::Mat& left_gray, const cv::Mat& right_gray, int max_disparity_px,
                              int uniqueness_pct = 10);

/// Rounds a search range up to the matcher's multiple of 16 (at least 16).
int roundDisparityRange(int max_disparity_px);

}  // namespace pv::internal
