#include <algorithm>
#include <cstring>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {
// Doubt of a roughness of `rough_px` (3x3 disparity spread) or a left-right disagreement.
constexpr float kRoughnessForFullDoubt = 4.f;
constexpr float kLrDiffForFullDoubt = 2.f;
// Local contrast (grey-level standard deviation, 5x5) at which the texture doubt falls to 1/e.
constexpr float kContrastScale = 6.f;
// Pixels of full doubt weigh as little as ones whose views disagree by this many pixels.
constexpr float kDoubtToDisagreement = 4.f;
void orInto(const uchar* __restrict from, uchar* __restrict to, int n) {
  for (int x = 0; x < n; ++x) to[x] |= from[x];
}

/// `hi` and `lo`: the largest and smallest valid value of `row` within one column on each side
/// (-1e9 and 1e9 where there is none). `guarded` holds 2 * (w + 2) floats.
PV_INLINE void spreadAcross(const float* __restrict row, int w, float* __restrict guarded, float* __restrict hi,
                            float* __restrict lo) {
  float* __restrict g_hi = guarded;
  float* __restrict g_lo = guarded + (w + 2);
  g_hi[0] = g_hi[w + 1] = -1e9f;
  g_lo[0] = g_lo[w + 1] = 1e9f;
  for (int x = 0; x < w; ++x) {
    const float v = row[x];
    g_hi[x + 1] = v == v ? v : -1e9f;
    g_lo[x + 1] = v == v ? v : 1e9f;
  }
  for (int x = 0; x < w; ++x) {
    hi[x] = std::max(std::max(g_hi[x], g_hi[x + 1]), g_hi[x + 2]);
    lo[x] = std::min(std::min(g_lo[x], g_lo[x + 1]), g_lo[x + 2]);
  }
}

/// One row of disparityConfidence: `rows` are the disparity rows y - 1, y, y + 1 (null beyond the
/// image); `scratch` holds 8 * w + 4 floats.
PV_VECTOR_CLONES
void confidenceRow(const float* const* rows, const float* __restrict lr, int w, float* scratch, float* __restrict out) {
  float* hi = scratch;
  float* lo = scratch + 3 * w;
  float* guarded = scratch + 6 * w;
  for (int r = 0; r < 3; ++r) {
    if (rows[r]) {
      spreadAcross(rows[r], w, guarded, hi + r * w, lo + r * w);
    } else {
      std::fill(hi + r * w, hi + (r + 1) * w, -1e9f);
      std::fill(lo + r * w, lo + (r + 1) * w, 1e9f);
    }
  }
  const float* __restrict d = rows[1];
  for (int x = 0; x < w; ++x) {
    const float top = std::max(std::max(hi[x], hi[w + x]), hi[2 * w + x]);
    const float bottom = std::min(std::min(lo[x], lo[w + x]), lo[2 * w + x]);
    float doubt = (top - bottom) / kRoughnessForFullDoubt;
    if (lr) doubt = std::max(doubt, lr[x] == lr[x] ? lr[x] / kLrDiffForFullDoubt : 0.f);
    out[x] = d[x] == d[x] ? 1.f + 99.f * std::min(doubt, 1.f) : std::numeric_limits<float>::quiet_NaN();
  }
}

}  // namespace

cv::Mat disparityConfidence(const cv::Mat& disparity_px, const cv::Mat& lr_diff_px) {
  CV_Assert(disparity_px.type() == CV_32F);
  CV_Assert(lr_diff_px.empty() || (lr_diff_px.size() == disparity_px.size() && lr_diff_px.type() == CV_32F));
  // The 3x3 spread of the valid values: invalid pixels lose every maximum and every minimum.
  const int w = disparity_px.cols, h = disparity_px.rows;
  cv::Mat conf(disparity_px.size(), CV_32F);
  cv::parallel_for_(cv::Range(0, h), [&](const cv::Range& range) {
    std::vector<float> scratch(8 * static_cast<size_t>(w) + 4);
    for (int y = range.start; y < range.end; ++y) {
      const float* rows[3] = {y > 0 ? disparity_px.ptr<float>(y - 1) : nullptr, disparity_px.ptr<float>(y),
                              y + 1 < h ? disparity_px.ptr<float>(y + 1) : nullptr};
      confidenceRow(rows, lr_diff_px.empty() ? nullptr : lr_diff_px.ptr<float>(y), w, scratch.data(),
                    conf.ptr<float>(y));
    }
  });
  return conf;
}

