// Refinement of a coarse disparity at a finer level: each pixel searches only a few disparities
// around its prior, with census costs summed over a small window. Neighbours' costs are taken
// relative to their own priors, which agree within a pixel or two wherever the surface is smooth.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

constexpr uint8_t kMaxCost = 31;      // the census word's length: no match at all
constexpr uint8_t kNeutralCost = 16;  // pixels without a prior: no preference

/// Costs of row y for every offset k: slices[k](y, x) = Hamming distance between the left pixel
/// and the right pixel at the prior's disparity + k - radius. Written without branches over x so
/// that the compiler vectorises it (a gather of the right census words per offset).
PV_VECTOR_CLONES
void offsetCostsRow(const uint32_t* left, const uint32_t* right, const float* prior, int width, int radius,
                    uint8_t* const* rows, int* first) {
  for (int x = 0; x < width; ++x) {
    const float p = prior[x];
    first[x] = p == p ? static_cast<int>(p + 0.5f) - radius : -(1 << 20);
  }
  for (int k = 0; k < 2 * radius + 1; ++k) {
    uint8_t* out = rows[k];
    for (int x = 0; x < width; ++x) {
      const bool known = first[x] > -(1 << 20);
      const int d = first[x] + k, xr = x - d;
      const bool inside = known & (d >= 0) & (xr >= 0);
      const uint32_t word = right[inside ? xr : 0];
      const uint8_t unmatched = known ? kMaxCost : kNeutralCost;
      out[x] = inside ? static_cast<uint8_t>(__builtin_popcount(left[x] ^ word)) : unmatched;
    }
  }
}

/// Best offset per pixel and its sub-pixel position (equiangular fit, as in the matcher), for K
/// offsets known at compile time so that the loop over x vectorises.
template <int K>
PV_INLINE void selectRowK(const uint16_t* const* cost, const float* prior, int width, float* out) {
  const uint16_t* c[K];
  for (int k = 0; k < K; ++k) c[k] = cost[k];
  for (int x = 0; x < width; ++x) {
    int best = 0, lowest = c[0][x];
    for (int k = 1; k < K; ++k) {
      const int v = c[k][x];
      best = v < lowest ? k : best;
      lowest = v < lowest ? v : lowest;
    }
    // Neighbours of the winner (the winner itself at the ends, where no fit is made).
    int a = lowest, b = lowest;
    for (int k = 0; k < K; ++k) {
      a = k == best - 1 ? int(c[k][x]) : a;
      b = k == best + 1 ? int(c[k][x]) : b;
    }
    const int rise = std::max(a, b) - lowest;
    const bool inner = (best > 0) & (best < K - 1) & (rise > 0);
    const float offset = inner ? 0.5f * static_cast<float>(a - b) / static_cast<float>(std::max(rise, 1)) : 0.f;
    const float d = static_cast<float>(static_cast<int>(prior[x] + 0.5f) - K / 2 + best) + offset;
    out[x] = prior[x] == prior[x] ? std::max(d, 0.f) : std::numeric_limits<float>::quiet_NaN();
  }
}

PV_VECTOR_CLONES
void selectRow(const uint16_t* const* cost, const float* prior, int width, int radius, float* out) {
  switch (radius) {
    case 1: selectRowK<3>(cost, prior, width, out); break;
    case 2: selectRowK<5>(cost, prior, width, out); break;
    default: selectRowK<7>(cost, prior, width, out); break;
  }
}

}  // namespace

cv::Mat refineDisparity(const cv::Mat& census_left, const cv::Mat& census_right, const cv::Mat& prior_px, int radius,
                        int window) {
  CV_Assert(census_left.type() == CV_32S && census_right.type() == CV_32S && prior_px.type() == CV_32F);
  CV_Assert(census_left.size() == census_right.size() && census_left.size() == prior_px.size());
  CV_Assert(radius >= 1 && radius <= 3 && window % 2 == 1 && window <= 45);
  const int K = 2 * radius + 1, w = prior_px.cols;
  std::vector<cv::Mat> slices(static_cast<size_t>(K));
  for (cv::Mat& s : slices) s.create(prior_px.size(), CV_8U);
  cv::parallel_for_(cv::Range(0, prior_px.rows), [&](const cv::Range& rows) {
    std::vector<uint8_t*> row_ptrs(static_cast<size_t>(K));
    std::vector<int> first(static_cast<size_t>(w));
    for (int y = rows.start; y < rows.end; ++y) {
      for (int k = 0; k < K; ++k) row_ptrs[static_cast<size_t>(k)] = slices[static_cast<size_t>(k)].ptr<uint8_t>(y);
      offsetCostsRow(census_left.ptr<uint32_t>(y), census_right.ptr<uint32_t>(y), prior_px.ptr<float>(y), w, radius,
                     row_ptrs.data(), first.data());
    }
  });
  // Window sums (at most 31 * window^2, which 16 bits hold for windows up to 45).
  // OpenCV's box filter runs on one thread: the slices go to the cores side by side.
  std::vector<cv::Mat> sums(slices.size());
  cv::parallel_for_(cv::Range(0, K), [&](const cv::Range& ks) {
    for (int k = ks.start; k < ks.end; ++k)
      cv::boxFilter(slices[size_t(k)], sums[size_t(k)], CV_16U, cv::Size(window, window), cv::Point(-1, -1), false);
  });

  cv::Mat out(prior_px.size(), CV_32F);
  cv::parallel_for_(cv::Range(0, prior_px.rows), [&](const cv::Range& rows) {
    std::vector<const uint16_t*> cost(static_cast<size_t>(K));
    for (int y = rows.start; y < rows.end; ++y) {
      for (int k = 0; k < K; ++k) cost[static_cast<size_t>(k)] = sums[static_cast<size_t>(k)].ptr<uint16_t>(y);
      selectRow(cost.data(), prior_px.ptr<float>(y), w, radius, out.ptr<float>(y));
    }
  });
  return out;
}

}  // namespace pv::internal
