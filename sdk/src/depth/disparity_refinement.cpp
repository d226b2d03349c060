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

constexpr uint16_t kMaxCost = 31;      // the census word's length: no match at all
constexpr uint16_t kNeutralCost = 16;  // pixels without a prior: no preference

/// Costs of row y for every offset k: slices[k](y, x) = Hamming distance between the left pixel
/// and the right pixel at the prior's disparity + k - radius.
PV_VECTOR_CLONES
void offsetCostsRow(const uint32_t* left, const uint32_t* right, const float* prior, int width, int radius,
                    std::vector<cv::Mat>& slices, int y) {
  const int K = 2 * radius + 1;
  std::vector<uint16_t*> rows(static_cast<size_t>(K));
  for (int k = 0; k < K; ++k) rows[static_cast<size_t>(k)] = slices[static_cast<size_t>(k)].ptr<uint16_t>(y);
  for (int x = 0; x < width; ++x) {
    const float p = prior[x];
    if (!(p == p)) {
      for (int k = 0; k < K; ++k) rows[static_cast<size_t>(k)][x] = kNeutralCost;
      continue;
    }
    const int d0 = static_cast<int>(p + 0.5f) - radius;
    for (int k = 0; k < K; ++k) {
      const int d = d0 + k, xr = x - d;
      rows[static_cast<size_t>(k)][x] =
          d >= 0 && xr >= 0 ? static_cast<uint16_t>(__builtin_popcount(left[x] ^ right[xr])) : kMaxCost;
    }
  }
}

}  // namespace

cv::Mat refineDisparity(const cv::Mat& census_left, const cv::Mat& census_right, const cv::Mat& prior_px, int radius,
                        int window) {
  CV_Assert(census_left.type() == CV_32S && census_right.type() == CV_32S && prior_px.type() == CV_32F);
  CV_Assert(census_left.size() == census_right.size() && census_left.size() == prior_px.size());
  CV_Assert(radius >= 1 && window % 2 == 1);
  const int K = 2 * radius + 1, w = prior_px.cols;
  std::vector<cv::Mat> slices(static_cast<size_t>(K));
  for (cv::Mat& s : slices) s.create(prior_px.size(), CV_16U);
  cv::parallel_for_(cv::Range(0, prior_px.rows), [&](const cv::Range& rows) {
    for (int y = rows.start; y < rows.end; ++y)
      offsetCostsRow(census_left.ptr<uint32_t>(y), census_right.ptr<uint32_t>(y), prior_px.ptr<float>(y), w, radius,
                     slices, y);
  });
  for (cv::Mat& s : slices) cv::boxFilter(s, s, -1, cv::Size(window, window), cv::Point(-1, -1), false);

  cv::Mat out(prior_px.size(), CV_32F);
  cv::parallel_for_(cv::Range(0, prior_px.rows), [&](const cv::Range& rows) {
    std::vector<const uint16_t*> cost(static_cast<size_t>(K));
    for (int y = rows.start; y < rows.end; ++y) {
      for (int k = 0; k < K; ++k) cost[static_cast<size_t>(k)] = slices[static_cast<size_t>(k)].ptr<uint16_t>(y);
      const float* prior = prior_px.ptr<float>(y);
      float* o = out.ptr<float>(y);
      for (int x = 0; x < w; ++x) {
        if (!(prior[x] == prior[x])) {
          o[x] = std::numeric_limits<float>::quiet_NaN();
          continue;
        }
        int best = 0;
        for (int k = 1; k < K; ++k)
          if (cost[static_cast<size_t>(k)][x] < cost[static_cast<size_t>(best)][x]) best = k;
        float d = static_cast<float>(static_cast<int>(prior[x] + 0.5f) - radius + best);
        if (best > 0 && best < K - 1) {
          const int a = cost[static_cast<size_t>(best - 1)][x], c = cost[static_cast<size_t>(best + 1)][x];
          const int denom = a + c - 2 * cost[static_cast<size_t>(best)][x];
          if (denom > 0) d += static_cast<float>(a - c) / static_cast<float>(2 * denom);
        }
        o[x] = std::max(d, 0.f);
      }
    }
  });
  return out;
}

}  // namespace pv::internal