cv::Mat measurementWeight(const cv::Mat& confidence, const cv::Mat& lr_diff_px) {
  CV_Assert(confidence.type() == CV_32F);
  CV_Assert(lr_diff_px.empty() || (lr_diff_px.size() == confidence.size() && lr_diff_px.type() == CV_32F));
  // exp(-u^2) of u = doubt fraction * kDoubtToDisagreement + disagreement; 0 where invalid.
  cv::Mat exponent(confidence.size(), CV_32F), weight;
  forEachRow(confidence.rows, [&](int y) {
    const float* c = confidence.ptr<float>(y);
    const float* lr = lr_diff_px.empty() ? nullptr : lr_diff_px.ptr<float>(y);
    float* e = exponent.ptr<float>(y);
    for (int x = 0; x < confidence.cols; ++x) {
      float u = (c[x] - 1.f) * (kDoubtToDisagreement / 99.f);
      if (lr && lr[x] == lr[x]) u += lr[x];
      e[x] = -u * u;
    }
  });
  cv::exp(exponent, weight);
  forEachRow(confidence.rows, [&](int y) {
    const float* c = confidence.ptr<float>(y);
    float* wt = weight.ptr<float>(y);
    for (int x = 0; x < confidence.cols; ++x) wt[x] = c[x] == c[x] ? wt[x] : 0.f;
  });
  return weight;
}

cv::Mat textureConfidence(const cv::Mat& gray) {
  CV_Assert(gray.type() == CV_8UC1);
  cv::Mat f, mean, mean_sq;
  gray.convertTo(f, CV_32F);
  cv::boxFilter(f, mean, CV_32F, cv::Size(5, 5));
  cv::boxFilter(f.mul(f), mean_sq, CV_32F, cv::Size(5, 5));
  cv::Mat variance = cv::max(mean_sq - mean.mul(mean), 0.f), sigma, doubt;
  cv::sqrt(variance, sigma);
  cv::exp(-sigma / kContrastScale, doubt);
  return cv::max(100.f * doubt, 1.f);
}

cv::Mat saturationMask(const cv::Mat& gray) {
  CV_Assert(gray.type() == CV_8UC1);
  constexpr uchar kSaturated = 250;
  constexpr int kGrowth = 2;  // pixels the mask grows by on every side (the inner loop's five)
  const int w = gray.cols, h = gray.rows;
  // Grown along each row first (the largest grey level within kGrowth pixels), then down the
  // columns; a row with nothing saturated within kGrowth rows stays zero without being read.
  cv::Mat across(gray.size(), CV_8U), grown(gray.size(), CV_8U);
  std::vector<uchar> row_has(static_cast<size_t>(h));
  forEachRow(h, [&](int y) {
    const uchar* g = gray.ptr<uchar>(y);
    uchar* a = across.ptr<uchar>(y);
    const auto grow_at = [&](int x) {
      uchar top = g[x];
      for (int k = 1; k <= kGrowth; ++k) top = std::max({top, g[std::max(x - k, 0)], g[std::min(x + k, w - 1)]});
      a[x] = top >= kSaturated ? 255 : 0;
    };
    const int inner_end = std::max(kGrowth, w - kGrowth);
    for (int x = 0; x < std::min(kGrowth, w); ++x) grow_at(x);
    for (int x = kGrowth; x < inner_end; ++x) {
      const uchar top = std::max(std::max(std::max(g[x - 2], g[x - 1]), std::max(g[x + 1], g[x + 2])), g[x]);
      a[x] = top >= kSaturated ? 255 : 0;
    }
    for (int x = inner_end; x < w; ++x) grow_at(x);
    uchar any = 0;
    for (int x = 0; x < w; ++x) any |= a[x];
    row_has[static_cast<size_t>(y)] = any;
  });
  forEachRow(h, [&](int y) {
    uchar* o = grown.ptr<uchar>(y);
    const int y0 = std::max(0, y - kGrowth), y1 = std::min(h - 1, y + kGrowth);
    if (std::find(row_has.begin() + y0, row_has.begin() + y1 + 1, uchar(255)) == row_has.begin() + y1 + 1) {
      std::memset(o, 0, static_cast<size_t>(w));
      return;
    }
    std::memcpy(o, across.ptr<uchar>(y0), static_cast<size_t>(w));
    for (int k = y0 + 1; k <= y1; ++k) orInto(across.ptr<uchar>(k), o, w);
  });
  return grown;
}

}  // namespace pv::internal
