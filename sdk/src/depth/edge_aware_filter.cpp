#include <opencv2/ximgproc/edge_filter.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat filterEdgeAware(const cv::Mat& disparity_px, const cv::Mat& weight_in, const cv::Mat& guide_gray, double lambda,
                        double sigma_color, int iterations) {
  CV_Assert(disparity_px.type() == CV_32F && guide_gray.type() == CV_8UC1 && guide_gray.size() == disparity_px.size());
  const cv::Mat valid = validMask(disparity_px);
  cv::Mat weight;
  if (weight_in.empty()) {
    weight = cv::Mat(disparity_px.size(), CV_32F, cv::Scalar(1.f));
  } else {
    CV_Assert(weight_in.type() == CV_32F && weight_in.size() == disparity_px.size());
    weight = weight_in.clone();
  }
  weight.setTo(0, ~valid);
  cv::Mat weighted = disparity_px.mul(weight);
  weighted.setTo(0, ~valid);
  cv::Mat num, den;
  constexpr double kLambdaAttenuation = 0.25;  // the smoother's default
  // One smoother for both: its weights come from the guide alone, so they are computed once.
  const cv::Ptr<cv::ximgproc::FastGlobalSmootherFilter> smoother =
      cv::ximgproc::createFastGlobalSmootherFilter(guide_gray, lambda, sigma_color, kLambdaAttenuation, iterations);
  smoother->filter(weighted, num);
  smoother->filter(weight, den);
  cv::Mat out;
  cv::divide(num, den, out);
  out.setTo(std::numeric_limits<float>::quiet_NaN(), den < 1e-3f);
  return out;
}

}  // namespace pv::internal
