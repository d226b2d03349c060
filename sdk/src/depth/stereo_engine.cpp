#include "depth/internal/stereo_engine.h"

#include <chrono>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

bool recipeFor(DEPTH_MODE mode, ModeRecipe& r) {
  r = ModeRecipe();
  switch (mode) {
    case DEPTH_MODE::PERFORMANCE:
      r.scale = 0.5;
      r.block_size = 3;
      r.uniqueness_pct = 10;
      r.speckle_px = 50;
      return true;
    case DEPTH_MODE::QUALITY:
      r.scale = 0.5;
      r.block_size = 3;
      r.uniqueness_pct = 5;
      r.explicit_lr_check = true;
      r.speckle_px = 100;
      r.edge_aware = true;
      r.edge_lambda = 300;
      r.edge_sigma = 1.5;
      return true;
    case DEPTH_MODE::ULTRA:
      r.scale = 1.0;
      r.block_size = 5;
      r.uniqueness_pct = 5;
      r.explicit_lr_check = true;
      r.speckle_px = 200;
      r.edge_aware = true;
      r.edge_lambda = 100;
      r.edge_sigma = 1.5;
      return true;
    default: return false;
  }
}

int roundDisparityRange(int max_disparity_px) { return std::max(16, (max_disparity_px + 15) / 16 * 16); }

namespace {

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

void runStages(const cv::Mat& left, const cv::Mat& right, const StereoParameters& params, const ModeRecipe& recipe,
               StereoOutput& out) {
  cv::Mat l = left, r = right;
  if (recipe.scale != 1.0) {
    cv::resize(left, l, cv::Size(), recipe.scale, recipe.scale, cv::INTER_AREA);
    cv::resize(right, r, cv::Size(), recipe.scale, recipe.scale, cv::INTER_AREA);
  }
  const double scale = static_cast<double>(l.cols) / left.cols;
  MatchParameters match;
  match.num_disparities = roundDisparityRange(static_cast<int>(std::ceil(params.max_disparity_px * scale)));
  match.block_size = recipe.block_size;
  match.uniqueness_pct = recipe.uniqueness_pct;
  match.internal_lr_check = !recipe.explicit_lr_check;

  cv::Mat disparity = matchLeftDisparity(l, r, match), right_disparity, lr_diff, unseen;
  if (recipe.explicit_lr_check) {
    right_disparity = matchRightDisparity(l, r, match);
    lr_diff = leftRightCheck(disparity, right_disparity, recipe.lr_max_diff_px);
    // The strip at the left border that the right camera does not see has no true match; its
    // matches into the padding are guesses and the filter must not fill it either.
    unseen = unseenByRight(right_disparity);
    disparity.setTo(std::numeric_limits<float>::quiet_NaN(), unseen);
  }
  if (recipe.speckle_px > 0) removeSpeckles(disparity, recipe.speckle_px, 1.0f);
  cv::Mat confidence = disparityConfidence(disparity, lr_diff);
  if (l.size() != left.size()) {
    disparity = upsampleDisparity(disparity, left.size());
    cv::Mat full;
    cv::resize(confidence, full, left.size(), 0, 0, cv::INTER_NEAREST);
    confidence = full;
    if (!lr_diff.empty()) {
      cv::resize(lr_diff, full, left.size(), 0, 0, cv::INTER_NEAREST);
      lr_diff = full * static_cast<float>(1.0 / scale);
    }
  }
  if (recipe.edge_aware) {
    // Guided by the full-resolution image; the filter also fills the holes the checks left.
    // Pixels it invents take the doubt of their neighbourhood.
    disparity =
        filterEdgeAware(disparity, measurementWeight(confidence, lr_diff), left, recipe.edge_lambda, recipe.edge_sigma);
    cv::Mat doubt = confidence.clone();
    doubt.setTo(100.f, invalidMask(doubt));
    cv::Mat recomputed = disparityConfidence(disparity, cv::Mat());
    confidence = cv::max(recomputed, cv::min(doubt, 100.f));
  }
  if (!unseen.empty()) {
    cv::Mat unseen_full = unseen;
    if (unseen.size() != left.size()) cv::resize(unseen, unseen_full, left.size(), 0, 0, cv::INTER_NEAREST);
    disparity.setTo(std::numeric_limits<float>::quiet_NaN(), unseen_full);
  }
  out.disparity_px = disparity;
  out.confidence = confidence;
  out.confidence.setTo(std::numeric_limits<float>::quiet_NaN(), invalidMask(disparity));
  if (params.with_texture_confidence) out.texture_confidence = textureConfidence(left);
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

cv::Mat baselineSgbmDisparity(const cv::Mat& left_gray, const cv::Mat& right_gray, int max_disparity_px) {
  const int block = 3;
  auto sgbm = cv::StereoSGBM::create(0, roundDisparityRange(max_disparity_px), block, 8 * block * block,
                                     32 * block * block, 1, 63, 10, 100, 32, cv::StereoSGBM::MODE_SGBM);
  cv::Mat fixed16, out;
  sgbm->compute(left_gray, right_gray, fixed16);
  fixed16.convertTo(out, CV_32F, 1.0 / 16.0);
  out.setTo(std::numeric_limits<float>::quiet_NaN(), fixed16 < 0);
  return out;
}

}  // namespace pv::internal
