#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat leftRightCheck(cv::Mat& left_px, const cv::Mat& right_px, float max_diff_px) {
  CV_Assert(left_px.type() == CV_32F && right_px.type() == CV_32F && left_px.size() == right_px.size());
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  cv::Mat diff(left_px.size(), CV_32F, cv::Scalar(kNaN));
  forEachRow(left_px.rows, [&](int y) {
    float* dl = left_px.ptr<float>(y);
    const float* dr = right_px.ptr<float>(y);
    float* out = diff.ptr<float>(y);
    for (int x = 0; x < left_px.cols; ++x) {
      if (!std::isfinite(dl[x])) continue;
      const int xr = static_cast<int>(std::lround(x - dl[x]));
      if (xr < 0) {  // its match would lie left of the right image: a guess of the smoothness
        dl[x] = kNaN;
        continue;
      }
      if (!std::isfinite(dr[xr])) {
        dl[x] = kNaN;
        continue;
      }
      out[x] = std::abs(dl[x] - dr[xr]);
      if (out[x] > max_diff_px) dl[x] = kNaN;
    }
  });
  return diff;
}

cv::Mat unseenByRight(const cv::Mat& right_px) {
  CV_Assert(right_px.type() == CV_32F);
  constexpr int kProbe = 8;      // leftmost right-image columns that tell where its view begins
  constexpr int kRowWindow = 8;  // rows on each side whose estimates are pooled (median)
  std::vector<float> first_seen(static_cast<size_t>(right_px.rows), std::numeric_limits<float>::quiet_NaN());
  for (int y = 0; y < right_px.rows; ++y) {
    const float* dr = right_px.ptr<float>(y);
    float best = std::numeric_limits<float>::infinity();
    for (int xr = 0; xr < std::min(kProbe, right_px.cols); ++xr)
      if (std::isfinite(dr[xr])) best = std::min(best, static_cast<float>(xr) + dr[xr]);
    if (std::isfinite(best)) first_seen[static_cast<size_t>(y)] = best;
  }
  cv::Mat mask(right_px.size(), CV_8U, cv::Scalar(0));
  std::vector<float> window;
  for (int y = 0; y < right_px.rows; ++y) {
    window.clear();
    for (int k = std::max(0, y - kRowWindow); k <= std::min(right_px.rows - 1, y + kRowWindow); ++k)
      if (std::isfinite(first_seen[static_cast<size_t>(k)])) window.push_back(first_seen[static_cast<size_t>(k)]);
    if (window.empty()) continue;
    std::nth_element(window.begin(), window.begin() + window.size() / 2, window.end());
    const int end = std::min(right_px.cols, static_cast<int>(std::floor(window[window.size() / 2])));
    if (end > 0) mask.row(y).colRange(0, end).setTo(255);
  }
  return mask;
}

}  // namespace pv::internal
