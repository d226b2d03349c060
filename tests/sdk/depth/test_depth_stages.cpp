// The single stages of the depth pipeline on small hand-made inputs.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/ximgproc/edge_filter.hpp>

#include "depth/internal/global_smoother.h"
#include "depth/internal/stereo_stages.h"
#include "stereo_scenes.h"

namespace pv::internal {
namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN();

cv::Mat row(std::initializer_list<float> values) {
  cv::Mat m(1, static_cast<int>(values.size()), CV_32F);
  int i = 0;
  for (float v : values) m.at<float>(0, i++) = v;
  return m;
}

TEST(DepthStages, LeftRightCheckDropsDisagreeingPixels) {
  // Left pixel x with disparity d lands on right pixel x - d.
  cv::Mat left = row({3, 1, 1, 2, 2, 1});
  const cv::Mat right = row({1, 1, 9, 2, kNaN, 0});
  const cv::Mat diff = leftRightCheck(left, right, 1.f);
  EXPECT_TRUE(std::isnan(left.at<float>(0, 0)));  // outside the right image: unverifiable, dropped
  EXPECT_TRUE(std::isnan(diff.at<float>(0, 0)));
  EXPECT_FLOAT_EQ(left.at<float>(0, 1), 1.f);  // agrees
  EXPECT_FLOAT_EQ(diff.at<float>(0, 1), 0.f);
  EXPECT_FLOAT_EQ(left.at<float>(0, 3), 2.f);  // one pixel apart: within the tolerance
  EXPECT_FLOAT_EQ(diff.at<float>(0, 3), 1.f);
  EXPECT_TRUE(std::isnan(left.at<float>(0, 4)));  // 2 against 9
  EXPECT_FLOAT_EQ(diff.at<float>(0, 4), 7.f);
  EXPECT_TRUE(std::isnan(left.at<float>(0, 5)));  // the right view has no value there

  // x - d is rounded half away from zero: -0.5 lies outside, 0.5 lands on right pixel 1.
  cv::Mat halves = row({0.5f, 0.4f, 1.5f});
  const cv::Mat half_diff = leftRightCheck(halves, row({0.4f, 1.4f, 7.f}), 1.f);
  EXPECT_TRUE(std::isnan(halves.at<float>(0, 0)));
  EXPECT_FLOAT_EQ(halves.at<float>(0, 1), 0.4f);
  EXPECT_NEAR(half_diff.at<float>(0, 2), 0.1f, 1e-6f);
  EXPECT_FLOAT_EQ(halves.at<float>(0, 2), 1.5f);
}

TEST(DepthStages, TheStripTheRightCameraMissesIsMarked) {
  // Right pixel 0 sees left pixel 0 + 6: left columns 0..5 have no match. A row without right
  // values takes its neighbours' estimate, one outlier row is outvoted; no values, no mark.
  cv::Mat right(9, 12, CV_32F, cv::Scalar(6.f));
  right.row(3).setTo(kNaN);
  right.row(5).setTo(11.f);
  const cv::Mat unseen = unseenByRight(right);
  for (int y = 0; y < 9; ++y) EXPECT_EQ(cv::countNonZero(unseen.row(y)), 6) << y;
  EXPECT_EQ(unseen.at<uint8_t>(0, 5), 255);
  EXPECT_EQ(unseen.at<uint8_t>(0, 6), 0);
  const cv::Mat none = unseenByRight(cv::Mat(4, 12, CV_32F, cv::Scalar(kNaN)));
  EXPECT_EQ(cv::countNonZero(none), 0);
}

TEST(DepthStages, SpeckleRemovalDropsSmallIslandsOnly) {
  cv::Mat d(40, 40, CV_32F, cv::Scalar(10.f));
  d(cv::Rect(5, 5, 3, 3)).setTo(30.f);      // 9-pixel island
  d(cv::Rect(20, 20, 12, 12)).setTo(20.f);  // 144-pixel region
  d.at<float>(0, 39) = kNaN;
  removeSpeckles(d, 50, 1.f);
  EXPECT_TRUE(std::isnan(d.at<float>(6, 6)));
  EXPECT_FLOAT_EQ(d.at<float>(25, 25), 20.f);
  EXPECT_FLOAT_EQ(d.at<float>(0, 0), 10.f);
  EXPECT_TRUE(std::isnan(d.at<float>(0, 39)));
  EXPECT_EQ(cv::countNonZero(invalidMask(d)), 10);
}

TEST(DepthStages, SpeckleRemovalFindsOpenCvsRegions) {
  // Noisy slopes with holes, of odd size: regions of every size, many of them across the rows
  // where the work is split between threads. The result must be OpenCV's filterSpeckles exactly.
  cv::Mat noisy(121, 203, CV_32F);
  cv::RNG rng(11);
  for (int y = 0; y < noisy.rows; ++y)
    for (int x = 0; x < noisy.cols; ++x)
      noisy.at<float>(y, x) = rng.uniform(0, 9) == 0 ? kNaN : 0.13f * x + 0.05f * y + rng.uniform(-1.2f, 1.2f);
  for (const int max_size : {4, 30, 200}) {
    for (const float max_diff : {0.5f, 1.f}) {
      cv::Mat ours = noisy.clone();
      removeSpeckles(ours, max_size, max_diff);
      cv::Mat fixed16;
      noisy.convertTo(fixed16, CV_16S, 16.0);
      fixed16.setTo(-16, invalidMask(noisy));
      cv::filterSpeckles(fixed16, -16, max_size, max_diff * 16.0);
      cv::Mat theirs = noisy.clone();
      theirs.setTo(kNaN, fixed16 == -16);
      EXPECT_EQ(mapura::test::differingBytes(ours, theirs), 0) << max_size << " px, " << max_diff << " px";
      const int dropped = cv::countNonZero(invalidMask(ours)) - cv::countNonZero(invalidMask(noisy));
      EXPECT_GT(dropped, 0) << max_size << " px, " << max_diff << " px";
    }
  }
}

TEST(DepthStages, HoleFillTakesTheFartherSide) {
  cv::Mat d = row({kNaN, 5, kNaN, kNaN, 9, kNaN});
  fillHoles(d);
  const float expected[] = {5, 5, 5, 5, 9, 9};
  for (int x = 0; x < 6; ++x) EXPECT_FLOAT_EQ(d.at<float>(0, x), expected[x]) << x;

  // A row without any value is filled from its column.
  cv::Mat two(3, 2, CV_32F, cv::Scalar(kNaN));
  two.at<float>(0, 0) = 4;
  two.at<float>(2, 1) = 6;
  fillHoles(two);
  EXPECT_EQ(cv::countNonZero(invalidMask(two)), 0);
  EXPECT_FLOAT_EQ(two.at<float>(1, 0), 4.f);

  cv::Mat empty(4, 4, CV_32F, cv::Scalar(kNaN));
  fillHoles(empty);
  EXPECT_EQ(cv::countNonZero(empty == empty), 0);
}

TEST(DepthStages, UpsamplingScalesValuesAndKeepsEdgesAndHoles) {
  cv::Mat half(10, 10, CV_32F, cv::Scalar(4.f));
  half(cv::Rect(5, 0, 5, 10)).setTo(12.f);
  half.at<float>(2, 2) = kNaN;
  const cv::Mat full = upsampleDisparity(half, cv::Size(20, 20));
  ASSERT_EQ(full.size(), cv::Size(20, 20));
  EXPECT_FLOAT_EQ(full.at<float>(10, 2), 8.f);
  EXPECT_FLOAT_EQ(full.at<float>(10, 17), 24.f);
  EXPECT_TRUE(std::isnan(full.at<float>(4, 4)));
  // No value between foreground and background at the edge.
  for (int x = 0; x < 20; ++x) {
    const float v = full.at<float>(15, x);
    EXPECT_TRUE(v == 8.f || v == 24.f) << x << ": " << v;
  }
}

TEST(DepthStages, EdgeAwareFilterFillsHolesWithoutCrossingImageEdges) {
  // Left half dark, right half bright; disparity 5 on the left, 15 on the right, a hole in each.
  cv::Mat guide(40, 40, CV_8U, cv::Scalar(40));
  guide(cv::Rect(20, 0, 20, 40)).setTo(200);
  cv::Mat d(40, 40, CV_32F, cv::Scalar(5.f));
  d(cv::Rect(20, 0, 20, 40)).setTo(15.f);
  d(cv::Rect(14, 10, 12, 10)).setTo(kNaN);
  const cv::Mat out = filterEdgeAware(d, cv::Mat(), guide, 100, 1.5);
  EXPECT_EQ(cv::countNonZero(invalidMask(out)), 0);
  EXPECT_NEAR(out.at<float>(15, 16), 5.f, 0.5f);
  EXPECT_NEAR(out.at<float>(15, 23), 15.f, 0.5f);
}

TEST(DepthStages, GlobalSmootherSolvesTheSameSystemAsOpenCvs) {
  // A textured guide of an odd size (rows left over after the groups of four, a partial column
  // block) and two different signals; OpenCV's smoother is the reference, one image at a time.
  const cv::Size size(301, 123);
  cv::Mat guide;
  mapura::test::makeTexture(size, 7).convertTo(guide, CV_8U);
  guide(cv::Rect(150, 0, 40, 123)).setTo(30);  // a flat patch: strong coupling
  cv::Mat a(size, CV_32F), b(size, CV_32F);
  cv::randu(a, 0.f, 50.f);
  cv::randu(b, 0.f, 1.f);
  for (const int iterations : {1, 3}) {
    for (const double lambda : {30.0, 300.0}) {
      cv::Mat ours_a = a.clone(), ours_b = b.clone();
      GlobalSmoother(guide, lambda, 1.5, 0.25, iterations).filter(ours_a, ours_b);
      const auto reference = cv::ximgproc::createFastGlobalSmootherFilter(guide, lambda, 1.5, 0.25, iterations);
      cv::Mat ref_a, ref_b;
      reference->filter(a, ref_a);
      reference->filter(b, ref_b);
      EXPECT_LT(cv::norm(ours_a, ref_a, cv::NORM_INF), 5e-3) << iterations << " " << lambda;
      EXPECT_LT(cv::norm(ours_b, ref_b, cv::NORM_INF), 1e-4) << iterations << " " << lambda;
      EXPECT_GT(cv::norm(ours_a, a, cv::NORM_INF), 1.0);  // it did smooth

      // The weighted mean makes its two images and divides them inside the passes: the same as
      // making them first, filtering and dividing after. Values a with holes, weights b.
      cv::Mat values = a.clone();
      values(cv::Rect(40, 20, 30, 9)).setTo(kNaN);
      cv::Mat num(size, CV_32F), den(size, CV_32F), expected(size, CV_32F);
      for (int i = 0; i < int(values.total()); ++i) {
        const float v = values.at<float>(i);
        den.at<float>(i) = v == v ? b.at<float>(i) : 0.f;
        num.at<float>(i) = v == v ? v * den.at<float>(i) : 0.f;
      }
      const GlobalSmoother smoother(guide, lambda, 1.5, 0.25, iterations);
      smoother.filter(num, den);
      for (int i = 0; i < int(values.total()); ++i)
        expected.at<float>(i) = den.at<float>(i) < 0.2f ? kNaN : num.at<float>(i) / den.at<float>(i);
      const cv::Mat mean = smoother.weightedMean(values, b, 0.2f);
      EXPECT_EQ(mapura::test::differingBytes(mean, expected), 0) << iterations << " " << lambda;
      EXPECT_GT(cv::countNonZero(invalidMask(mean)), 0);  // some weights fall short of 0.2

      // Sixteen rows at a time in the vector kernel (where the CPU runs it) or four in the scalar
      // one: the same numbers, also in the rows and columns left over.
      GlobalSmoother scalar(guide, lambda, 1.5, 0.25, iterations);
      scalar.useScalarRows();
      EXPECT_EQ(mapura::test::differingBytes(scalar.weightedMean(values, b, 0.2f), mean), 0);
    }
  }
}

TEST(DepthStages, TextureAndSaturation) {
  cv::Mat gray(40, 40, CV_8U, cv::Scalar(128));
  mapura::test::makeTexture(cv::Size(20, 40), 3).convertTo(gray(cv::Rect(0, 0, 20, 40)), CV_8U);
  gray(cv::Rect(30, 30, 4, 4)).setTo(255);
  const cv::Mat texture = textureConfidence(gray);
  EXPECT_FLOAT_EQ(texture.at<float>(10, 34), 100.f);  // flat grey
  EXPECT_LT(texture.at<float>(20, 8), 30.f);          // random texture
  const cv::Mat saturated = saturationMask(gray);
  EXPECT_EQ(saturated.at<uint8_t>(31, 31), 255);
  EXPECT_EQ(saturated.at<uint8_t>(28, 28), 255);  // grown by two pixels
  EXPECT_EQ(saturated.at<uint8_t>(20, 20), 0);

  // Only the rows near saturated pixels are grown; the mask must still equal growing the whole
  // threshold, for spots at the borders, in the middle band and nowhere.
  cv::Mat noisy(90, 70, CV_8U);
  cv::randu(noisy, 0, 240);
  const auto reference = [](const cv::Mat& g) {
    cv::Mat grown;
    cv::dilate(g >= 250, grown, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(5, 5)));
    return grown;
  };
  EXPECT_EQ(cv::countNonZero(saturationMask(noisy)), 0);
  for (const cv::Point spot : {cv::Point(0, 0), cv::Point(69, 89), cv::Point(35, 44), cv::Point(3, 1)}) {
    noisy.at<uint8_t>(spot) = 251;
    noisy.at<uint8_t>(std::min(spot.y + 7, 89), 10) = 255;
    const cv::Mat ours = saturationMask(noisy);
    EXPECT_EQ(cv::norm(ours, reference(noisy), cv::NORM_INF), 0) << spot;
  }
}

