// Semi-global matching on census costs.
//
// Cost: the Hamming distance between census words (census.cpp). Aggregation: the scan-line
// recurrence of semi-global matching along 3 directions that all run with the rows (left to
// right, right to left, top to bottom), so each row is matched as soon as it is aggregated and no cost volume is ever
// stored: the working set is a few rows of costs, which stays in the cache. The image is cut into horizontal stripes
// matched in parallel; each stripe starts its downward paths a few rows above its first row so that the cut leaves no
// trace. The row kernel exists once per instruction set (census_sgm_kernel.inc); the best one for
// the running CPU is picked once.
#include <algorithm>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/internal/cpu_features.h"
#include "depth/internal/stereo_stages.h"

namespace pv::internal {

#define PV_DECLARE_STRIPE_MATCHER(isa)                                                                           \
  namespace isa {                                                                                                \
  void matchStripe(const SgmParameters& p, const cv::Mat& left, const cv::Mat& ad_left, const cv::Mat& ad_right, \
                   const cv::Mat& census_l, const cv::Mat& census_r, int y0, int y1, SgmResult& result);         \
  }
PV_DECLARE_STRIPE_MATCHER(sgm_avx512_popcount)
PV_DECLARE_STRIPE_MATCHER(sgm_avx512)
PV_DECLARE_STRIPE_MATCHER(sgm_avx2)
PV_DECLARE_STRIPE_MATCHER(sgm_baseline)
#undef PV_DECLARE_STRIPE_MATCHER

namespace {

using StripeMatcher = void (*)(const SgmParameters&, const cv::Mat&, const cv::Mat&, const cv::Mat&, const cv::Mat&,
                               const cv::Mat&, int, int, SgmResult&);

/// Horizontal gradient (Sobel), clipped to +-31 and offset to 0..62: its differences between the
/// views ignore a brightness offset between the cameras, unlike plain grey levels.
cv::Mat gradientImage(const cv::Mat& gray) {
  constexpr int kClip = 31;
  cv::Mat dx, out;
  cv::Sobel(gray, dx, CV_16S, 1, 0, 3, 0.25);
  dx = cv::max(cv::min(dx, kClip), -kClip);
  dx.convertTo(out, CV_8U, 1.0, kClip);
  return out;
}

// Kernels in order of preference, with whether the running CPU has what each needs.
struct Kernel {
  StripeMatcher match;
  bool runs;
};

std::vector<Kernel> kernels() {
  std::vector<Kernel> k{{sgm_baseline::matchStripe, true},
                        {sgm_avx2::matchStripe, false},
                        {sgm_avx512::matchStripe, false},
                        {sgm_avx512_popcount::matchStripe, false}};
#if defined(PV_SGM_ISA_BUILDS)
  k[1].runs = cpuRuns(CpuLevel::kAvx2);
  k[2].runs = cpuRuns(CpuLevel::kAvx512);
  k[3].runs = cpuRuns(CpuLevel::kAvx512Popcount);
#endif
  return k;
}

StripeMatcher pickStripeMatcher(int wanted) {
  static const std::vector<Kernel> all = kernels();
  if (wanted >= 0) return wanted < int(all.size()) && all[size_t(wanted)].runs ? all[size_t(wanted)].match : nullptr;
  for (auto it = all.rbegin(); it != all.rend(); ++it)
    if (it->runs) return it->match;
  return all.front().match;
}

}  // namespace

bool sgmKernelRuns(int kernel) { return kernel >= 0 && pickStripeMatcher(kernel) != nullptr; }

SgmResult censusSgm(const cv::Mat& left, const cv::Mat& right, const SgmParameters& p) {
  CV_Assert(left.type() == CV_8UC1 && right.type() == CV_8UC1 && left.size() == right.size());
  CV_Assert(p.num_disparities >= 16 && p.num_disparities % 16 == 0 && p.num_disparities <= 256);
  const int h = left.rows;
  const cv::Mat census_l = censusTransform(left), census_r = censusTransform(right);
  cv::Mat ad_left, ad_right;
  if (p.ad_cap > 0) {
    ad_left = gradientImage(left);
    ad_right = gradientImage(right);
  }
  SgmResult result;
  result.left_px.create(left.size(), CV_32F);
  if (p.with_right) result.right_px.create(left.size(), CV_32F);
  if (p.with_margin) result.margin.create(left.size(), CV_8U);

  const int stripes = std::max(1, std::min(cv::getNumThreads(), h / 32));
  static const StripeMatcher best = pickStripeMatcher(-1);
  const StripeMatcher match_stripe = p.kernel < 0 ? best : pickStripeMatcher(p.kernel);
  CV_Assert(match_stripe != nullptr);
  // Every stripe but the first also runs its warm-up rows, so the first takes that many more rows
  // of its own and all finish together.
  const int share = (h + (stripes - 1) * kSgmWarmupRows + stripes - 1) / stripes;
  const auto first_row = [&](int s) {
    return s == 0 ? 0 : (s == stripes ? h : std::min(h, share + (s - 1) * (share - kSgmWarmupRows)));
  };
  cv::parallel_for_(cv::Range(0, stripes), [&](const cv::Range& range) {
    for (int s = range.start; s < range.end; ++s)
      match_stripe(p, left, ad_left, ad_right, census_l, census_r, first_row(s), first_row(s + 1), result);
  });
  return result;
}

}  // namespace pv::internal
