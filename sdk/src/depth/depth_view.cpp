#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "depth/internal/depth_module.h"

namespace pv::internal {

cv::Mat drawDepth(const cv::Mat& depth_m, bool colour) {
  CV_Assert(depth_m.type() == CV_32F);
  const cv::Mat valid = depth_m == depth_m;
  // The nearest and farthest depths of the frame, ignoring the extreme 1% on each side.
  std::vector<float> values;
  values.reserve(static_cast<size_t>(cv::countNonZero(valid)));
  for (int y = 0; y < depth_m.rows; y += 2) {
    const float* d = depth_m.ptr<float>(y);
    for (int x = 0; x < depth_m.cols; x += 2)
      if (d[x] == d[x]) values.push_back(d[x]);
  }
  float near_m = 0.f, far_m = 1.f;
  if (!values.empty()) {
    std::sort(values.begin(), values.end());
    near_m = values[values.size() / 100];
    far_m = values[values.size() - 1 - values.size() / 100];
  }
  if (far_m - near_m < 1e-3f) far_m = near_m + 1e-3f;
  // 255 near .. 0 far for the grey picture; the colour map runs from warm (near) to cold (far).
  cv::Mat level;
  depth_m.convertTo(level, CV_8U, -255.0 / (far_m - near_m), 255.0 * far_m / (far_m - near_m));
  cv::Mat bgr;
  if (colour) {
    cv::applyColorMap(level, bgr, cv::COLORMAP_TURBO);
  } else {
    cv::cvtColor(level, bgr, cv::COLOR_GRAY2BGR);
  }
  bgr.setTo(cv::Scalar::all(0), ~valid);
  cv::Mat bgra;
  cv::cvtColor(bgr, bgra, cv::COLOR_BGR2BGRA);
  return bgra;
}

}  // namespace pv::internal