TEST(DepthStages, ConfidenceFollowsRoughnessAndDisagreement) {
  cv::Mat d(20, 20, CV_32F, cv::Scalar(10.f));
  d(cv::Rect(10, 0, 10, 20)).setTo(30.f);
  d.at<float>(3, 3) = kNaN;
  cv::Mat lr(20, 20, CV_32F, cv::Scalar(0.f));
  lr.at<float>(15, 3) = 2.f;
  const cv::Mat c = disparityConfidence(d, lr);
  EXPECT_FLOAT_EQ(c.at<float>(10, 3), 1.f);     // flat and consistent
  EXPECT_FLOAT_EQ(c.at<float>(10, 10), 100.f);  // at the step
  EXPECT_FLOAT_EQ(c.at<float>(15, 3), 100.f);   // two views disagree
  EXPECT_TRUE(std::isnan(c.at<float>(3, 3)));

  // Weights for the edge-aware filter: sure and consistent 1, doubtful or disagreeing less, none
  // where invalid.
  lr.at<float>(10, 3) = 1.f;
  const cv::Mat w = measurementWeight(c, lr);
  EXPECT_FLOAT_EQ(w.at<float>(5, 3), 1.f);
  EXPECT_NEAR(w.at<float>(10, 3), std::exp(-1.f), 1e-5);
  EXPECT_LT(w.at<float>(10, 10), 1e-6f);
  EXPECT_EQ(w.at<float>(3, 3), 0.f);
}

