#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core/utility.hpp>
#include <vector>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

namespace {

/// The common case of exactly twice the size, written so that the compiler vectorises it: each
/// output row blends two source rows first, then each pair of output columns reads the blended
/// values of two neighbouring source columns (weights 1/4 and 3/4).
void upsampleTwice(const cv::Mat& src, cv::Mat& out) {
  const int w = src.cols, h = src.rows;
  cv::parallel_for_(cv::Range(0, out.rows), [&](const cv::Range& rows) {
    // Per source column: the vertical blend, the highest and lowest of the two rows, and whether
    // both are valid (as 1/0, so the column loop has no branch). One guard column on each side.
    std::vector<float> blend(static_cast<size_t>(w + 2)), hi(blend.size()), lo(blend.size()), ok(blend.size());
    std::vector<float> pair(static_cast<size_t>(w));
    for (int y = rows.start; y < rows.end; ++y) {
      const int y_even = y / 2, y0 = (y % 2 == 0) ? std::max(y_even - 1, 0) : y_even;
      const int y1 = (y % 2 == 0) ? y_even : std::min(y_even + 1, h - 1);
      const float ay = (y % 2 == 0) ? (y_even == 0 ? 0.f : 0.75f) : (y_even + 1 < h ? 0.25f : 0.f);
      const float* r0 = src.ptr<float>(y0);
      const float* r1 = src.ptr<float>(y1);
      const float* rn = src.ptr<float>(y_even);
      for (int k = 0; k < w; ++k) {
        const float a = r0[k], c = r1[k];
        const size_t i = static_cast<size_t>(k + 1);
        blend[i] = (1 - ay) * a + ay * c;
        hi[i] = a > c ? a : c;
        lo[i] = a < c ? a : c;
        ok[i] = static_cast<float>((a == a) & (c == c));
      }
      blend[0] = blend[1];
      hi[0] = hi[1];
      lo[0] = lo[1];
      ok[0] = ok[1];
      const size_t last = static_cast<size_t>(w);
      blend[last + 1] = blend[last];
      hi[last + 1] = hi[last];
      lo[last + 1] = lo[last];
      ok[last + 1] = ok[last];
      float* o = out.ptr<float>(y);
      // Even output columns blend source columns k-1 and k, odd ones k and k+1 (j = i -+ 1).
      for (int side = 0; side < 2; ++side) {
        const int step = side == 0 ? -1 : 1;
        for (int k = 0; k < w; ++k) {
          const size_t i = static_cast<size_t>(k + 1), j = static_cast<size_t>(k + 1 + step);
          const float top = hi[i] > hi[j] ? hi[i] : hi[j], bottom = lo[i] < lo[j] ? lo[i] : lo[j];
          const bool smooth = (ok[i] * ok[j] > 0.f) & (top - bottom < 1.f);
          pair[static_cast<size_t>(k)] = 2.f * (smooth ? 0.75f * blend[i] + 0.25f * blend[j] : rn[k]);
        }
        for (int k = 0; k < w; ++k) o[2 * k + side] = pair[static_cast<size_t>(k)];
      }
    }
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
    cv::Mat out(full_size, CV_32F);
    upsampleTwice(disparity_px, out);
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
    }
  });
  return out;
}

}  // namespace pv::internal
