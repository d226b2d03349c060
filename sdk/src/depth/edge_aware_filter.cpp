#include <limits>

#include "depth/internal/global_smoother.h"
#include "depth/internal/stereo_stages.h"

namespace pv::internal {

cv::Mat filterEdgeAware(const cv::Mat& disparity_px, const cv::Mat& weight_in, const cv::Mat& guide_gray, double lambda,
                        double sigma_color, int iterations) {
  CV_Assert(disparity_px.type() == CV_32F && guide_gray.type() == CV_8UC1 && guide_gray.size() == disparity_px.size());
  CV_Assert(weight_in.empty() || (weight_in.type() == CV_32F && weight_in.size() == disparity_px.size()));
  // Smoothed weighted values over smoothed weights; an invalid pixel weighs nothing.
  cv::Mat num(disparity_px.size(), CV_32F), den(disparity_px.size(), CV_32F);
  forEachRow(disparity_px.rows, [&](int y) {
    const float* d = disparity_px.ptr<float>(y);
    const float* w = weight_in.empty() ? nullptr : weight_in.ptr<float>(y);
    float* n = num.ptr<float>(y);
    float* s = den.ptr<float>(y);
    for (int x = 0; x < disparity_px.cols; ++x) {
      const bool valid = d[x] == d[x];
      s[x] = valid ? (w ? w[x] : 1.f) : 0.f;
      n[x] = valid ? d[x] * s[x] : 0.f;
    }
  });
  // One smoother for both: its weights come from the guide alone.
  GlobalSmoother(guide_gray, lambda, sigma_color, 0.25, iterations).filter(num, den);
  cv::Mat out(disparity_px.size(), CV_32F);
  forEachRow(out.rows, [&](int y) {
    const float* n = num.ptr<float>(y);
    const float* s = den.ptr<float>(y);
    float* o = out.ptr<float>(y);
    for (int x = 0; x < out.cols; ++x) o[x] = s[x] < 1e-3f ? std::numeric_limits<float>::quiet_NaN() : n[x] / s[x];
  });
  return out;
}

}  // namespace pv::internal
