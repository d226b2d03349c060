#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

/// Source rows of one output row of the doubling: the two rows blended vertically (with the
/// weight of the second) and the nearest row.
struct SourceRows {
  const float *r0, *r1, *rn;
  const float* confidence_n;  // the nearest row of the confidence, or null
  float ay;
};

/// Per source column, with one guard column on each side: the vertical blend, the highest and
/// lowest of the two rows, and 0 where both are valid (NaN where not).
PV_INLINE void blendRows(const float* __restrict r0, const float* __restrict r1, float ay, int w,
                         float* __restrict blend, float* __restrict hi, float* __restrict lo, float* __restrict ok) {
  for (int k = 0; k < w; ++k) {
    const float a = r0[k], c = r1[k];
    blend[k + 1] = (1 - ay) * a + ay * c;
    hi[k + 1] = a > c ? a : c;
    lo[k + 1] = a < c ? a : c;
    ok[k + 1] = (a - a) + (c - c);
  }
  for (float* v : {blend, hi, lo, ok}) {
    v[0] = v[1];
    v[w + 1] = v[w];
  }
}

/// Output columns 2k + side (side 0: blending source columns k - 1 and k, side 1: k and k + 1,
/// weights 1/4 and 3/4), only where all four values are valid (the spread is NaN otherwise) and
/// within a pixel of each other; the nearest source value elsewhere.
PV_INLINE void pickColumns(const float* __restrict blend, const float* __restrict hi, const float* __restrict lo,
                           const float* __restrict ok, const float* __restrict nearest, int w, int side,
                           float* __restrict out) {
  const int j = side == 0 ? -1 : 1;
  for (int k = 0; k < w; ++k) {
    const int i = k + 1;
    const float top = hi[i] > hi[i + j] ? hi[i] : hi[i + j], bottom = lo[i] < lo[i + j] ? lo[i] : lo[i + j];
    const float spread = (top - bottom) + ok[i] + ok[i + j];
    out[k] = 2.f * (spread < 1.f ? 0.75f * blend[i] + 0.25f * blend[i + j] : nearest[k]);
  }
}

/// `out[2k] = even[k]`, `out[2k + 1] = odd[k]`.
PV_INLINE void interleave(const float* __restrict even, const float* __restrict odd, int w, float* __restrict out) {
  for (int k = 0; k < w; ++k) {
    out[2 * k] = even[k];
    out[2 * k + 1] = odd[k];
  }
}

/// One output row of the doubling, written so that every loop vectorises: the vertical blend
/// first, then the columns. `scratch` holds 6 * (w + 2) floats.
PV_VECTOR_CLONES
void doubleRow(const SourceRows& s, int w, float* scratch, float* out, float* confidence_out) {
  float *blend = scratch, *hi = blend + (w + 2), *lo = hi + (w + 2), *ok = lo + (w + 2);
  float *even = ok + (w + 2), *odd = even + (w + 2);
  blendRows(s.r0, s.r1, s.ay, w, blend, hi, lo, ok);
  pickColumns(blend, hi, lo, ok, s.rn, w, 0, even);
  pickColumns(blend, hi, lo, ok, s.rn, w, 1, odd);
  interleave(even, odd, w, out);
  if (!confidence_out) return;
  // The nearest source confidence, NaN where the output disparity is.
  for (float* side : {even, odd}) {
    const float* __restrict c = s.confidence_n;
    float* __restrict v = side;
    for (int k = 0; k < w; ++k) v[k] = (v[k] - v[k]) + c[k];
  }
  interleave(even, odd, w, confidence_out);
}

}  // namespace

void upsampleRowTwice(const cv::Mat& src, const cv::Mat& confidence, int y, float* scratch, float* out,
                      float* confidence_out) {
  const int h = src.rows;
  const int y_even = y / 2, y0 = (y % 2 == 0) ? std::max(y_even - 1, 0) : y_even;
  const int y1 = (y % 2 == 0) ? y_even : std::min(y_even + 1, h - 1);
  const float ay = (y % 2 == 0) ? (y_even == 0 ? 0.f : 0.75f) : (y_even + 1 < h ? 0.25f : 0.f);
  const SourceRows s{src.ptr<float>(y0), src.ptr<float>(y1), src.ptr<float>(y_even),
                     confidence.empty() ? nullptr : confidence.ptr<float>(y_even), ay};
  doubleRow(s, src.cols, scratch, out, confidence.empty() ? nullptr : confidence_out);
}

