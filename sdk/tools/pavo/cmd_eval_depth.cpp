// `pavo eval depth`: disparity error of the depth modes against ground truth, beside OpenCV's
// StereoSGBM as the baseline.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "command.h"
#include "depth/internal/stereo_dataset.h"
#include "depth/internal/stereo_engine.h"

namespace {

using pv::internal::DisparityErrors;
using pv::internal::StereoSample;

const char* kName = "eval depth";

bool parseModes(const std::string& text, std::vector<pv::DEPTH_MODE>& modes) {
  if (text == "performance")
    modes = {pv::DEPTH_MODE::PERFORMANCE};
  else if (text == "quality")
    modes = {pv::DEPTH_MODE::QUALITY};
  else if (text == "ultra")
    modes = {pv::DEPTH_MODE::ULTRA};
  else if (text == "all")
    modes = {pv::DEPTH_MODE::PERFORMANCE, pv::DEPTH_MODE::QUALITY, pv::DEPTH_MODE::ULTRA};
  else
    return false;
  return true;
}

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

void printLine(const std::string& label, const DisparityErrors& e, double ms) {
  std::printf("%-13s bad1_pct=%6.2f bad2_pct=%6.2f mae_px=%5.3f valid_pct=%6.2f ms_per_frame=%8.2f\n", label.c_str(),
              e.bad1_pct, e.bad2_pct, e.mae_px, e.valid_pct, ms);
}

// Search range: the data set's own unless it is a placeholder (half the width or more, as some
// calib.txt files give), then 1.5 times the largest ground-truth disparity.
int searchRange(const StereoSample& s) {
  if (s.max_disparity_px > 0 && s.max_disparity_px < s.left_bgr.cols / 2) return s.max_disparity_px;
  double max_gt = 0;
  cv::minMaxLoc(s.gt_disparity_px, nullptr, &max_gt, nullptr, nullptr, s.gt_disparity_px == s.gt_disparity_px);
  return std::max(16, static_cast<int>(std::ceil(1.5 * max_gt)));
}

int runEvalDepth(int argc, char** argv) {
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  const auto unknown = args.unknown({"mode", "max-disparity", "repeat", "gt-depth"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  if (args.positional().size() != 1) return pavo::usageError(kName, "expects one folder (or recording)");
  std::vector<pv::DEPTH_MODE> modes;
  if (!parseModes(lower(args.get("mode", "quality")), modes))
    return pavo::usageError(kName, "--mode must be performance, quality, ultra or all");
  bool ok_repeat = true, ok_range = true;
  const int repeat = static_cast<int>(args.getNumber("repeat", 3, &ok_repeat));
  const int forced_range = static_cast<int>(args.getNumber("max-disparity", 0, &ok_range));
  if (!ok_repeat || repeat < 1 || repeat > 1000) return pavo::usageError(kName, "--repeat must be 1..1000");
  if (!ok_range || forced_range < 0) return pavo::usageError(kName, "--max-disparity must be a positive number");

  const std::string input = args.positional().front();
  if (args.has("gt-depth") || (input.size() > 4 && lower(input.substr(input.size() - 4)) == ".ktr"))
    return pavo::failure(kName, "evaluating a recording against --gt-depth is not supported by this build yet");

  StereoSample sample;
  std::string error;
  if (!pv::internal::loadStereoSample(input, sample, error)) return pavo::failure(kName, error);
  const int range = forced_range > 0 ? forced_range : searchRange(sample);
  if (range > sample.left_bgr.cols) return pavo::failure(kName, "--max-disparity exceeds the image width");
  cv::Mat left, right;
  cv::cvtColor(sample.left_bgr, left, cv::COLOR_BGR2GRAY);
  cv::cvtColor(sample.right_bgr, right, cv::COLOR_BGR2GRAY);

  std::printf("pair %s: %dx%d, search range %d px, %d pixels evaluated (non-occluded: %s)\n", sample.name.c_str(),
              left.cols, left.rows, range, cv::countNonZero(sample.eval_mask),
              sample.mask_from_file ? "mask file" : "derived from the ground truth");

  // Median time of `repeat` runs; the figures of the last run.
  auto timeRuns = [&](auto&& run) {
    std::vector<double> ms;
    for (int i = 0; i < repeat; ++i) {
      const auto t0 = std::chrono::steady_clock::now();
      run();
      ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    }
    std::nth_element(ms.begin(), ms.begin() + ms.size() / 2, ms.end());
    return ms[ms.size() / 2];
  };

  cv::Mat baseline;
  const double baseline_ms = timeRuns([&] { baseline = pv::internal::baselineSgbmDisparity(left, right, range); });
  const DisparityErrors base = pv::internal::compareDisparity(baseline, sample.gt_disparity_px, sample.eval_mask);

  for (pv::DEPTH_MODE mode : modes) {
    pv::internal::StereoParameters params;
    params.mode = mode;
    params.max_disparity_px = range;
    pv::internal::StereoOutput out;
    bool ok = true;
    const double ms = timeRuns([&] { ok = ok && pv::internal::computeStereo(left, right, params, out, error); });
    if (!ok) return pavo::failure(kName, error);
    const DisparityErrors e =
        pv::internal::compareDisparity(out.disparity_px, sample.gt_disparity_px, sample.eval_mask);
    printLine("mode=" + lower(pv::toString(mode).c_str()), e, ms);
    if (base.bad2_pct > 0) std::printf("%-13s bad2_ratio=%.3f\n", "", e.bad2_pct / base.bad2_pct);
  }
  printLine("baseline=sgbm", base, baseline_ms);
  return 0;
}

}  // namespace

PAVO_COMMAND("eval depth", "DIR [--mode performance|quality|ultra|all] [--max-disparity N] [--repeat N]",
             "disparity error of the depth modes against ground truth, beside OpenCV's StereoSGBM", runEvalDepth);
