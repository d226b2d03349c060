#include <algorithm>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <vector>

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
  CV_Assert(lr_diff_px.empty() || (lr_diff_px.size() == disparity_px.size() && lr_diff_px.type() == CV_32F));
  // The 3x3 spread of the valid values: invalid pixels lose every maximum and every minimum.
  cv::Mat highs(disparity_px.size(), CV_32F), lows(disparity_px.size(), CV_32F);
  forEachRow(disparity_px.rows, [&](int y) {
    const float* d = disparity_px.ptr<float>(y);
    float* hi = highs.ptr<float>(y);
    float* lo = lows.ptr<float>(y);
    for (int x = 0; x < disparity_px.cols; ++x) {
      const bool valid = d[x] == d[x];
      hi[x] = valid ? d[x] : -1e9f;
      lo[x] = valid ? d[x] : 1e9f;
    }
  });
  cv::dilate(highs, highs, cv::Mat());
  cv::erode(lows, lows, cv::Mat());
  cv::Mat conf(disparity_px.size(), CV_32F);
  forEachRow(disparity_px.rows, [&](int y) {
    const float* d = disparity_px.ptr<float>(y);
    const float* hi = highs.ptr<float>(y);
    const float* lo = lows.ptr<float>(y);
    const float* lr = lr_diff_px.empty() ? nullptr : lr_diff_px.ptr<float>(y);
    float* out = conf.ptr<float>(y);
    for (int x = 0; x < disparity_px.cols; ++x) {
      float doubt = (hi[x] - lo[x]) / kRoughnessForFullDoubt;
      if (lr) doubt = std::max(doubt, lr[x] == lr[x] ? lr[x] / kLrDiffForFullDoubt : 0.f);
      out[x] = d[x] == d[x] ? 1.f + 99.f * std::min(doubt, 1.f) : std::numeric_limits<float>::quiet_NaN();
    }
  });
  return conf;
}

cv::Mat measurementWeight(const cv::Mat& confidence, const cv::Mat& lr_diff_px) {
  CV_Assert(confidence.type() == CV_32F);
  CV_Assert(lr_diff_px.empty() || (lr_diff_px.size() == confidence.size() && lr_diff_px.type() == CV_32F));
  // exp(-u^2) of u = doubt fraction * kDoubtToDisagreement + disagreement; 0 where invalid.
  cv::Mat exponent(confidence.size(), CV_32F), weight;
  forEachRow(confidence.rows, [&](int y) {
    const float* c = confidence.ptr<float>(y);
    const float* lr = lr_diff_px.empty() ? nullptr : lr_diff_px.ptr<float>(y);
    float* e = exponent.ptr<float>(y);
    for (int x = 0; x < confidence.cols; ++x) {
      float u = (c[x] - 1.f) * (kDoubtToDisagreement / 99.f);
      if (lr && lr[x] == lr[x]) u += lr[x];
      e[x] = -u * u;
    }
  });
  cv::exp(exponent, weight);
  forEachRow(confidence.rows, [&](int y) {
    const float* c = confidence.ptr<float>(y);
    float* wt = weight.ptr<float>(y);
    for (int x = 0; x < confidence.cols; ++x) wt[x] = c[x] == c[x] ? wt[x] : 0.f;
  });
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
