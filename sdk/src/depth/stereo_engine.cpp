#include "depth/internal/stereo_engine.h"

#include <algorithm>
#include <chrono>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

bool recipeFor(DEPTH_MODE mode, ModeRecipe& r) {
  // Every mode checks left against right, removes speckles and runs the edge-aware filter (which
  // also fills the holes the checks leave).
  r = ModeRecipe();
  r.edge_aware = true;
  r.edge_sigma = 1.5;
  switch (mode) {
    case DEPTH_MODE::PERFORMANCE:  // half size, coarse to fine past 64 disparities of an HD720 frame
      r.scale = 0.5;
      r.speckle_px = 50;
      r.max_search_cost = 640.0 * 360.0 * 64.0;
      r.edge_lambda = 300;
      return true;
    case DEPTH_MODE::QUALITY:  // half size over the whole range, refined at full size
      r.scale = 0.5;
      r.speckle_px = 100;
      r.full_refine_radius_px = 2;
      r.full_refine_window_px = 11;
      r.edge_lambda = 300;
      r.full_edge_lambda = 100;
      return true;
    case DEPTH_MODE::ULTRA:  // full size
      r.scale = 1.0;
      r.uniqueness_pct = 5;
      r.speckle_px = 200;
      r.edge_lambda = 100;
      return true;
    default: return false;
  }
}

int roundDisparityRange(int max_disparity_px) { return std::max(16, (max_disparity_px + 15) / 16 * 16); }

