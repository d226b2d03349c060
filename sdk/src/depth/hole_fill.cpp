#include <cmath>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

namespace {

// Fills the NaN runs of one line of `n` values spaced `stride` apart; false when the line has no
// valid value at all.
bool fillLine(float* p, int n, int stride) {
  int prev = -1;  // index of the last valid value
  for (int i = 0; i <= n; ++i) {
    const bool valid = i < n && std::isfinite(p[i * stride]);
    if (i < n && !valid) continue;
    if (i - prev > 1) {
      // The hole (prev, i): the farther side (smaller disparity) is the likely background.
      float value;
      if (prev < 0 && i == n) return false;
      if (prev < 0)
        value = p[i * stride];
      else if (i == n)
        value = p[prev * stride];
      else
        value = std::min(p[prev * stride], p[i * stride]);
      for (int k = prev + 1; k < i; ++k) p[k * stride] = value;
    }
    prev = i;
  }
  return true;
}

}  // namespace

void fillHoles(cv::Mat& disparity_px) {
  CV_Assert(disparity_px.type() == CV_32F && disparity_px.isContinuous());
  float* data = disparity_px.ptr<float>();
  const int w = disparity_px.cols, h = disparity_px.rows;
  bool some_empty_row = false;
  for (int y = 0; y < h; ++y) some_empty_row |= !fillLine(data + static_cast<size_t>(y) * w, w, 1);
  if (!some_empty_row) return;
  for (int x = 0; x < w; ++x) fillLine(data + x, h, w);
}

}  // namespace pv::internal
