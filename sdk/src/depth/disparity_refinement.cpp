// Refinement of a coarse disparity at a finer level: each pixel searches only a few disparities
// around its prior, with census costs summed over a small window. Neighbours' costs are taken
// relative to their own priors, which agree within a pixel or two wherever the surface is smooth.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/internal/cpu_features.h"
#include "depth/internal/refine_costs.h"
#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

using refine_kernels::kMaxCost;
using refine_kernels::kNeutralCost;

/// Whether the vector kernel of the offset costs runs here.
bool offsetCostsVectorised() {
#if defined(PV_REFINE_AVX512)
  return cpuRuns(CpuLevel::kAvx512Popcount);
#else
  return false;
#endif
}

/// The vector kernel's part of a row's offset costs: the pixels it did from the left (none in a
/// build without it).
int offsetCostsVector(const uint32_t* left, const uint32_t* right, const float* prior, int width, int radius,
                      uint8_t* const* slices) {
#if defined(PV_REFINE_AVX512)
  return refine_kernels::offsetCostsAvx512(left, right, prior, width, radius, slices);
#else
  return 0;
#endif
}

/// Costs of row y for every offset k: slices[k](y, x) = Hamming distance between the left pixel
/// and the right pixel at the prior's disparity + k - radius, for x from `x0` on.
void offsetCostsRow(const uint32_t* left, const uint32_t* right, const float* prior, int x0, int width, int radius,
                    uint8_t* const* rows) {
  for (int x = x0; x < width; ++x) {
    const float p = prior[x];
    const bool known = p == p;
    const int first = known ? static_cast<int>(p + 0.5f) - radius : 0;
    for (int k = 0; k < 2 * radius + 1; ++k) {
      const int d = first + k, xr = x - d;
      const bool inside = known && d >= 0 && xr >= 0;
      rows[k][x] =
          inside ? static_cast<uint8_t>(__builtin_popcount(left[x] ^ right[xr])) : (known ? kMaxCost : kNeutralCost);
    }
  }
}

/// Best offset per pixel and its sub-pixel position (equiangular fit, as in the matcher), for K
/// offsets known at compile time. The offsets are walked one after the other over the whole row
/// (`lowest`, `best`, `a`, `b`: a row each), so that every loop over x is a plain vector loop.
template <int K>
PV_INLINE void selectRowK(const uint16_t* const* cost, const float* prior, int width, uint16_t* lowest, uint16_t* best,
                          uint16_t* a, uint16_t* b, float* out, uint16_t* cost_out, uint8_t* edge_out) {
  for (int x = 0; x < width; ++x) lowest[x] = cost[0][x], best[x] = 0;
  for (int k = 1; k < K; ++k) {
    const uint16_t* c = cost[k];
#pragma GCC ivdep
    for (int x = 0; x < width; ++x) {
      const uint16_t v = c[x];
      best[x] = v < lowest[x] ? uint16_t(k) : best[x];
      lowest[x] = v < lowest[x] ? v : lowest[x];
    }
  }
  // Neighbours of the winner (the winner itself at the ends, where no fit is made).
  for (int x = 0; x < width; ++x) a[x] = b[x] = lowest[x];
  for (int k = 0; k < K; ++k) {
    const uint16_t* c = cost[k];
#pragma GCC ivdep
    for (int x = 0; x < width; ++x) {
      a[x] = best[x] == k + 1 ? c[x] : a[x];
      b[x] = best[x] == k - 1 ? c[x] : b[x];
    }
  }
#pragma GCC ivdep
  for (int x = 0; x < width; ++x) {
    const int higher = a[x] > b[x] ? a[x] : b[x], rise = higher - int(lowest[x]);
    const bool inner = (best[x] > 0) & (best[x] < K - 1) & (rise > 0);
    const float offset = inner ? 0.5f * static_cast<float>(a[x] - b[x]) / static_cast<float>(rise > 1 ? rise : 1) : 0.f;
    const float d = static_cast<float>(static_cast<int>(prior[x] + 0.5f) - K / 2 + best[x]) + offset;
    out[x] = prior[x] == prior[x] ? (d > 0.f ? d : 0.f) : std::numeric_limits<float>::quiet_NaN();
  }
  if (cost_out)
    for (int x = 0; x < width; ++x) cost_out[x] = lowest[x];
  if (edge_out)
    for (int x = 0; x < width; ++x) edge_out[x] = uint8_t((best[x] == 0) | (best[x] == K - 1));
}

PV_VECTOR_CLONES
void selectRow(const uint16_t* const* cost, const float* prior, int width, int radius, uint16_t* scratch, float* out,
               uint16_t* cost_out, uint8_t* edge_out) {
  uint16_t *lowest = scratch, *best = scratch + width, *a = scratch + 2 * width, *b = scratch + 3 * width;
  switch (radius) {
    case 1: selectRowK<3>(cost, prior, width, lowest, best, a, b, out, cost_out, edge_out); break;
    case 2: selectRowK<5>(cost, prior, width, lowest, best, a, b, out, cost_out, edge_out); break;
    default: selectRowK<7>(cost, prior, width, lowest, best, a, b, out, cost_out, edge_out); break;
  }
}

/// Per-thread rows of the fused pipeline: the costs of the last `window` rows per offset (a ring,
/// by row), their running sums down the columns, and the window sums of the row being selected.
struct BoxRows {
  int K, w, window;
  std::vector<uint8_t> costs;
  std::vector<uint16_t> down, box;
  std::vector<uint16_t> scratch;
  BoxRows(int k, int width, int win)
      : K(k),
        w(width),
        window(win),
        costs(size_t(win) * size_t(k) * size_t(width), 0),
        down(size_t(k) * size_t(width), 0),
        box(size_t(k) * size_t(width)),
        scratch(4 * size_t(width)) {}
  uint8_t* cost(int slot, int k) { return costs.data() + (size_t(slot) * size_t(K) + size_t(k)) * size_t(w); }
  uint16_t* downRow(int k) { return down.data() + size_t(k) * size_t(w); }
  uint16_t* boxRow(int k) { return box.data() + size_t(k) * size_t(w); }
};