TEST(DepthStages, MatcherFindsLeftAndRightDisparities) {
  const auto plane = mapura::test::renderStep(cv::Size(160, 80), 6.f, 6.f, cv::Rect());
  SgmParameters params;
  params.num_disparities = 16;
  params.with_right = true;
  params.uniqueness_pct = 0;
  const SgmResult m = censusSgm(plane.left, plane.right, params);
  // Smoothness carries the disparity into the left border, which the right image does not see.
  EXPECT_NEAR(m.left_px.at<float>(40, 2), 6.f, 1.f);
  EXPECT_NEAR(m.left_px.at<float>(40, 80), 6.f, 0.25f);
  EXPECT_NEAR(m.left_px.at<float>(79, 159), 6.f, 0.25f);
  EXPECT_NEAR(m.right_px.at<float>(40, 80), 6.f, 0.5f);
  EXPECT_NEAR(m.right_px.at<float>(0, 150), 6.f, 0.5f);
}

TEST(DepthStages, EveryMatcherKernelGivesTheBaselineResult) {
  // A textured box in front of a plane, matched by each instruction set's kernel: all the same.
  const auto step = mapura::test::renderStep(cv::Size(200, 120), 7.f, 19.f, cv::Rect(60, 30, 70, 50), 4);
  SgmParameters params;
  params.num_disparities = 32;
  params.with_right = true;
  params.kernel = 0;
  const SgmResult base = censusSgm(step.left, step.right, params);
  int compared = 0;
  for (int kernel = 1; kernel <= 3; ++kernel) {
    if (!sgmKernelRuns(kernel)) continue;
    params.kernel = kernel;
    const SgmResult k = censusSgm(step.left, step.right, params);
    EXPECT_EQ(mapura::test::differingBytes(base.left_px, k.left_px), 0) << kernel;
    EXPECT_EQ(mapura::test::differingBytes(base.right_px, k.right_px), 0) << kernel;
    ++compared;
  }
  EXPECT_FALSE(sgmKernelRuns(4));
  if (compared == 0) GTEST_SKIP() << "this CPU runs the baseline kernel only";
}

