#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core/utility.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat upsampleDisparity(const cv::Mat& disparity_px, cv::Size full_size) {
  CV_Assert(disparity_px.type() == CV_32F && !disparity_px.empty() && full_size.area() > 0);
  if (disparity_px.size() == full_size) return disparity_px.clone();
  const float scale = static_cast<float>(full_size.width) / static_cast<float>(disparity_px.cols);
  const float sx = static_cast<float>(disparity_px.cols) / full_size.width;
  const float sy = static_cast<float>(disparity_px.rows) / full_size.height;
  const int w = disparity_px.cols, h = disparity_px.rows;
  cv::Mat out(full_size, CV_32F);
  cv::parallel_for_(cv::Range(0, full_size.height), [&](const cv::Range& rows) {
    for (int y = rows.start; y < rows.end; ++y) {
      const float fy = std::max(0.f, (static_cast<float>(y) + 0.5f) * sy - 0.5f);
      const int y0 = std::min(static_cast<int>(fy), h - 1), y1 = std::min(y0 + 1, h - 1);
      const float ay = fy - static_cast<float>(y0);
      const int yn = std::min(static_cast<int>((static_cast<float>(y) + 0.5f) * sy), h - 1);
      const float* r0 = disparity_px.ptr<float>(y0);
      const float* r1 = disparity_px.ptr<float>(y1);
      const float* rn = disparity_px.ptr<float>(yn);
      float* o = out.ptr<float>(y);
      for (int x = 0; x < full_size.width; ++x) {
        const float fx = std::max(0.f, (static_cast<float>(x) + 0.5f) * sx - 0.5f);
        const int x0 = std::min(static_cast<int>(fx), w - 1), x1 = std::min(x0 + 1, w - 1);
        const float ax = fx - static_cast<float>(x0);
        const float a = r0[x0], b = r0[x1], c = r1[x0], d = r1[x1];
        const float nearest = rn[std::min(static_cast<int>((static_cast<float>(x) + 0.5f) * sx), w - 1)];
        // Bilinear only between four valid values within a pixel of each other (NaN fails both
        // comparisons); nearest elsewhere, so edges never get in-between values.
        const float hi = std::max(std::max(a, b), std::max(c, d)), lo = std::min(std::min(a, b), std::min(c, d));
        const bool smooth = a == a && b == b && c == c && d == d && hi - lo < 1.f;
        o[x] = scale * (smooth ? (1 - ay) * ((1 - ax) * a + ax * b) + ay * ((1 - ax) * c + ax * d) : nearest);
      }
    }
  });
  return out;
}

}  // namespace pv::internal
