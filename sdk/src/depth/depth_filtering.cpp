#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core/utility.hpp>
#include <vector>

#include "depth/internal/depth_module.h"
#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

struct RowLimits {
  float min_disparity, max_disparity, confidence, texture, focal_baseline;
};

/// One row of filterToDepth's pixel loop, in place and without branches so that it vectorises
/// (the limits are copied to locals and the rows marked unaliased, so nothing is reloaded per
/// pixel). `kRecord`: marks the valid matches it drops in `rejected`.
template <bool kRecord>
PV_INLINE void filterRow(const RowLimits& limits, int width, float* __restrict d, float* __restrict c,
                         const float* __restrict t_in, const uint8_t* __restrict s_in, float* __restrict z,
                         uint8_t* __restrict rejected) {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  const float lo = limits.min_disparity, hi = limits.max_disparity, confidence = limits.confidence;
  const float texture = limits.texture, focal_baseline = limits.focal_baseline;
  for (int x = 0; x < width; ++x) {
    const float v = d[x];
    // Comparisons with NaN are false, so an invalid input stays invalid without being counted.
    const bool keep = (v >= lo) & (v <= hi) & (c[x] <= confidence) & (t_in[x] <= texture) & (s_in[x] == 0);
    d[x] = keep ? v : kNaN;
    c[x] = keep ? c[x] : kNaN;
    z[x] = keep ? focal_baseline / v : kNaN;
    if (kRecord) rejected[x] = static_cast<uint8_t>(!keep);
  }
}

PV_VECTOR_CLONES
void filterRows(const RowLimits& limits, int width, float* d, float* c, const float* t_in, const uint8_t* s_in,
                float* z, uint8_t* rejected) {
  if (rejected)
    filterRow<true>(limits, width, d, c, t_in, s_in, z, rejected);
  else
    filterRow<false>(limits, width, d, c, t_in, s_in, z, nullptr);
}

/// `m` itself when no other header shares its pixels, else a copy to write into.
cv::Mat ownPixels(const cv::Mat& m) { return m.u != nullptr && m.u->refcount == 1 ? m : m.clone(); }

}  // namespace

DepthData filterToDepth(StereoOutput&& stereo, const cv::Mat& left_gray, double fx_px, double baseline_m,
                        const DepthFilterParameters& p) {
  // A half-size result is doubled row by row below, each row filtered while it is in the cache.
  const bool doubling = stereo.disparity_px.empty();
  if (doubling) {
    CV_Assert(stereo.half_disparity_px.type() == CV_32F && stereo.half_disparity_px.size() * 2 == left_gray.size());
    CV_Assert(stereo.half_confidence.type() == CV_32F && stereo.half_confidence.size() * 2 == left_gray.size());
  } else {
    CV_Assert(stereo.disparity_px.type() == CV_32F && stereo.disparity_px.size() == left_gray.size());
    CV_Assert(stereo.confidence.type() == CV_32F && stereo.confidence.size() == left_gray.size());
  }
  const float focal_baseline = static_cast<float>(fx_px * baseline_m);
  // The distance limits as disparities: nearer than the minimum is a larger disparity.
  const float max_disparity = p.min_depth_m > 0 ? focal_baseline / p.min_depth_m : std::numeric_limits<float>::max();
  const float min_disparity = std::max(p.max_depth_m > 0 ? focal_baseline / p.max_depth_m : 0.f, 1e-3f);
  const float confidence_limit = p.confidence_threshold < 100 ? static_cast<float>(p.confidence_threshold) : 1e9f;
  const float texture_limit = static_cast<float>(p.texture_confidence_threshold);
  cv::Mat texture;
  if (p.texture_confidence_threshold < 100)
    texture = stereo.texture_confidence.empty() ? textureConfidence(left_gray) : stereo.texture_confidence;
  const cv::Mat saturated = p.remove_saturated_areas ? saturationMask(left_gray) : cv::Mat();

  cv::Mat disparity, confidence;
  if (doubling) {
    disparity.create(left_gray.size(), CV_32F);
    confidence.create(left_gray.size(), CV_32F);
  } else {
    disparity = ownPixels(stereo.disparity_px);
    confidence = ownPixels(stereo.confidence);
  }
  cv::Mat rejected;  // 1 where a valid match was dropped, for FILL
  if (p.fill) rejected.create(left_gray.size(), CV_8U);
  DepthData out;
  out.depth_m.create(disparity.size(), CV_32F);
  // Filters that are off read rows that pass everything, so the pixel loop has no branch.
  const std::vector<float> no_texture(static_cast<size_t>(left_gray.cols), 0.f);
  const std::vector<uint8_t> no_saturation(static_cast<size_t>(left_gray.cols), 0);
  const RowLimits limits{min_disparity, max_disparity, confidence_limit, texture_limit, focal_baseline};
  cv::parallel_for_(cv::Range(0, left_gray.rows), [&](const cv::Range& rows) {
    std::vector<float> scratch(doubling ? 6 * size_t(stereo.half_disparity_px.cols + 2) : 0);
    for (int y = rows.start; y < rows.end; ++y) {
      if (doubling)
        upsampleRowTwice(stereo.half_disparity_px, stereo.half_confidence, y, scratch.data(), disparity.ptr<float>(y),
                         confidence.ptr<float>(y));
      filterRows(limits, left_gray.cols, disparity.ptr<float>(y), confidence.ptr<float>(y),
                 texture.empty() ? no_texture.data() : texture.ptr<float>(y),
                 saturated.empty() ? no_saturation.data() : saturated.ptr<uint8_t>(y), out.depth_m.ptr<float>(y),
                 rejected.empty() ? nullptr : rejected.ptr<uint8_t>(y));
    }
  });
  stereo = StereoOutput();

  if (p.fill) {
    fillHoles(disparity);
    confidence.setTo(100.f, rejected & validMask(disparity));
    cv::divide(focal_baseline, disparity, out.depth_m);  // NaN stays NaN
  }

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