TEST(DepthStages, RefinementFindsTheDisparityNearItsPriorWithEitherCostKernel) {
  // A box (19 px) in front of a plane (7 px); the prior is off by most of a pixel (as a coarser
  // level's is), has holes, and sends the left border's matches off the right image.
  const auto step = mapura::test::renderStep(cv::Size(203, 120), 7.f, 19.f, cv::Rect(60, 30, 70, 50), 4);
  cv::Mat prior(step.left.size(), CV_32F);
  for (int y = 0; y < prior.rows; ++y)
    for (int x = 0; x < prior.cols; ++x) {
      const bool box = cv::Rect(60, 30, 70, 50).contains(cv::Point(x, y));
      prior.at<float>(y, x) = (x * 7 + y * 3) % 23 == 0 ? kNaN : (box ? 19.8f : 6.2f);
    }
  const cv::Mat census_l = censusTransform(step.left), census_r = censusTransform(step.right);
  const cv::Mat ours = refineDisparity(census_l, census_r, prior, 2, 5);
  EXPECT_NEAR(ours.at<float>(55, 95), 19.f, 0.5f);
  EXPECT_NEAR(ours.at<float>(100, 150), 7.f, 0.5f);
  EXPECT_TRUE(std::isnan(ours.at<float>(0, 0)));
  const cv::Mat scalar = refineDisparity(census_l, census_r, prior, 2, 5, false);
  EXPECT_EQ(mapura::test::differingBytes(ours, scalar), 0);
  // Where the prior has a value, so has the result.
  EXPECT_EQ(cv::countNonZero(validMask(ours) != validMask(prior)), 0);

  // The rows are cut into one band per thread, each summing its neighbours' rows too: any cut
  // gives the same result.
  const int threads = cv::getNumThreads();
  for (const int n : {1, 3, 7}) {
    cv::setNumThreads(n);
    EXPECT_EQ(mapura::test::differingBytes(refineDisparity(census_l, census_r, prior, 2, 5), ours), 0) << n;
  }
  cv::setNumThreads(threads);

  // Every pixel's winner against sums made the slow way, mirrored at all four borders.
  // The winner's window cost and whether it lies at the end of the search come along.
  const int radius = 1, window = 7, half = window / 2;
  RefinementCues cues;
  const cv::Mat coarse = refineDisparity(census_l, census_r, prior, radius, window, true, &cues);
  ASSERT_EQ(cues.cost.type(), CV_16U);
  ASSERT_EQ(cues.at_limit.type(), CV_8U);
  const auto cost = [&](int y, int x, int k) {
    const float p = prior.at<float>(y, x);
    if (p != p) return 16;
    const int d = static_cast<int>(p + 0.5f) - radius + k, xr = x - d;
    if (d < 0 || xr < 0) return 31;
    return __builtin_popcount(census_l.at<uint32_t>(y, x) ^ census_r.at<uint32_t>(y, xr));
  };
  int checked = 0;
  for (int y = 0; y < prior.rows; ++y)
    for (int x = 0; x < prior.cols; ++x) {
      const float p = prior.at<float>(y, x);
      if (p != p) continue;
      int best = 0, lowest = 1 << 30;
      for (int k = 0; k < 2 * radius + 1; ++k) {
        int sum = 0;
        for (int dy = -half; dy <= half; ++dy)
          for (int dx = -half; dx <= half; ++dx)
            sum += cost(cv::borderInterpolate(y + dy, prior.rows, cv::BORDER_REFLECT_101),
                        cv::borderInterpolate(x + dx, prior.cols, cv::BORDER_REFLECT_101), k);
        if (sum < lowest) lowest = sum, best = k;
      }
      const float winner = std::max(0.f, static_cast<float>(static_cast<int>(p + 0.5f) - radius + best));
      ASSERT_LE(std::abs(coarse.at<float>(y, x) - winner), 0.5f) << y << " " << x;
      ASSERT_EQ(cues.cost.at<uint16_t>(y, x), lowest) << y << " " << x;
      ASSERT_EQ(cues.at_limit.at<uint8_t>(y, x), best == 0 || best == 2 * radius ? 1 : 0) << y << " " << x;
      ++checked;
    }
  EXPECT_GT(checked, prior.total() * 9 / 10);
}

