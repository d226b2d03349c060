// The stages of the stereo depth pipeline, each a CPU entry point on plain cv::Mat (each defined in
// its own file). Disparities are CV_32F pixels with NaN where invalid; the left image is the
// reference unless a name says otherwise. GPU kernels are tested against these.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

namespace pv::internal {

/// Runs `row(y)` for y = 0 .. rows - 1, the rows shared out between the cores.
template <typename Row>
void forEachRow(int rows, const Row& row) {
  cv::parallel_for_(cv::Range(0, rows), [&](const cv::Range& range) {
    for (int y = range.start; y < range.end; ++y) row(y);
  });
}

/// 255 where `m` (CV_32F) holds a number, 0 where NaN. (OpenCV's `m != m` misses NaN in its
/// vectorised path, `m == m` does not.)
inline cv::Mat validMask(const cv::Mat& m) { return m == m; }
/// 255 where `m` (CV_32F) is NaN.
inline cv::Mat invalidMask(const cv::Mat& m) {
  cv::Mat valid = m == m;
  return ~valid;
}

/// Centre-symmetric census over a 9x7 window (census.cpp): per pixel (CV_32S, read as uint32)
/// bit k is set when the k-th pixel of the window's upper half is brighter than its mirror image
/// through the centre (31 pairs). Borders are replicated. `gray` CV_8UC1.
cv::Mat censusTransform(const cv::Mat& gray);

/// Semi-global matching settings (census_sgm.cpp). Costs are census Hamming distances (0..31)
/// plus a capped difference of the images' horizontal gradients.
struct SgmParameters {
  int num_disparities = 64;  ///< search range 0..num-1, a multiple of 16, at most 256
  int p1 = 22;               ///< small-jump penalty
  int p2 = 130;              ///< large-jump penalty (lowered across intensity edges)
  int uniqueness_pct = 10;   ///< margin the best cost must win by, percent
  bool with_right = false;   ///< also the right image's disparity, from the same costs
  bool with_margin = false;  ///< also each left pixel's winning margin (SgmResult::margin)
  int ad_cap = 8;            ///< 0: census only; else the difference of horizontal gradients,
                             ///< capped at this, is added to the cost
  int kernel = -1;           ///< -1: the fastest the CPU runs; else 0 baseline, 1 AVX2, 2 AVX-512,
                             ///< 3 AVX-512 with bit counts (tests compare them)
};

/// Rows a stripe of the matcher runs its downward paths through before its first row.
constexpr int kSgmWarmupRows = 24;

struct SgmResult {
  cv::Mat left_px;   ///< CV_32F, sub-pixel (equiangular fit through the aggregated costs), NaN where not unique
  cv::Mat right_px;  ///< CV_32F, whole pixels (positive: the match in the left image lies at x + d)
  /// CV_8U: 255 (runner-up - winner) / runner-up of the aggregated costs, the runner-up the best
  /// cost away from the winner's neighbours; near 0 where another disparity fits about as well.
  cv::Mat margin;
};

/// Semi-global matching of a rectified pair (`left` and `right` CV_8UC1 of one size). Left pixels
/// whose matches would fall left of the right image are matched by smoothness alone.
SgmResult censusSgm(const cv::Mat& left, const cv::Mat& right, const SgmParameters& params);
/// Whether this build and CPU run matcher kernel `kernel` (see SgmParameters::kernel).
bool sgmKernelRuns(int kernel);

/// What the refinement saw at each pixel besides its disparity.
struct RefinementCues {
  cv::Mat cost;      ///< CV_16U: the winner's census cost summed over the window
  cv::Mat at_limit;  ///< CV_8U: 1 where the winner lies at the end of the search, 0 elsewhere
};

/// Disparity of the left image searched only within `radius` pixels of a prior (CV_32F at this
/// level, NaN where unknown), the census costs (census_left/right, of this level's pair) summed
/// over a `window` x `window` box; sub-pixel by an equiangular fit (disparity_refinement.cpp). NaN where
/// the prior is NaN. `vectorised` false keeps the costs off the vector kernel (tests compare). With
/// `cues`, also the winner's cost and whether it lies at the end of the search (the match may lie
/// beyond: the prior was off).
cv::Mat refineDisparity(const cv::Mat& census_left, const cv::Mat& census_right, const cv::Mat& prior_px, int radius,
                        int window, bool vectorised = true, RefinementCues* cues = nullptr);

/// Invalidates left disparities whose match in the right disparity map disagrees by more than
/// `max_diff_px` (left_right_check.cpp). Returns |d_left - d_right| per pixel (NaN where there is
/// nothing to compare); `left_px` is changed in place.
cv::Mat leftRightCheck(cv::Mat& left_px, const cv::Mat& right_px, float max_diff_px);

/// 255 for the left pixels of each row that lie left of where the right camera's view begins (the
/// leftmost right pixels' matches, pooled over neighbouring rows by a median), 0 elsewhere
/// (left_right_check.cpp): those have no match.
cv::Mat unseenByRight(const cv::Mat& right_px);

/// Invalidates connected regions of fewer than `max_speckle_px` pixels whose neighbours differ by
/// at most `max_diff_px` (speckle_filter.cpp).
void removeSpeckles(cv::Mat& disparity_px, int max_speckle_px, float max_diff_px);

/// Disparity at `full_size`, values scaled by the width ratio (disparity_upsampling.cpp).
/// Bilinear where the 3x3 neighbourhood agrees within one pixel, nearest elsewhere (no mixing of
/// foreground and background at edges).
cv::Mat upsampleDisparity(const cv::Mat& disparity_px, cv::Size full_size);
/// upsampleDisparity, and `confidence` (CV_32F, the disparity's size) brought to `full_size` by
/// nearest neighbour, NaN wherever the upsampled disparity is NaN (one pass over the output when
/// the size doubles).
void upsampleWithConfidence(const cv::Mat& disparity_px, const cv::Mat& confidence, cv::Size full_size,
                            cv::Mat& disparity_out, cv::Mat& confidence_out);
/// Row `y` of upsampleWithConfidence to exactly twice the size, into `disparity_out` and
/// `confidence_out` (twice the width each), for callers that go on with the row while it is in the
/// cache. `scratch` holds 6 * (width + 2) floats.
void upsampleRowTwice(const cv::Mat& disparity_px, const cv::Mat& confidence, int y, float* scratch,
                      float* disparity_out, float* confidence_out);

/// Edge-aware smoothing of a disparity map guided by the left image (edge_aware_filter.cpp): a
/// weighted fast global smoother, smooth(w * d) / smooth(w), so values spread only between pixels
/// that look alike in the guide; holes get values from similar-looking neighbours. `weight` CV_32F
/// in 0..1 (empty: 1 for every valid pixel). `lambda` sets the strength, `sigma_color` the
/// grey-level difference that stops it, `iterations` the smoother's passes (1 is nearly as good
/// as 3 here, at a third of the time).
cv::Mat filterEdgeAware(const cv::Mat& disparity_px, const cv::Mat& weight, const cv::Mat& guide_gray, double lambda,
                        double sigma_color, int iterations = 1);

/// Per-pixel doubt 1 (sure) .. 100 (unsure) from the disparity's local roughness and the
/// left-right disagreement (`lr_diff_px`, may be empty) (confidence.cpp). NaN where invalid.
cv::Mat disparityConfidence(const cv::Mat& disparity_px, const cv::Mat& lr_diff_px);
/// What is known of each pixel of a filtered disparity besides the values (every Mat may be empty).
struct DoubtCues {
  cv::Mat margin;             ///< CV_8U: the matcher's winning margin (SgmResult::margin)
  cv::Mat base_doubt;         ///< CV_32F: doubt carried over from a coarser level
  RefinementCues refinement;  ///< what a refinement saw (refineDisparity)
  int refinement_window = 0;  ///< that refinement's window, pixels (with its costs)
};

/// Doubt of each pixel of `filtered_px`, the edge-aware filter's result from `matched_px` (the
/// matcher's or the refinement's disparity after its checks, NaN where they rejected it), in
/// pixels of correction that doubt as much (match_doubt.cpp): the further the filter moved the
/// value the more, a fixed large share where the filter invented it; more the closer the
/// matcher's runner-up came, where a refinement's winner lies at the end of its search and the
/// higher its census cost; plus the base doubt. 0 is a match the filter kept, far ahead of every
/// other disparity. NaN where `filtered_px` is.
cv::Mat matchDoubt(const cv::Mat& filtered_px, const cv::Mat& matched_px, const DoubtCues& cues);
/// The confidence scale, 1 (sure) .. 100 (unsure), of a doubt (matchDoubt); NaN stays NaN.
cv::Mat confidenceOfDoubt(const cv::Mat& doubt);
/// Weight of each measurement for filterEdgeAware from its doubt (matchDoubt): exp(-(scale *
/// doubt)^2), 0 where NaN.
cv::Mat weightOfDoubt(const cv::Mat& doubt, float scale = 1.f);
/// Weight of each measurement for filterEdgeAware (confidence.cpp): exp(-u^2) with u the
/// left-right disagreement in pixels (`lr_diff_px`, may be empty) plus four times the doubt
/// fraction (confidence - 1) / 99; 0 where `confidence` is NaN.
cv::Mat measurementWeight(const cv::Mat& confidence, const cv::Mat& lr_diff_px);
/// Per-pixel doubt 1 (strong texture) .. 100 (flat) from the local contrast of `gray`.
cv::Mat textureConfidence(const cv::Mat& gray);
/// 255 where `gray` is saturated (>= 250), grown by two pixels.
cv::Mat saturationMask(const cv::Mat& gray);

/// Fills NaN holes of a disparity map from the farther (smaller-disparity) side of each hole, row
/// by row, then column by column for rows without any value (hole_fill.cpp). Unchanged when no
/// pixel is valid.
void fillHoles(cv::Mat& disparity_px);

}  // namespace pv::internal
