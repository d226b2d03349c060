#include <algorithm>
#include <cmath>
#include <limits>

#include "depth/internal/depth_module.h"
#include "depth/internal/stereo_stages.h"

namespace pv::internal {

DepthData filterToDepth(const StereoOutput& stereo, const cv::Mat& left_gray, double fx_px, double baseline_m,
                        const DepthFilterParameters& p) {
  CV_Assert(stereo.disparity_px.type() == CV_32F && stereo.disparity_px.size() == left_gray.size());
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  const double focal_baseline = fx_px * baseline_m;
  cv::Mat disparity = stereo.disparity_px.clone();
  cv::Mat confidence = stereo.confidence.clone();

  cv::Mat reject = invalidMask(disparity);  // already invalid
  if (p.confidence_threshold < 100) reject |= confidence > static_cast<float>(p.confidence_threshold);
  if (p.texture_confidence_threshold < 100) {
    const cv::Mat texture =
        stereo.texture_confidence.empty() ? textureConfidence(left_gray) : stereo.texture_confidence;
    reject |= texture > static_cast<float>(p.texture_confidence_threshold);
  }
  if (p.remove_saturated_areas) reject |= saturationMask(left_gray);
  // The distance limits as disparities: nearer than the minimum is a larger disparity.
  const float max_disparity =
      p.min_depth_m > 0 ? static_cast<float>(focal_baseline / p.min_depth_m) : std::numeric_limits<float>::infinity();
  const float min_disparity = p.max_depth_m > 0 ? static_cast<float>(focal_baseline / p.max_depth_m) : 0.f;
  reject |= disparity > max_disparity;
  reject |= disparity < std::max(min_disparity, 1e-3f);
  disparity.setTo(kNaN, reject);

  if (p.fill) {
    fillHoles(disparity);
    confidence.setTo(100.f, reject);
  }
  confidence.setTo(kNaN, invalidMask(disparity));

  DepthData out;
  cv::divide(focal_baseline, disparity, out.depth_m, CV_32F);  // NaN stays NaN
  out.disparity_px = disparity;
  out.confidence = confidence;
  out.valid = true;
  return out;
}

int disparityRangeFor(const RectifiedCalibration& c, float min_depth_m) {
  const double wanted = min_depth_m > 0 ? c.fx * c.baseline_m / min_depth_m : 1e9;
  const double cap = std::min(192.0, c.size.width / 4.0);
  return std::max(16, static_cast<int>(std::ceil(std::min(wanted, cap))));
}

}  // namespace pv::internal
