// The doubt of each depth pixel, from what the matcher, the refinement and the filter saw of it;
// the confidence the camera hands out is this doubt on a 1..100 scale.
#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

// A pixel's doubt is measured in pixels of the filter's correction that doubt as much: the
// correction itself (up to kResidualCapPx), kInventedPx where the checks rejected the match and
// the filter made the value up, up to kAmbiguityPx more the closer another disparity came to the
// winner's cost, kAtLimitPx where a refinement's winner lay at the end of its search, and the
// refinement's mean census cost per pixel (beyond kCostFloorPx) over kCostPerPx.
constexpr float kResidualCapPx = 4.f;
constexpr float kInventedPx = 3.f;
constexpr float kAmbiguityPx = 2.5f;
constexpr float kAtLimitPx = 0.6f;
constexpr float kCostPerPx = 9.f;
// A winner whose runner-up costs at least twice as much is not ambiguous at all; a census cost of
// up to three bits per pixel is what noise and sampling leave at a true match.
constexpr float kClearMargin = 0.5f;
constexpr float kCostFloorPx = 3.f;
// The doubt at which the confidence reaches the middle of its scale.
constexpr float kMiddleDoubtPx = 1.5f;

struct DoubtRows {
  const float* filtered;
  const float* matched;
  const uint8_t* margin;    // may be null
  const float* base;        // may be null
  const uint8_t* at_limit;  // may be null
  const uint16_t* cost;     // may be null
  float cost_scale;         // per unit of `cost`
};

PV_VECTOR_CLONES
void doubtRow(const DoubtRows& r, int w, float* __restrict out) {
  const float* __restrict filtered = r.filtered;
  const float* __restrict matched = r.matched;
  for (int x = 0; x < w; ++x) {
    const float v = filtered[x], raw = matched[x];
    // A rejected match (NaN) takes the invented doubt; comparisons with NaN are false, so the
    // selects need no branch.
    const float moved = std::abs(v - raw);
    const float doubt = raw == raw ? (moved < kResidualCapPx ? moved : kResidualCapPx) : kInventedPx;
    out[x] = v == v ? doubt : std::numeric_limits<float>::quiet_NaN();
  }
  if (r.margin)
    for (int x = 0; x < w; ++x)
      out[x] += kAmbiguityPx * std::max(0.f, 1.f - float(r.margin[x]) * (1.f / (255.f * kClearMargin)));
  if (r.base)
    for (int x = 0; x < w; ++x) out[x] += r.base[x];
  if (r.at_limit)
    for (int x = 0; x < w; ++x) out[x] += kAtLimitPx * float(r.at_limit[x]);
  if (r.cost)
    for (int x = 0; x < w; ++x) out[x] += std::max(0.f, r.cost_scale * float(r.cost[x]) - kCostFloorPx / kCostPerPx);
}

PV_VECTOR_CLONES
void confidenceOfDoubtRow(const float* __restrict doubt, int w, float* __restrict out) {
  for (int x = 0; x < w; ++x) out[x] = 1.f + 99.f * doubt[x] / (doubt[x] + kMiddleDoubtPx);
}

}  // namespace

cv::Mat matchDoubt(const cv::Mat& filtered_px, const cv::Mat& matched_px, const DoubtCues& cues) {
  const cv::Size size = filtered_px.size();
  CV_Assert(filtered_px.type() == CV_32F && matched_px.type() == CV_32F && matched_px.size() == size);
  CV_Assert(cues.margin.empty() || (cues.margin.type() == CV_8U && cues.margin.size() == size));
  CV_Assert(cues.base_doubt.empty() || (cues.base_doubt.type() == CV_32F && cues.base_doubt.size() == size));
  const RefinementCues& refined = cues.refinement;
  CV_Assert(refined.at_limit.empty() || (refined.at_limit.type() == CV_8U && refined.at_limit.size() == size));
  CV_Assert(refined.cost.empty() || (refined.cost.type() == CV_16U && refined.cost.size() == size));
  CV_Assert(refined.cost.empty() || cues.refinement_window > 0);
  const float cost_scale =
      cues.refinement_window > 0 ? 1.f / (kCostPerPx * float(cues.refinement_window * cues.refinement_window)) : 0.f;
  cv::Mat doubt(size, CV_32F);
  forEachRow(size.height, [&](int y) {
    const DoubtRows rows{filtered_px.ptr<float>(y),
                         matched_px.ptr<float>(y),
                         cues.margin.empty() ? nullptr : cues.margin.ptr<uint8_t>(y),
                         cues.base_doubt.empty() ? nullptr : cues.base_doubt.ptr<float>(y),
                         refined.at_limit.empty() ? nullptr : refined.at_limit.ptr<uint8_t>(y),
                         refined.cost.empty() ? nullptr : refined.cost.ptr<uint16_t>(y),
                         cost_scale};
    doubtRow(rows, size.width, doubt.ptr<float>(y));
  });
  return doubt;
}

cv::Mat confidenceOfDoubt(const cv::Mat& doubt) {
  CV_Assert(doubt.type() == CV_32F);
  cv::Mat confidence(doubt.size(), CV_32F);
  forEachRow(doubt.rows,
             [&](int y) { confidenceOfDoubtRow(doubt.ptr<float>(y), doubt.cols, confidence.ptr<float>(y)); });
  return confidence;
}

cv::Mat weightOfDoubt(const cv::Mat& doubt, float scale) {
  CV_Assert(doubt.type() == CV_32F);
  cv::Mat exponent(doubt.size(), CV_32F), weight;
  forEachRow(doubt.rows, [&](int y) {
    const float* d = doubt.ptr<float>(y);
    float* e = exponent.ptr<float>(y);
    for (int x = 0; x < doubt.cols; ++x) e[x] = d[x] == d[x] ? -(scale * d[x]) * (scale * d[x]) : -1e30f;
  });
  cv::exp(exponent, weight);
  return weight;
}

}  // namespace pv::internal