/// `down += sign * row` (16-bit arithmetic wraps, and the true sums fit, so the running sums stay
/// exact).
PV_VECTOR_CLONES
void addDown(const uint8_t* __restrict row, int sign, int w, uint16_t* __restrict down) {
  if (sign > 0)
    for (int x = 0; x < w; ++x) down[x] = uint16_t(down[x] + row[x]);
  else
    for (int x = 0; x < w; ++x) down[x] = uint16_t(down[x] - row[x]);
}

/// `out[x]` = the sum of `in` over x - half .. x + half, mirrored at the ends as cv::boxFilter's
/// default border does (at least half + 1 values).
PV_VECTOR_CLONES
void sumAcross(const uint16_t* __restrict in, int w, int half, uint16_t* __restrict out) {
  const auto mirrored = [&](int x) {
    int sum = 0;
    for (int dx = -half; dx <= half; ++dx) sum += in[cv::borderInterpolate(x + dx, w, cv::BORDER_REFLECT_101)];
    return uint16_t(sum);
  };
  const int inner_end = std::max(half, w - half);
  for (int x = 0; x < std::min(half, w); ++x) out[x] = mirrored(x);
  // Offset by offset over the inner pixels, so that every loop runs along the row.
  for (int x = half; x < inner_end; ++x) out[x] = in[x - half];
  for (int dx = 1 - half; dx <= half; ++dx)
    for (int x = half; x < inner_end; ++x) out[x] = uint16_t(out[x] + in[x + dx]);
  for (int x = inner_end; x < w; ++x) out[x] = mirrored(x);
}

}  // namespace

cv::Mat refineDisparity(const cv::Mat& census_left, const cv::Mat& census_right, const cv::Mat& prior_px, int radius,
                        int window, bool vectorised, RefinementCues* cues) {
  CV_Assert(census_left.type() == CV_32S && census_right.type() == CV_32S && prior_px.type() == CV_32F);
  CV_Assert(census_left.size() == census_right.size() && census_left.size() == prior_px.size());
  CV_Assert(radius >= 1 && radius <= 3 && window % 2 == 1 && window <= 45);
  const int K = 2 * radius + 1, w = prior_px.cols, h = prior_px.rows, half = window / 2;
  CV_Assert(w > half && h > half);
  const bool vector_kernel = vectorised && offsetCostsVectorised();
  cv::Mat out(prior_px.size(), CV_32F);
  if (cues) {
    cues->cost.create(prior_px.size(), CV_16U);
    cues->at_limit.create(prior_px.size(), CV_8U);
  }
  // Each band of rows runs the whole pipeline on its own core, costs to selection, without ever
  // storing a full image of costs or sums: the costs of the last `window` rows are kept with
  // their running sums down the columns, which are summed across for the row in their middle
  // (window sums of at most 31 * window^2, which 16 bits hold for windows up to 45). Rows beyond
  // the image are mirrored as cv::boxFilter's default border does; a band's first rows read its
  // neighbour's rows, so the sums are those of the whole image.
  const int bands = std::max(1, std::min(cv::getNumThreads(), h / window));
  cv::parallel_for_(cv::Range(0, bands), [&](const cv::Range& range) {
    std::vector<uint8_t*> cost_rows(static_cast<size_t>(K));
    std::vector<const uint16_t*> box_rows(static_cast<size_t>(K));
    for (int b = range.start; b < range.end; ++b) {
      BoxRows rows(K, w, window);
      for (int k = 0; k < K; ++k) box_rows[size_t(k)] = rows.boxRow(k);
      // Row v of the (unbounded) sequence of mirrored rows goes to ring slot v mod window, where
      // it replaces row v - window, which leaves the window as it enters.
      const auto enter_row = [&](int v) {
        const int slot = ((v % window) + window) % window;
        for (int k = 0; k < K; ++k) {
          cost_rows[size_t(k)] = rows.cost(slot, k);
          addDown(rows.cost(slot, k), -1, w, rows.downRow(k));
        }
        const int y = cv::borderInterpolate(v, h, cv::BORDER_REFLECT_101);
        const uint32_t *left = census_left.ptr<uint32_t>(y), *right = census_right.ptr<uint32_t>(y);
        const float* prior = prior_px.ptr<float>(y);
        const int done = vector_kernel ? offsetCostsVector(left, right, prior, w, radius, cost_rows.data()) : 0;
        offsetCostsRow(left, right, prior, done, w, radius, cost_rows.data());
        for (int k = 0; k < K; ++k) addDown(rows.cost(slot, k), 1, w, rows.downRow(k));
      };
      const int y0 = h * b / bands, y1 = h * (b + 1) / bands;
      for (int v = y0 - half; v < y0 + half; ++v) enter_row(v);
      for (int y = y0; y < y1; ++y) {
        enter_row(y + half);
        for (int k = 0; k < K; ++k) sumAcross(rows.downRow(k), w, half, rows.boxRow(k));
        selectRow(box_rows.data(), prior_px.ptr<float>(y), w, radius, rows.scratch.data(), out.ptr<float>(y),
                  cues ? cues->cost.ptr<uint16_t>(y) : nullptr, cues ? cues->at_limit.ptr<uint8_t>(y) : nullptr);
      }
    }
  });
  return out;
}

}  // namespace pv::internal
