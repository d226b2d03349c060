// `pavo eval depth`: disparity error of the depth modes against ground truth, beside OpenCV's
// StereoSGBM as the baseline.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "command.h"
#include "core/internal/camera_state.h"
#include "depth/internal/depth_module.h"
#include "depth/internal/stereo_dataset.h"
#include "depth/internal/stereo_engine.h"
#include "pv/camera.h"

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

// Pixel-weighted sum of the figures of several frames.
struct Totals {
  double bad1 = 0, bad2 = 0, abs_sum = 0, valid = 0, pixels = 0, ms = 0;
  int frames = 0;
  void add(const DisparityErrors& e, double elapsed_ms) {
    bad1 += e.bad1_pct * e.pixels / 100;
    bad2 += e.bad2_pct * e.pixels / 100;
    const double n_valid = e.valid_pct * e.pixels / 100;
    abs_sum += e.mae_px * n_valid;
    valid += n_valid;
    pixels += e.pixels;
    ms += elapsed_ms;
    ++frames;
  }
  DisparityErrors errors() const {
    DisparityErrors e;
    if (pixels <= 0) return e;
    e.pixels = static_cast<int>(pixels);
    e.bad1_pct = 100 * bad1 / pixels;
    e.bad2_pct = 100 * bad2 / pixels;
    e.valid_pct = 100 * valid / pixels;
    e.mae_px = valid > 0 ? abs_sum / valid : 0;
    return e;
  }
  double msPerFrame() const { return frames ? ms / frames : 0; }
};

// A recording against its ground-truth depth folder (NNNNNN.png, uint16 millimetres, 0 unknown):
// the depth module's disparity on `frames` frames spread over the recording, beside SGBM on the
// same rectified pairs. Times are the matching alone (decoding and rectification left out). With
// `views_dir` (made when missing), the DEPTH_COLOR view of each frame is written there as
// NNNNNN_<mode>.png.
int evalRecording(const std::string& path, const std::string& gt_dir, const std::vector<pv::DEPTH_MODE>& modes,
                  int frames, const std::string& views_dir) {
  if (!views_dir.empty()) {
    std::error_code ec;
    std::filesystem::create_directories(views_dir, ec);
    if (ec) return pavo::failure(kName, "cannot create " + views_dir + ": " + ec.message());
  }
  Totals base;
  bool base_done = false;
  for (pv::DEPTH_MODE mode : modes) {
    pv::Camera camera;
    pv::InitParameters init;
    init.input.setFromKTRFile(path.c_str());
    init.depth_mode = mode;
    init.coordinate_units = pv::UNIT::METER;
    init.depth_minimum_distance = 0.1f;
    init.depth_maximum_distance = 100.f;
    const pv::ERROR_CODE err = camera.open(init);
    if (err != pv::ERROR_CODE::SUCCESS)
      return pavo::failure(
          kName, "cannot open " + path + ": " + pv::toString(err).c_str() + " (" + pv::lastErrorDetail().c_str() + ")");
    const int count = camera.getKTRNumberOfFrames();
    if (count <= 0) return pavo::failure(kName, path + " holds no frames");
    const int used = std::min(frames, count);
    Totals ours;
    for (int k = 0; k < used; ++k) {
      const int index = static_cast<int>(static_cast<long>(k) * count / used);
      char name[32];
      std::snprintf(name, sizeof(name), "/%06d.png", index);
      const cv::Mat gt_mm = cv::imread(gt_dir + name, cv::IMREAD_UNCHANGED);
      if (gt_mm.empty() || gt_mm.type() != CV_16UC1)
        return pavo::failure(kName, "missing or unreadable ground truth " + gt_dir + name + " (uint16 PNG expected)");
      camera.setKTRPosition(index);
      const pv::ERROR_CODE grabbed = camera.grab();
      if (grabbed != pv::ERROR_CODE::SUCCESS)
        return pavo::failure(kName, "frame " + std::to_string(index) + ": " + pv::toString(grabbed).c_str());
      const pv::internal::CameraState& state = *camera.state();
      if (gt_mm.size() != state.frame.left_gray.size())
        return pavo::failure(kName, "the ground truth's size differs from the recording's");
      cv::Mat gt_disparity;
      gt_mm.convertTo(gt_disparity, CV_32F);
      cv::divide(state.calibration.fx * state.calibration.baseline_m * 1000.0, gt_disparity, gt_disparity);
      gt_disparity.setTo(std::numeric_limits<float>::quiet_NaN(), gt_mm == 0);
      const cv::Mat mask = pv::internal::visibleInRight(gt_disparity);
      if (!views_dir.empty()) {
        cv::Mat picture;
        const std::string stem = views_dir + name;
        const std::string out = stem.substr(0, stem.size() - 4) + "_" + lower(pv::toString(mode).c_str()) + ".png";
        if (pv::internal::depthView(state, pv::VIEW::DEPTH_COLOR, picture) != pv::ERROR_CODE::SUCCESS ||
            !cv::imwrite(out, picture))
          return pavo::failure(kName, "cannot write " + out);
      }
      ours.add(pv::internal::compareDisparity(state.depth.disparity_px, gt_disparity, mask),
               state.depth_module ? state.depth_module->lastElapsedMs() : 0);
      if (!base_done) {
        const int range = std::min(pv::internal::disparityRangeFor(state.calibration, init.depth_minimum_distance),
                                   state.frame.left_gray.cols);
        const auto t0 = std::chrono::steady_clock::now();
        const cv::Mat d = pv::internal::baselineSgbmDisparity(state.frame.left_gray, state.frame.right_gray, range);
        base.add(pv::internal::compareDisparity(d, gt_disparity, mask),
                 std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
      }
    }
    if (!base_done)
      std::printf("recording %s: %d of %d frames, %dx%d\n", path.c_str(), used, count,
                  camera.state()->frame.left_gray.cols, camera.state()->frame.left_gray.rows);
    base_done = true;
    printLine("mode=" + lower(pv::toString(mode).c_str()), ours.errors(), ours.msPerFrame());
    const DisparityErrors b = base.errors();
    if (b.bad2_pct > 0) std::printf("%-13s bad2_ratio=%.3f\n", "", ours.errors().bad2_pct / b.bad2_pct);
  }
  printLine("baseline=sgbm", base.errors(), base.msPerFrame());
  return 0;
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
  const auto unknown = args.unknown({"mode", "max-disparity", "repeat", "gt-depth", "frames", "views"});
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

  bool ok_frames = true;
  const int frames = static_cast<int>(args.getNumber("frames", 20, &ok_frames));
  if (!ok_frames || frames < 1) return pavo::usageError(kName, "--frames must be a positive number");

  const std::string input = args.positional().front();
  const bool recording = input.size() > 4 && lower(input.substr(input.size() - 4)) == ".ktr";
  if (recording != args.has("gt-depth"))
    return pavo::usageError(kName, "a recording needs --gt-depth DIR, and --gt-depth only goes with a recording");
  if (recording && forced_range > 0)
    return pavo::usageError(kName,
                            "a recording is matched over the camera's own range; --max-disparity is for folders");
  if (!recording && args.has("views")) return pavo::usageError(kName, "--views goes with a recording");
  if (recording) return evalRecording(input, args.get("gt-depth"), modes, frames, args.get("views"));

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

PAVO_COMMAND("eval depth",
             "DIR | FILE.ktr --gt-depth DIR [--mode performance|quality|ultra|all] [--max-disparity N] [--repeat N] "
             "[--frames N] [--views OUT_DIR]",
             "disparity error of the depth modes against ground truth, beside OpenCV's StereoSGBM", runEvalDepth);