TEST(DepthStages, MatcherMarginTellsClearWinnersFromTies) {
  // A textured plane whose left view shows, in a wide band, a texture the right view does not
  // have: there no disparity fits, and none wins clearly.
  auto plane = mapura::test::renderStep(cv::Size(240, 120), 6.f, 6.f, cv::Rect());
  cv::Mat other;
  mapura::test::makeTexture(cv::Size(80, 120), 77).convertTo(other, CV_8U);
  other.copyTo(plane.left(cv::Rect(100, 0, 80, 120)));
  SgmParameters params;
  params.num_disparities = 32;
  params.with_margin = true;
  params.uniqueness_pct = 0;
  const SgmResult m = censusSgm(plane.left, plane.right, params);
  ASSERT_EQ(m.margin.type(), CV_8U);
  ASSERT_EQ(m.margin.size(), plane.left.size());
  const cv::Mat matching = m.margin(cv::Rect(40, 10, 40, 100)), unmatched = m.margin(cv::Rect(120, 10, 40, 100));
  EXPECT_GT(cv::mean(matching)[0], 200.0);
  EXPECT_LT(cv::mean(unmatched)[0], 0.4 * cv::mean(matching)[0]);
  // Without asking, no margins.
  params.with_margin = false;
  EXPECT_TRUE(censusSgm(plane.left, plane.right, params).margin.empty());
  // Every kernel gives the same margins.
  params.with_margin = true;
  for (int kernel = 0; kernel <= 3; ++kernel) {
    if (!sgmKernelRuns(kernel)) continue;
    params.kernel = kernel;
    EXPECT_EQ(cv::countNonZero(censusSgm(plane.left, plane.right, params).margin != m.margin), 0) << kernel;
  }
}

