#include <cmath>
#include <limits>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat leftRightCheck(cv::Mat& left_px, const cv::Mat& right_px, float max_diff_px) {
  CV_Assert(left_px.type() == CV_32F && right_px.type() == CV_32F && left_px.size() == right_px.size());
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  cv::Mat diff(left_px.size(), CV_32F, cv::Scalar(kNaN));
  for (int y = 0; y < left_px.rows; ++y) {
    float* dl = left_px.ptr<float>(y);
    const float* dr = right_px.ptr<float>(y);
    float* out = diff.ptr<float>(y);
    for (int x = 0; x < left_px.cols; ++x) {
      if (!std::isfinite(dl[x])) continue;
      const int xr = static_cast<int>(std::lround(x - dl[x]));
      if (xr < 0) continue;  // not seen by the right camera: nothing to compare with
      if (!std::isfinite(dr[xr])) {
        dl[x] = kNaN;
        continue;
      }
      out[x] = std::abs(dl[x] - dr[xr]);
      if (out[x] > max_diff_px) dl[x] = kNaN;
    }
  }
  return diff;
}

}  // namespace pv::internal
