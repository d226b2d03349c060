#include "depth/internal/global_smoother.h"
#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat filterEdgeAware(const cv::Mat& disparity_px, const cv::Mat& weight_in, const cv::Mat& guide_gray, double lambda,
                        double sigma_color, int iterations) {
  CV_Assert(disparity_px.type() == CV_32F && guide_gray.type() == CV_8UC1 && guide_gray.size() == disparity_px.size());
  CV_Assert(weight_in.empty() || (weight_in.type() == CV_32F && weight_in.size() == disparity_px.size()));
  // Smoothed weighted values over smoothed weights; an invalid pixel weighs nothing. One smoother
  // for both: its weights come from the guide alone.
  return GlobalSmoother(guide_gray, lambda, sigma_color, 0.25, iterations).weightedMean(disparity_px, weight_in, 1e-3f);
}

}  // namespace pv::internal
