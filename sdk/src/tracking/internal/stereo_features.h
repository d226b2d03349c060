// Feature detection on the left image and row-wise stereo matching into the right image.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <vector>

namespace pv::internal {

struct FeatureParameters {
  int cell_px = 0;          ///< one feature at most per cell of this size; 0: about 400 cells
  int fast_threshold = 8;   ///< FAST corner threshold (grey levels)
  int border_px = 12;       ///< no features this close to the border
  int patch_radius_px = 5;  ///< stereo matching patch: (2r+1)^2
  float min_score = 0.80f;  ///< normalised cross-correlation a stereo match needs
};

/// Corners in cells of `gray` not yet holding one of `existing`, the strongest per cell.
std::vector<cv::Point2f> detectFeatures(const cv::Mat& gray, const std::vector<cv::Point2f>& existing,
                                        const FeatureParameters& parameters);

/// Disparity of each left point in the rectified right image (NaN when no reliable match).
/// `guess_px[i]` > 0 narrows the search to guess +- `guess_range_px`; otherwise the whole range
/// [min_disparity_px, max_disparity_px] is searched. Sub-pixel by a parabola through the peak.
std::vector<float> matchStereo(const cv::Mat& left, const cv::Mat& right, const std::vector<cv::Point2f>& points,
                               const std::vector<float>& guess_px, float min_disparity_px, float max_disparity_px,
                               float guess_range_px, const FeatureParameters& parameters);

/// ORB descriptors at given pixels, one row per pixel; a zero row where ORB could not describe the
/// pixel (too near the border). `octave` k describes the patch on the image shrunk by the ORB's
/// scale factor to the power k: what the full-scale patch of a surface looks like once it has
/// come that much closer.
cv::Mat describeFeatures(cv::ORB& orb, const cv::Mat& gray, const std::vector<cv::Point2f>& pixels, int octave = 0);

/// True for a descriptor row that describes nothing (all zero).
bool emptyDescriptor(const cv::Mat& row);

}  // namespace pv::internal
