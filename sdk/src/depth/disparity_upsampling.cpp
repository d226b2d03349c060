#include <opencv2/imgproc.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat upsampleDisparity(const cv::Mat& disparity_px, cv::Size full_size) {
  CV_Assert(disparity_px.type() == CV_32F && !disparity_px.empty());
  const float scale = static_cast<float>(full_size.width) / static_cast<float>(disparity_px.cols);
  if (disparity_px.size() == full_size) return disparity_px.clone();
  const cv::Mat valid = disparity_px == disparity_px;
  // Neighbourhood extremes over valid pixels only: a pixel is "smooth" when they are close.
  cv::Mat highs = disparity_px.clone(), lows = disparity_px.clone();
  highs.setTo(-1e9f, ~valid);
  lows.setTo(1e9f, ~valid);
  cv::dilate(highs, highs, cv::Mat());
  cv::erode(lows, lows, cv::Mat());
  const cv::Mat smooth = (highs - lows) < 1.0f;
  const cv::Mat all_valid = [&] {
    cv::Mat m;
    cv::erode(valid, m, cv::Mat());
    return m;
  }();

  cv::Mat zeroed = disparity_px.clone();
  zeroed.setTo(0, ~valid);
  cv::Mat linear, nearest, smooth_full;
  cv::resize(zeroed, linear, full_size, 0, 0, cv::INTER_LINEAR);
  cv::resize(disparity_px, nearest, full_size, 0, 0, cv::INTER_NEAREST);
  cv::resize(smooth & all_valid, smooth_full, full_size, 0, 0, cv::INTER_NEAREST);
  nearest.copyTo(linear, ~smooth_full);
  linear *= scale;  // NaN stays NaN
  return linear;
}

}  // namespace pv::internal
