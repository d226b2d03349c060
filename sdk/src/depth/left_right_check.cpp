#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

/// One row of the check, without branches so that it vectorises.
PV_VECTOR_CLONES
void checkRow(float* __restrict left, const float* __restrict right, int w, float max_diff_px, float* __restrict diff) {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  for (int x = 0; x < w; ++x) {
    const float d = left[x];
    // Its match in the right image: x - d rounded half away from zero, as std::lround does (in
    // double, where adding the half is exact). A match left of the right image (rounding below
    // zero) is a guess of the smoothness; so is any invalid value.
    const float at = static_cast<float>(x) - d;
    const bool inside = (d - d == 0.f) & (at > -0.5f);
    const int xr = inside ? std::min(static_cast<int>(static_cast<double>(at) + 0.5), w - 1) : 0;
    const float r = right[xr];
    const bool seen = inside & (r - r == 0.f);
    const float disagreement = std::abs(d - r);
    diff[x] = seen ? disagreement : kNaN;
    left[x] = seen & (disagreement <= max_diff_px) ? d : kNaN;
  }
}

}  // namespace

cv::Mat leftRightCheck(cv::Mat& left_px, const cv::Mat& right_px, float max_diff_px) {
  CV_Assert(left_px.type() == CV_32F && right_px.type() == CV_32F && left_px.size() == right_px.size());
  cv::Mat diff(left_px.size(), CV_32F);
  forEachRow(left_px.rows, [&](int y) {
    checkRow(left_px.ptr<float>(y), right_px.ptr<float>(y), left_px.cols, max_diff_px, diff.ptr<float>(y));
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