namespace {

// How strongly an ambiguous match (matchDoubt of its margin) loses weight in the edge-aware filter.
constexpr float kAmbiguityWeight = 1.5f;

bool toGray(const cv::Mat& in, cv::Mat& gray) {
  if (in.type() == CV_8UC1) {
    gray = in;
  } else if (in.type() == CV_8UC3) {
    cv::cvtColor(in, gray, cv::COLOR_BGR2GRAY);
  } else if (in.type() == CV_8UC4) {
    cv::cvtColor(in, gray, cv::COLOR_BGRA2GRAY);
  } else {
    return false;
  }
  return true;
}

struct LevelResult {
  cv::Mat disparity_px;  // at the level's size, in its pixels
  cv::Mat lr_diff_px;    // left-right disagreement
  cv::Mat unseen;        // 255 where the right camera does not see
  cv::Mat margin;        // the matcher's winning margins (SgmResult::margin)
};

cv::Mat halfSize(const cv::Mat& m) {
  cv::Mat out;
  cv::resize(m, out, cv::Size((m.cols + 1) / 2, (m.rows + 1) / 2), 0, 0, cv::INTER_AREA);
  return out;
}

/// Full-range semi-global matching of the pair, with the left-right check.
LevelResult matchLevel(const cv::Mat& l, const cv::Mat& r, int range_px, const ModeRecipe& recipe) {
  SgmParameters match;
  match.num_disparities = roundDisparityRange(range_px);
  match.uniqueness_pct = recipe.uniqueness_pct;
  match.with_right = true;
  match.with_margin = true;
  SgmResult matched = censusSgm(l, r, match);
  LevelResult out;
  out.disparity_px = matched.left_px;
  out.margin = matched.margin;
  out.lr_diff_px = leftRightCheck(out.disparity_px, matched.right_px, recipe.lr_max_diff_px);
  // The strip at the left border that the right camera does not see has no true match; what the
  // smoothness carried into it is a guess, and the filter must not fill it either.
  out.unseen = unseenByRight(matched.right_px);
  out.disparity_px.setTo(std::numeric_limits<float>::quiet_NaN(), out.unseen);
  return out;
}

/// Disparity and doubt (matchDoubt) of one level, cleaned and filtered.
struct Filtered {
  cv::Mat disparity_px;
  cv::Mat doubt;
  cv::Mat unseen;  // 255 where the right camera does not see
};

/// Matches the pair over the whole range, removes speckles and runs the edge-aware filter.
Filtered matchAndFilter(const cv::Mat& l, const cv::Mat& r, int range_px, const ModeRecipe& recipe) {
  LevelResult level = matchLevel(l, r, range_px, recipe);
  Filtered out;
  out.unseen = level.unseen;
  const cv::Mat matched = level.disparity_px;
  if (recipe.speckle_px > 0) removeSpeckles(level.disparity_px, recipe.speckle_px, 1.0f);
  out.disparity_px = matched;
  if (recipe.edge_aware) {
    // Guided by the image at this level; the filter also fills the holes the checks left.
    // A match weighs less the rougher its neighbourhood, the more the views disagree and the
    // closer its runner-up came.
    const cv::Mat roughness = disparityConfidence(matched, level.lr_diff_px);
    DoubtCues ambiguity;
    ambiguity.margin = level.margin;
    const cv::Mat weight = measurementWeight(roughness, level.lr_diff_px)
                               .mul(weightOfDoubt(matchDoubt(matched, matched, ambiguity), kAmbiguityWeight));
    out.disparity_px = filterEdgeAware(matched, weight, l, recipe.edge_lambda, recipe.edge_sigma);
    out.disparity_px.setTo(std::numeric_limits<float>::quiet_NaN(), out.unseen);
  }
  DoubtCues cues;
  cues.margin = level.margin;
  out.doubt = matchDoubt(out.disparity_px, matched, cues);
  return out;
}

/// Source index of each of `to` positions when `from` ones are resized by nearest neighbour,
/// exactly as cv::resize's INTER_NEAREST picks them.
std::vector<int> nearestIndices(int from, int to) {
  cv::Mat index(1, from, CV_32S), picked;
  for (int i = 0; i < from; ++i) index.at<int>(i) = i;
  cv::resize(index, picked, cv::Size(to, 1), 0, 0, cv::INTER_NEAREST);
  return std::vector<int>(picked.begin<int>(), picked.end<int>());
}

/// `out[x] = scale * in[index[x]]`; `doubling` when every index is x / 2.
template <typename T>
PV_INLINE void expandRow(const T* __restrict in, const int* __restrict index, bool doubling, int n, T scale,
                         T* __restrict out) {
  if (doubling) {
    for (int k = 0; k < n / 2; ++k) out[2 * k] = out[2 * k + 1] = T(scale * in[k]);
    if (n % 2) out[n - 1] = T(scale * in[n / 2]);
  } else {
    for (int x = 0; x < n; ++x) out[x] = T(scale * in[index[x]]);
  }
}

/// The coarse level at `size` by nearest neighbour in one pass: its disparities doubled into the
/// refinement's prior, its doubt, its unseen strip, and the weight the filter gives each
/// measurement (a pixel's weight follows its doubt alone, so it is computed before the expansion,
/// on a quarter of the pixels).
struct Expanded {
  cv::Mat prior_px, doubt, unseen, weight;
};

PV_VECTOR_CLONES
void expandRows(const Filtered& coarse, const cv::Mat& coarse_weight, const std::vector<int>& xs, bool doubling, int y,
                int sy, Expanded& out) {
  const int n = out.prior_px.cols;
  expandRow(coarse.disparity_px.ptr<float>(sy), xs.data(), doubling, n, 2.f, out.prior_px.ptr<float>(y));
  expandRow(coarse.doubt.ptr<float>(sy), xs.data(), doubling, n, 1.f, out.doubt.ptr<float>(y));
  expandRow(coarse_weight.ptr<float>(sy), xs.data(), doubling, n, 1.f, out.weight.ptr<float>(y));
  expandRow(coarse.unseen.ptr<uchar>(sy), xs.data(), doubling, n, uchar(1), out.unseen.ptr<uchar>(y));
}

Expanded expandCoarse(const Filtered& coarse, cv::Size size) {
  const cv::Mat coarse_weight = weightOfDoubt(coarse.doubt);
  const std::vector<int> xs = nearestIndices(coarse.disparity_px.cols, size.width);
  const std::vector<int> ys = nearestIndices(coarse.disparity_px.rows, size.height);
  bool doubling = true;
  for (size_t x = 0; x < xs.size(); ++x) doubling = doubling && xs[x] == static_cast<int>(x / 2);
  Expanded out;
  out.prior_px.create(size, CV_32F);
  out.doubt.create(size, CV_32F);
  out.weight.create(size, CV_32F);
  out.unseen.create(size, CV_8U);
  forEachRow(size.height, [&](int y) { expandRows(coarse, coarse_weight, xs, doubling, y, ys[size_t(y)], out); });
  return out;
}

/// Disparity of the pair: matched and filtered over the whole range where it is short enough,
/// else matched and filtered at half this size (the filter fills the coarse holes), refined here
/// around that result and filtered again (a long range costs the matcher in proportion, the
/// refinement a few disparities per pixel).
Filtered matchPyramid(const cv::Mat& l, const cv::Mat& r, int range_px, const ModeRecipe& recipe) {
  const double search_cost = double(l.cols) * double(l.rows) * double(roundDisparityRange(range_px));
  if (recipe.max_search_cost <= 0 || search_cost <= recipe.max_search_cost || l.cols < 64 || l.rows < 32)
    return matchAndFilter(l, r, range_px, recipe);
  const Filtered coarse = matchPyramid(halfSize(l), halfSize(r), (range_px + 1) / 2, recipe);
  const Expanded expanded = expandCoarse(coarse, l.size());
  Filtered out;
  out.unseen = expanded.unseen;
  DoubtCues cues;
  cues.base_doubt = expanded.doubt;
  cues.refinement_window = recipe.refine_window_px;
  const cv::Mat refined = refineDisparity(censusTransform(l), censusTransform(r), expanded.prior_px,
                                          recipe.refine_radius_px, recipe.refine_window_px, true, &cues.refinement);
  out.disparity_px = refined;
  if (recipe.edge_aware) {
    // Filtered once more at this size: the refinement's edges and noise follow this image's.
    out.disparity_px = filterEdgeAware(refined, expanded.weight, l, recipe.edge_lambda, recipe.edge_sigma);
    out.disparity_px.setTo(std::numeric_limits<float>::quiet_NaN(), out.unseen);
  }
  // The coarse level's doubt, what the refinement found and what this level's filter corrected.
  out.doubt = matchDoubt(out.disparity_px, refined, cues);
  return out;
}

/// The reduced-size level brought to the full size and refined there at every pixel: the search
/// a few disparities around it, the edge-aware filter guided by the full-size image, and the
/// doubt of what the refinement and the filter found added to the level's.
Filtered refineAtFullSize(const Filtered& level, const cv::Mat& left, const cv::Mat& right, const ModeRecipe& recipe) {
  Filtered out;
  cv::Mat prior, level_doubt;
  upsampleWithConfidence(level.disparity_px, level.doubt, left.size(), prior, level_doubt);
  DoubtCues cues;
  cues.base_doubt = level_doubt;
  cues.refinement_window = recipe.full_refine_window_px;
  const cv::Mat refined =
      refineDisparity(censusTransform(left), censusTransform(right), prior, recipe.full_refine_radius_px,
                      recipe.full_refine_window_px, true, &cues.refinement);
  out.disparity_px = refined;
  if (recipe.edge_aware) {
    out.disparity_px =
        filterEdgeAware(refined, weightOfDoubt(level_doubt), left, recipe.full_edge_lambda, recipe.edge_sigma);
    out.disparity_px.setTo(std::numeric_limits<float>::quiet_NaN(), invalidMask(refined));
  }
  out.doubt = matchDoubt(out.disparity_px, refined, cues);
  return out;
}

void runStages(const cv::Mat& left, const cv::Mat& right, const StereoParameters& params, const ModeRecipe& recipe,
               StereoOutput& out) {
  cv::Mat l = left, r = right;
  if (recipe.scale != 1.0) {
    cv::resize(left, l, cv::Size(), recipe.scale, recipe.scale, cv::INTER_AREA);
    cv::resize(right, r, cv::Size(), recipe.scale, recipe.scale, cv::INTER_AREA);
  }
  const double scale = static_cast<double>(l.cols) / left.cols;
  Filtered level = matchPyramid(l, r, static_cast<int>(std::ceil(params.max_disparity_px * scale)), recipe);
  if (params.with_texture_confidence) out.texture_confidence = textureConfidence(left);
  if (l.size() != left.size() && recipe.full_refine_radius_px > 0) level = refineAtFullSize(level, left, right, recipe);
  const cv::Mat confidence = confidenceOfDoubt(level.doubt);
  if (level.disparity_px.size() == left.size()) {
    out.disparity_px = level.disparity_px;
    out.confidence = confidence;
  } else if (params.half_size_output && left.size() == level.disparity_px.size() * 2) {
    out.half_disparity_px = level.disparity_px;
    out.half_confidence = confidence;
  } else {
    upsampleWithConfidence(level.disparity_px, confidence, left.size(), out.disparity_px, out.confidence);
  }
}

}  // namespace