namespace {

/// The common case of exactly twice the size; the confidence too when `confidence` is not empty.
void upsampleTwice(const cv::Mat& src, const cv::Mat& confidence, cv::Mat& out, cv::Mat& confidence_out) {
  cv::parallel_for_(cv::Range(0, out.rows), [&](const cv::Range& rows) {
    std::vector<float> scratch(static_cast<size_t>(6 * (src.cols + 2)));
    for (int y = rows.start; y < rows.end; ++y)
      upsampleRowTwice(src, confidence, y, scratch.data(), out.ptr<float>(y),
                       confidence.empty() ? nullptr : confidence_out.ptr<float>(y));
  });
}

}  // namespace

cv::Mat upsampleDisparity(const cv::Mat& disparity_px, cv::Size full_size) {
  CV_Assert(disparity_px.type() == CV_32F && !disparity_px.empty() && full_size.area() > 0);
  if (disparity_px.size() == full_size) return disparity_px.clone();
  const float scale = static_cast<float>(full_size.width) / static_cast<float>(disparity_px.cols);
  const float sx = static_cast<float>(disparity_px.cols) / full_size.width;
  const float sy = static_cast<float>(disparity_px.rows) / full_size.height;
  const int w = disparity_px.cols, h = disparity_px.rows;
  if (full_size.width == 2 * w && full_size.height == 2 * h) {
    cv::Mat out(full_size, CV_32F), no_confidence;
    upsampleTwice(disparity_px, cv::Mat(), out, no_confidence);
    return out;
  }
  // Source columns and weights of every output column, computed once.
  std::vector<int> x0s(static_cast<size_t>(full_size.width)), x1s(x0s.size()), xns(x0s.size());
  std::vector<float> axs(x0s.size());
  for (int x = 0; x < full_size.width; ++x) {
    const float fx = std::max(0.f, (static_cast<float>(x) + 0.5f) * sx - 0.5f);
    const size_t i = static_cast<size_t>(x);
    x0s[i] = std::min(static_cast<int>(fx), w - 1);
    x1s[i] = std::min(x0s[i] + 1, w - 1);
    axs[i] = fx - static_cast<float>(x0s[i]);
    xns[i] = std::min(static_cast<int>((static_cast<float>(x) + 0.5f) * sx), w - 1);
  }
  cv::Mat out(full_size, CV_32F);
  forEachRow(full_size.height, [&](int y) {
    const float fy = std::max(0.f, (static_cast<float>(y) + 0.5f) * sy - 0.5f);
    const int y0 = std::min(static_cast<int>(fy), h - 1), y1 = std::min(y0 + 1, h - 1);
    const float ay = fy - static_cast<float>(y0);
    const int yn = std::min(static_cast<int>((static_cast<float>(y) + 0.5f) * sy), h - 1);
    const float* r0 = disparity_px.ptr<float>(y0);
    const float* r1 = disparity_px.ptr<float>(y1);
    const float* rn = disparity_px.ptr<float>(yn);
    float* o = out.ptr<float>(y);
    for (int x = 0; x < full_size.width; ++x) {
      const size_t i = static_cast<size_t>(x);
      const int x0 = x0s[i], x1 = x1s[i];
      const float ax = axs[i];
      const float a = r0[x0], b = r0[x1], c = r1[x0], d = r1[x1];
      // Bilinear only between four valid values within a pixel of each other (NaN fails both
      // comparisons); nearest elsewhere, so edges never get in-between values.
      const float hi = std::max(std::max(a, b), std::max(c, d)), lo = std::min(std::min(a, b), std::min(c, d));
      const bool smooth = a == a && b == b && c == c && d == d && hi - lo < 1.f;
      o[x] = scale * (smooth ? (1 - ay) * ((1 - ax) * a + ax * b) + ay * ((1 - ax) * c + ax * d) : rn[xns[i]]);
    }
  });
  return out;
}

void upsampleWithConfidence(const cv::Mat& disparity_px, const cv::Mat& confidence, cv::Size full_size,
                            cv::Mat& disparity_out, cv::Mat& confidence_out) {
  CV_Assert(confidence.type() == CV_32F && confidence.size() == disparity_px.size());
  if (full_size.width == 2 * disparity_px.cols && full_size.height == 2 * disparity_px.rows) {
    disparity_out.create(full_size, CV_32F);
    confidence_out.create(full_size, CV_32F);
    upsampleTwice(disparity_px, confidence, disparity_out, confidence_out);
    return;
  }
  disparity_out = upsampleDisparity(disparity_px, full_size);
  cv::resize(confidence, confidence_out, full_size, 0, 0, cv::INTER_NEAREST);
  confidence_out.setTo(std::numeric_limits<float>::quiet_NaN(), invalidMask(disparity_out));
}

}  // namespace pv::internal
