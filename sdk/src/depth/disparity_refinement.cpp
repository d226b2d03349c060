// Refinement of a coarse disparity at a finer level: each pixel searches only a few disparities
// around its prior, with census costs summed over a small window. Neighbours' costs are taken
// relative to their own priors, which agree within a pixel or two wherever the surface is smooth.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "depth/internal/refine_costs.h"
#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

using refine_kernels::kMaxCost;
using refine_kernels::kNeutralCost;

/// Whether the vector kernel of the offset costs runs here.
bool offsetCostsVectorised() {
#if defined(PV_REFINE_AVX512) && defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
  static const bool runs = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("x86-64-v4") && __builtin_cpu_supports("avx512vpopcntdq");
  }();
  return runs;
#else
  return false;
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
PV_INLINE void selectRowK(const uint16_t* const* cost, const float* prior, int width, int* lowest, int* best, int* a,
                          int* b, float* out) {
  for (int x = 0; x < width; ++x) lowest[x] = cost[0][x], best[x] = 0;
  for (int k = 1; k < K; ++k) {
    const uint16_t* c = cost[k];
#pragma GCC ivdep
    for (int x = 0; x < width; ++x) {
      const int v = c[x];
      best[x] = v < lowest[x] ? k : best[x];
      lowest[x] = v < lowest[x] ? v : lowest[x];
    }
  }
  // Neighbours of the winner (the winner itself at the ends, where no fit is made).
  for (int x = 0; x < width; ++x) a[x] = b[x] = lowest[x];
  for (int k = 0; k < K; ++k) {
    const uint16_t* c = cost[k];
#pragma GCC ivdep
    for (int x = 0; x < width; ++x) {
      a[x] = best[x] == k + 1 ? int(c[x]) : a[x];
      b[x] = best[x] == k - 1 ? int(c[x]) : b[x];
    }
  }
#pragma GCC ivdep
  for (int x = 0; x < width; ++x) {
    const int higher = a[x] > b[x] ? a[x] : b[x], rise = higher - lowest[x];
    const bool inner = (best[x] > 0) & (best[x] < K - 1) & (rise > 0);
    const float offset = inner ? 0.5f * static_cast<float>(a[x] - b[x]) / static_cast<float>(rise > 1 ? rise : 1) : 0.f;
    const float d = static_cast<float>(static_cast<int>(prior[x] + 0.5f) - K / 2 + best[x]) + offset;
    out[x] = prior[x] == prior[x] ? (d > 0.f ? d : 0.f) : std::numeric_limits<float>::quiet_NaN();
  }
}

PV_VECTOR_CLONES
void selectRow(const uint16_t* const* cost, const float* prior, int width, int radius, int* scratch, float* out) {
  int *lowest = scratch, *best = scratch + width, *a = scratch + 2 * width, *b = scratch + 3 * width;
  switch (radius) {
    case 1: selectRowK<3>(cost, prior, width, lowest, best, a, b, out); break;
    case 2: selectRowK<5>(cost, prior, width, lowest, best, a, b, out); break;
    default: selectRowK<7>(cost, prior, width, lowest, best, a, b, out); break;
  }
}

}  // namespace

cv::Mat refineDisparity(const cv::Mat& census_left, const cv::Mat& census_right, const cv::Mat& prior_px, int radius,
                        int window, bool vectorised) {
  CV_Assert(census_left.type() == CV_32S && census_right.type() == CV_32S && prior_px.type() == CV_32F);
  CV_Assert(census_left.size() == census_right.size() && census_left.size() == prior_px.size());
  CV_Assert(radius >= 1 && radius <= 3 && window % 2 == 1 && window <= 45);
  const int K = 2 * radius + 1, w = prior_px.cols;
  std::vector<cv::Mat> slices(static_cast<size_t>(K));
  for (cv::Mat& s : slices) s.create(prior_px.size(), CV_8U);
  const bool vector_kernel = vectorised && offsetCostsVectorised();
  cv::parallel_for_(cv::Range(0, prior_px.rows), [&](const cv::Range& rows) {
    std::vector<uint8_t*> row_ptrs(static_cast<size_t>(K));
    for (int y = rows.start; y < rows.end; ++y) {
      for (int k = 0; k < K; ++k) row_ptrs[static_cast<size_t>(k)] = slices[static_cast<size_t>(k)].ptr<uint8_t>(y);
      const uint32_t *left = census_left.ptr<uint32_t>(y), *right = census_right.ptr<uint32_t>(y);
      const float* prior = prior_px.ptr<float>(y);
      const int done =
          vector_kernel ? refine_kernels::offsetCostsAvx512(left, right, prior, w, radius, row_ptrs.data()) : 0;
      offsetCostsRow(left, right, prior, done, w, radius, row_ptrs.data());
    }
  });
  // Window sums (at most 31 * window^2, which 16 bits hold for windows up to 45).
  // OpenCV's box filter runs on one thread: the slices, each cut into as many bands of rows as
  // there are threads, go to the cores side by side (K slices alone would leave a core idle while
  // the last one is summed). A band reads its neighbours' rows as its border, so the sums are
  // those of whole slices.
  const int bands = std::max(1, std::min(cv::getNumThreads(), prior_px.rows / window));
  std::vector<cv::Mat> sums(slices.size());
  for (cv::Mat& s : sums) s.create(prior_px.size(), CV_16U);
  cv::parallel_for_(cv::Range(0, K * bands), [&](const cv::Range& tasks) {
    for (int t = tasks.start; t < tasks.end; ++t) {
      const size_t k = size_t(t / bands);
      const cv::Range rows(prior_px.rows * (t % bands) / bands, prior_px.rows * (t % bands + 1) / bands);
      cv::Mat band = sums[k].rowRange(rows);
      cv::boxFilter(slices[k].rowRange(rows), band, CV_16U, cv::Size(window, window), cv::Point(-1, -1), false);
      CV_DbgAssert(band.data == sums[k].ptr(rows.start));
    }
  });

  cv::Mat out(prior_px.size(), CV_32F);
  cv::parallel_for_(cv::Range(0, prior_px.rows), [&](const cv::Range& rows) {
    std::vector<const uint16_t*> cost(static_cast<size_t>(K));
    std::vector<int> scratch(4 * static_cast<size_t>(w));
    for (int y = rows.start; y < rows.end; ++y) {
      for (int k = 0; k < K; ++k) cost[static_cast<size_t>(k)] = sums[static_cast<size_t>(k)].ptr<uint16_t>(y);
      selectRow(cost.data(), prior_px.ptr<float>(y), w, radius, scratch.data(), out.ptr<float>(y));
    }
  });
  return out;
}

}  // namespace pv::internal
