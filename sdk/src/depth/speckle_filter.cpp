// Speckle removal: the regions of similar disparity (4-connected, neighbours within the allowed
// difference) are found by union-find, each band of rows on its own core and the seams joined
// afterwards, so that no core waits on a flood fill running alone. The regions are exactly those
// of OpenCV's filterSpeckles, on the same 1/16-pixel fixed point.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

namespace {

constexpr int16_t kHole = -16;  // fixed-point value of a missing disparity

/// Root of `i`, halving the path on the way (only ever called on one band's entries at a time,
/// or on one thread).
int32_t findRoot(int32_t* parent, int32_t i) {
  while (parent[i] != i) {
    parent[i] = parent[parent[i]];
    i = parent[i];
  }
  return i;
}

/// Joins the regions of `a` and `b` and returns the joint root: the smaller index (so every parent
/// has a smaller index than its child).
int32_t join(int32_t* parent, int32_t a, int32_t b) {
  a = findRoot(parent, a);
  b = findRoot(parent, b);
  if (a < b) parent[b] = a;
  if (b < a) parent[a] = b;
  return std::min(a, b);
}

/// Whether neighbouring fixed-point disparities `a` and `b` belong to one region.
inline bool similar(int16_t a, int16_t b, int max_diff) {
  return a != kHole && b != kHole && std::abs(int(a) - int(b)) <= max_diff;
}

/// Links the pixels of row y to their left and upper neighbours where they are similar (the upper
/// ones only when row y - 1 belongs to the caller too). `left_of` holds row y - 1's left links and
/// gets row y's. A run of linked pixels shares one root; a link upwards is made only where the run
/// meets an upper region it is not known to share yet.
void linkRow(const cv::Mat& fixed16, int y, bool with_up, int max_diff, int32_t* parent, uint8_t* left_of,
             uint8_t* above) {
  const int w = fixed16.cols;
  const int16_t* row = fixed16.ptr<int16_t>(y);
  const int16_t* up = with_up ? fixed16.ptr<int16_t>(y - 1) : nullptr;
  // Which links there are: a plain loop over the row, vectorised.
  uint8_t* left_above = left_of;  // row y - 1's, read before being overwritten below
  for (int x = 0; x < w; ++x) above[x] = up && similar(row[x], up[x], max_diff);
  const int32_t base = int32_t(y) * w;
  int32_t run = -1;  // root of the current run
  for (int x = 0; x < w; ++x) {
    const int32_t i = base + x;
    if (row[x] == kHole) {
      parent[i] = -1;
      left_of[x] = 0;
      continue;
    }
    const bool left = x > 0 && similar(row[x], row[x - 1], max_diff);
    if (!left) run = parent[i] = i;
    // Linked above as the previous pixel was, with both upper pixels linked too: same regions.
    const bool known = left && above[x - 1] && left_above[x];
    if (above[x] && !known) run = join(parent, i - w, run);
    parent[i] = run;
    left_of[x] = left;
  }
}

}  // namespace

void removeSpeckles(cv::Mat& disparity_px, int max_speckle_px, float max_diff_px) {
  CV_Assert(disparity_px.type() == CV_32F);
  // 1/16-pixel fixed point, rounded as convertTo rounds; holes where NaN.
  const int w = disparity_px.cols, h = disparity_px.rows;
  cv::Mat fixed16(disparity_px.size(), CV_16S);
  forEachRow(h, [&](int y) {
    const float* d = disparity_px.ptr<float>(y);
    int16_t* f = fixed16.ptr<int16_t>(y);
    for (int x = 0; x < w; ++x) f[x] = d[x] == d[x] ? cv::saturate_cast<int16_t>(d[x] * 16.f) : kHole;
  });
  const int max_diff = cvRound(static_cast<double>(max_diff_px) * 16.0);
  std::vector<int32_t> parent(size_t(w) * size_t(h));
  // Regions within each band, then across the seams between bands.
  const int bands = std::max(1, std::min(cv::getNumThreads(), h / 16));
  const auto first_row = [&](int b) { return h * b / bands; };
  cv::parallel_for_(cv::Range(0, bands), [&](const cv::Range& range) {
    std::vector<uint8_t> left_of(size_t(w), 0), above(size_t(w), 0);
    for (int b = range.start; b < range.end; ++b)
      for (int y = first_row(b); y < first_row(b + 1); ++y)
        linkRow(fixed16, y, y > first_row(b), max_diff, parent.data(), left_of.data(), above.data());
  });
  for (int b = 1; b < bands; ++b) {
    const int y = first_row(b);
    const int16_t *row = fixed16.ptr<int16_t>(y), *up = fixed16.ptr<int16_t>(y - 1);
    for (int x = 0; x < w; ++x)
      if (similar(row[x], up[x], max_diff)) join(parent.data(), int32_t(y - 1) * w + x, int32_t(y) * w + x);
  }
  // Every pixel's root and the size of each region, in one pass in index order: a parent always
  // has a smaller index than its child, so its root is known by then.
  std::vector<int32_t> root(parent.size()), size(parent.size(), 0);
  for (size_t i = 0; i < parent.size(); ++i) {
    const int32_t p = parent[i];
    const int32_t r = p < 0 ? -1 : (size_t(p) == i ? p : root[size_t(p)]);
    root[i] = r;
    if (r >= 0) ++size[size_t(r)];
  }
  forEachRow(h, [&](int y) {
    float* d = disparity_px.ptr<float>(y);
    const int32_t* r = root.data() + size_t(y) * size_t(w);
    for (int x = 0; x < w; ++x)
      if (r[x] < 0 || size[size_t(r[x])] <= max_speckle_px) d[x] = std::numeric_limits<float>::quiet_NaN();
  });
}

}  // namespace pv::internal