bool computeStereo(const cv::Mat& left_in, const cv::Mat& right_in, const StereoParameters& params, StereoOutput& out,
                   std::string& error) {
  out = StereoOutput();
  ModeRecipe recipe;
  if (!recipeFor(params.mode, recipe)) {
    error = "depth mode " + std::string(toString(params.mode).c_str()) + " has no stereo engine";
    return false;
  }
  cv::Mat left, right;
  if (left_in.empty() || right_in.empty() || !toGray(left_in, left) || !toGray(right_in, right)) {
    error = "the stereo pair must be two non-empty 8-bit images (grey, BGR or BGRA)";
    return false;
  }
  if (left.size() != right.size()) {
    error = "the left and right images differ in size";
    return false;
  }
  if (left.cols < 32 || left.rows < 16) {
    error = "the stereo pair is too small to match (at least 32x16 pixels)";
    return false;
  }
  if (params.max_disparity_px < 1 || params.max_disparity_px > left.cols) {
    error = "the disparity search range must lie within 1 and the image width";
    return false;
  }
  const auto start = std::chrono::steady_clock::now();
  try {
    runStages(left, right, params, recipe, out);
  } catch (const cv::Exception& e) {
    error = std::string("stereo matching failed: ") + e.what();
    out = StereoOutput();
    return false;
  }
  out.elapsed_ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  return true;
}

cv::Mat baselineSgbmDisparity(const cv::Mat& left_gray, const cv::Mat& right_gray, int max_disparity_px,
                              int uniqueness_pct) {
  const int block = 3;
  auto sgbm = cv::StereoSGBM::create(0, roundDisparityRange(max_disparity_px), block, 8 * block * block,
                                     32 * block * block, 1, 63, uniqueness_pct, 100, 32, cv::StereoSGBM::MODE_SGBM);
  cv::Mat fixed16, out;
  sgbm->compute(left_gray, right_gray, fixed16);
  fixed16.convertTo(out, CV_32F, 1.0 / 16.0);
  out.setTo(std::numeric_limits<float>::quiet_NaN(), fixed16 < 0);
  return out;
}

}  // namespace pv::internal
