#include <opencv2/ximgproc/edge_filter.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat filterEdgeAware(const cv::Mat& disparity_px, const cv::Mat& lr_diff_px, const cv::Mat& guide_gray,
                        double lambda, double sigma_color) {
  CV_Assert(disparity_px.type() == CV_32F && guide_gray.type() == CV_8UC1 && guide_gray.size() == disparity_px.size());
  // Weight of each measurement: none where invalid, less the more the two views disagree.
  const cv::Mat valid = disparity_px == disparity_px;
  cv::Mat weight(disparity_px.size(), CV_32F, cv::Scalar(1.f));
  if (!lr_diff_px.empty()) {
    CV_Assert(lr_diff_px.size() == disparity_px.size() && lr_diff_px.type() == CV_32F);
    cv::Mat diff = lr_diff_px.clone();
    diff.setTo(0, invalidMask(diff));
    cv::exp(-diff.mul(diff), weight);
  }
  weight.setTo(0, ~valid);
  cv::Mat weighted = disparity_px.mul(weight);
  weighted.setTo(0, ~valid);
  // Normalised smoothing: smooth(w * d) / smooth(w) spreads values only between pixels that look
  // alike in the guide, so edges of the image stay edges of the disparity.
  cv::Mat num, den;
  cv::ximgproc::fastGlobalSmootherFilter(guide_gray, weighted, num, lambda, sigma_color);
  cv::ximgproc::fastGlobalSmootherFilter(guide_gray, weight, den, lambda, sigma_color);
  cv::Mat out;
  cv::divide(num, den, out);
  out.setTo(std::numeric_limits<float>::quiet_NaN(), den < 1e-3f);
  return out;
}

}  // namespace pv::internal
