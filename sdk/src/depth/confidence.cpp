#include <opencv2/imgproc.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

namespace {
// Doubt of a roughness of `rough_px` (3x3 disparity spread) or a left-right disagreement.
constexpr float kRoughnessForFullDoubt = 4.f;
constexpr float kLrDiffForFullDoubt = 2.f;
// Local contrast (grey-level standard deviation, 5x5) at which the texture doubt falls to 1/e.
constexpr float kContrastScale = 6.f;
// Pixels of full doubt weigh as little as ones whose views disagree by this many pixels.
constexpr float kDoubtToDisagreement = 4.f;
}  // namespace

cv::Mat disparityConfidence(const cv::Mat& disparity_px, const cv::Mat& lr_diff_px) {
  CV_Assert(disparity_px.type() == CV_32F);
  const cv::Mat valid = disparity_px == disparity_px;
  cv::Mat highs = disparity_px.clone(), lows = disparity_px.clone();
  highs.setTo(-1e9f, ~valid);
  lows.setTo(1e9f, ~valid);
  cv::dilate(highs, highs, cv::Mat());
  cv::erode(lows, lows, cv::Mat());
  cv::Mat doubt = (highs - lows) / kRoughnessForFullDoubt;
  if (!lr_diff_px.empty()) {
    CV_Assert(lr_diff_px.size() == disparity_px.size() && lr_diff_px.type() == CV_32F);
    cv::Mat lr = lr_diff_px / kLrDiffForFullDoubt;
    lr.setTo(0, invalidMask(lr));
    doubt = cv::max(doubt, lr);
  }
  cv::Mat conf = 1.f + 99.f * cv::min(doubt, 1.f);
  conf.setTo(std::numeric_limits<float>::quiet_NaN(), ~valid);
  return conf;
}

cv::Mat measurementWeight(const cv::Mat& confidence, const cv::Mat& lr_diff_px) {
  CV_Assert(confidence.type() == CV_32F);
  const cv::Mat valid = validMask(confidence);
  cv::Mat u = (confidence - 1.f) * (kDoubtToDisagreement / 99.f);
  if (!lr_diff_px.empty()) {
    CV_Assert(lr_diff_px.size() == confidence.size() && lr_diff_px.type() == CV_32F);
    cv::Mat lr = lr_diff_px.clone();
    lr.setTo(0, invalidMask(lr));
    u += lr;
  }
  cv::Mat weight;
  cv::exp(-u.mul(u), weight);
  weight.setTo(0, ~valid);
  return weight;
}

cv::Mat textureConfidence(const cv::Mat& gray) {
  CV_Assert(gray.type() == CV_8UC1);
  cv::Mat f, mean, mean_sq;
  gray.convertTo(f, CV_32F);
  cv::boxFilter(f, mean, CV_32F, cv::Size(5, 5));
  cv::boxFilter(f.mul(f), mean_sq, CV_32F, cv::Size(5, 5));
  cv::Mat variance = cv::max(mean_sq - mean.mul(mean), 0.f), sigma, doubt;
  cv::sqrt(variance, sigma);
  cv::exp(-sigma / kContrastScale, doubt);
  return cv::max(100.f * doubt, 1.f);
}

cv::Mat saturationMask(const cv::Mat& gray) {
  CV_Assert(gray.type() == CV_8UC1);
  cv::Mat mask = gray >= 250, grown;
  cv::dilate(mask, grown, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(5, 5)));
  return grown;
}

}  // namespace pv::internal