TEST(DepthStages, DoubtGrowsWithWhatEachStageSaw) {
  // Pixel by pixel: kept as matched, moved by the filter 0.5, 1 and 10 pixels, invented by the
  // filter (no match), and no value at all.
  const cv::Mat filtered = row({5, 5.5f, 6, 15, 5, kNaN});
  const cv::Mat matched = row({5, 5, 5, 5, kNaN, 5});
  DoubtCues none;
  const cv::Mat d = matchDoubt(filtered, matched, none);
  EXPECT_EQ(d.at<float>(0), 0.f);
  EXPECT_GT(d.at<float>(2), d.at<float>(1));
  EXPECT_GT(d.at<float>(3), d.at<float>(2));
  EXPECT_LT(d.at<float>(3), 10.f);  // a large correction counts as a capped one
  EXPECT_GT(d.at<float>(4), d.at<float>(2));
  EXPECT_TRUE(std::isnan(d.at<float>(5)));

  // Each cue adds doubt on its own: a close runner-up, a refinement's search ending at its winner,
  // a costly match, and a coarser level's doubt.
  const cv::Mat same = row({5, 5, 5, 5, 5, 5});
  DoubtCues cues;
  cues.margin = (cv::Mat_<uint8_t>(1, 6) << 255, 0, 255, 255, 255, 255);
  cues.refinement.at_limit = (cv::Mat_<uint8_t>(1, 6) << 0, 0, 1, 0, 0, 0);
  cues.refinement.cost = (cv::Mat_<uint16_t>(1, 6) << 0, 0, 0, 25 * 20, 0, 0);
  cues.refinement_window = 5;
  cues.base_doubt = row({0, 0, 0, 0, 0.75f, 0});
  const cv::Mat c = matchDoubt(same, same, cues);
  EXPECT_EQ(c.at<float>(0), 0.f);
  for (int i = 1; i <= 3; ++i) EXPECT_GT(c.at<float>(i), 0.f) << i;
  EXPECT_FLOAT_EQ(c.at<float>(4), 0.75f);
  // A clear winner, or a low cost, adds nothing.
  cues.margin.at<uint8_t>(1) = 200;
  cues.refinement.cost.at<uint16_t>(3) = 25;
  const cv::Mat clear = matchDoubt(same, same, cues);
  EXPECT_EQ(clear.at<float>(1), 0.f);
  EXPECT_EQ(clear.at<float>(3), 0.f);

  // The confidence scale: 1 for no doubt, rising with it, short of 100; NaN stays NaN. The
  // filter's weight: 1 for no doubt, falling, 0 where there is no value.
  const cv::Mat conf = confidenceOfDoubt(row({0, 1, 3, 100, kNaN}));
  EXPECT_FLOAT_EQ(conf.at<float>(0), 1.f);
  EXPECT_GT(conf.at<float>(2), conf.at<float>(1));
  EXPECT_GT(conf.at<float>(3), conf.at<float>(2));
  EXPECT_LT(conf.at<float>(3), 100.f);
  EXPECT_TRUE(std::isnan(conf.at<float>(4)));
  const cv::Mat w = weightOfDoubt(row({0, 0.5f, 1, kNaN}));
  EXPECT_FLOAT_EQ(w.at<float>(0), 1.f);
  EXPECT_GT(w.at<float>(1), w.at<float>(2));
  EXPECT_GT(w.at<float>(2), 0.f);
  EXPECT_EQ(w.at<float>(3), 0.f);
  EXPECT_LT(weightOfDoubt(row({1}), 2.f).at<float>(0), w.at<float>(2));
}

}  // namespace
}  // namespace pv::internal
