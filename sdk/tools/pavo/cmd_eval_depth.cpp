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

// One mode's figures (or the baseline's, without the confidence ranking: `at_baseline_pct` < 0).
struct Figures {
  DisparityErrors e;
  double at_baseline_pct = -1;
  double ms = 0;
};

void printLine(const std::string& scene, const std::string& label, const Figures& f, const Figures* base) {
  std::printf(
      "%-12s %-16s bad05_pct=%6.2f bad1_pct=%6.2f bad2_pct=%6.2f mae_px=%5.3f density_pct=%6.2f "
      "bad2_returned_pct=%6.2f",
      scene.c_str(), label.c_str(), f.e.bad05_pct, f.e.bad1_pct, f.e.bad2_pct, f.e.mae_px, f.e.valid_pct,
      f.e.bad2_returned_pct);
  if (f.at_baseline_pct >= 0) std::printf(" bad2_at_baseline_density_pct=%6.2f", f.at_baseline_pct);
  std::printf(" ms_per_frame=%8.2f", f.ms);
  // Against the baseline: dense bad-2px, and our most confident pixels at its density against
  // its returned pixels.
  if (base && base->e.bad2_pct > 0) std::printf(" bad2_ratio=%.3f", f.e.bad2_pct / base->e.bad2_pct);
  if (base && f.at_baseline_pct >= 0 && base->e.bad2_returned_pct > 0)
    std::printf(" confident_ratio=%.3f", f.at_baseline_pct / base->e.bad2_returned_pct);
  std::printf("\n");
}

// The figures of several frames of one recording, each weighing by its pixels (the rates of the
// returned pixels by its returned ones), or of several scenes, each weighing the same.
class Totals {
 public:
  explicit Totals(bool per_scene) : per_scene_(per_scene) {}
  void add(const Figures& f) {
    const DisparityErrors& e = f.e;
    const double w = per_scene_ ? 1.0 : e.pixels, w_returned = per_scene_ ? 1.0 : e.returned;
    bad05_ += e.bad05_pct * w;
    bad1_ += e.bad1_pct * w;
    bad2_ += e.bad2_pct * w;
    density_ += e.valid_pct * w;
    weight_ += w;
    abs_ += e.mae_px * w_returned;
    bad2_returned_ += e.bad2_returned_pct * w_returned;
    returned_weight_ += w_returned;
    if (f.at_baseline_pct >= 0) {
      at_baseline_ += f.at_baseline_pct * w;
      at_baseline_weight_ += w;
    }
    ms_ += f.ms;
    ++count_;
  }
  Figures figures() const {
    Figures f;
    f.ms = count_ ? ms_ / count_ : 0;
    if (weight_ > 0) {
      f.e.bad05_pct = bad05_ / weight_;
      f.e.bad1_pct = bad1_ / weight_;
      f.e.bad2_pct = bad2_ / weight_;
      f.e.valid_pct = density_ / weight_;
    }
    if (returned_weight_ > 0) {
      f.e.mae_px = abs_ / returned_weight_;
      f.e.bad2_returned_pct = bad2_returned_ / returned_weight_;
    }
    if (at_baseline_weight_ > 0) f.at_baseline_pct = at_baseline_ / at_baseline_weight_;
    return f;
  }
  int count() const { return count_; }

 private:
  bool per_scene_;
  double bad05_ = 0, bad1_ = 0, bad2_ = 0, density_ = 0, weight_ = 0;
  double abs_ = 0, bad2_returned_ = 0, returned_weight_ = 0;
  double at_baseline_ = 0, at_baseline_weight_ = 0, ms_ = 0;
  int count_ = 0;
};

std::string modeLabel(pv::DEPTH_MODE mode) { return "mode=" + lower(pv::toString(mode).c_str()); }

// Our figures on one frame or pair: the errors, and bad-2px among our most confident pixels, as
// many as the baseline returned.
Figures ourFigures(const cv::Mat& disparity, const cv::Mat& confidence, const cv::Mat& gt, const cv::Mat& mask,
                   const DisparityErrors& base, double ms) {
  Figures f;
  f.e = pv::internal::compareDisparity(disparity, gt, mask);
  f.at_baseline_pct = pv::internal::bad2AmongMostConfident(disparity, confidence, gt, mask, base.returned);
  f.ms = ms;
  return f;
}

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
  Totals base(false);
  std::vector<DisparityErrors> base_frames;  // the baseline's figures of each frame, from the first mode's pass
  std::vector<Figures> lines;
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
    const bool first_pass = base_frames.empty();
    Totals ours(false);
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
      if (first_pass) {
        const int range = std::min(pv::internal::disparityRangeFor(state.calibration, init.depth_minimum_distance),
                                   state.frame.left_gray.cols);
        const auto t0 = std::chrono::steady_clock::now();
        const cv::Mat d = pv::internal::baselineSgbmDisparity(state.frame.left_gray, state.frame.right_gray, range);
        Figures b;
        b.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
        b.e = pv::internal::compareDisparity(d, gt_disparity, mask);
        base.add(b);
        base_frames.push_back(b.e);
      }
      ours.add(ourFigures(state.depth.disparity_px, state.depth.confidence, gt_disparity, mask, base_frames[size_t(k)],
                          state.depth_module ? state.depth_module->lastElapsedMs() : 0));
    }
    if (first_pass)
      std::printf("recording %s: %d of %d frames, %dx%d\n", path.c_str(), used, count,
                  camera.state()->frame.left_gray.cols, camera.state()->frame.left_gray.rows);
    lines.push_back(ours.figures());
  }
  const Figures b = base.figures();
  for (size_t m = 0; m < modes.size(); ++m) printLine("recording", modeLabel(modes[m]), lines[m], &b);
  printLine("recording", "baseline=sgbm", b, nullptr);
  return 0;
}

bool holdsPair(const std::filesystem::path& dir) {
  for (const char* name : {"im0.png", "imL.png"})
    if (std::filesystem::is_regular_file(dir / name)) return true;
  return false;
}

// The scene folders named on the command line: each a scene, or a folder of scene folders (taken
// in name order).
bool collectScenes(const std::vector<std::string>& inputs, std::vector<std::string>& scenes, std::string& error) {
  for (const std::string& input : inputs) {
    if (!std::filesystem::is_directory(input)) {
      error = input + " is not a folder";
      return false;
    }
    if (holdsPair(input)) {
      scenes.push_back(input);
      continue;
    }
    std::vector<std::string> inside;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(input, ec))
      if (entry.is_directory() && holdsPair(entry.path())) inside.push_back(entry.path().string());
    if (inside.empty()) {
      error = input + " holds no stereo pair (im0/im1 or imL/imR) nor folders of them";
      return false;
    }
    std::sort(inside.begin(), inside.end());
    scenes.insert(scenes.end(), inside.begin(), inside.end());
  }
  return true;
}

// Median time of `repeat` runs of `run`; the figures are those of the last run.
template <typename Run>
double timeRuns(int repeat, Run&& run) {
  std::vector<double> ms;
  for (int i = 0; i < repeat; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    run();
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
  }
  std::nth_element(ms.begin(), ms.begin() + ms.size() / 2, ms.end());
  return ms[ms.size() / 2];
}

// One scene: the baseline and each mode, a line each. Adds the figures to the totals (the
// baseline's last).
int evalScene(const std::string& dir, const std::vector<pv::DEPTH_MODE>& modes, int forced_range, int repeat,
              std::vector<Totals>& totals) {
  StereoSample sample;
  std::string error;
  if (!pv::internal::loadStereoSample(dir, sample, error)) return pavo::failure(kName, error);
  const int range = forced_range > 0 ? forced_range : pv::internal::searchRangeFor(sample);
  if (range > sample.left_bgr.cols) return pavo::failure(kName, "--max-disparity exceeds the width of " + dir);
  cv::Mat left, right;
  cv::cvtColor(sample.left_bgr, left, cv::COLOR_BGR2GRAY);
  cv::cvtColor(sample.right_bgr, right, cv::COLOR_BGR2GRAY);
  std::printf("pair %s: %dx%d, search range %d px, %d pixels evaluated (non-occluded: %s)\n", sample.name.c_str(),
              left.cols, left.rows, range, cv::countNonZero(sample.eval_mask),
              sample.mask_from_file ? "mask file" : "derived from the ground truth");

  cv::Mat baseline;
  Figures base;
  base.ms = timeRuns(repeat, [&] { baseline = pv::internal::baselineSgbmDisparity(left, right, range); });
  base.e = pv::internal::compareDisparity(baseline, sample.gt_disparity_px, sample.eval_mask);
  for (size_t m = 0; m < modes.size(); ++m) {
    pv::internal::StereoParameters params;
    params.mode = modes[m];
    params.max_disparity_px = range;
    pv::internal::StereoOutput out;
    bool ok = true;
    const double ms =
        timeRuns(repeat, [&] { ok = ok && pv::internal::computeStereo(left, right, params, out, error); });
    if (!ok) return pavo::failure(kName, error);
    const Figures f =
        ourFigures(out.disparity_px, out.confidence, sample.gt_disparity_px, sample.eval_mask, base.e, ms);
    printLine(sample.name, modeLabel(modes[m]), f, &base);
    totals[m].add(f);
  }
  printLine(sample.name, "baseline=sgbm", base, nullptr);
  totals.back().add(base);
  return 0;
}

int runEvalDepth(int argc, char** argv) {
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  const auto unknown = args.unknown({"mode", "max-disparity", "repeat", "gt-depth", "frames", "views"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  if (args.positional().empty()) return pavo::usageError(kName, "expects folders (or one recording)");
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
  if (recording && args.positional().size() != 1) return pavo::usageError(kName, "expects one recording");
  if (recording != args.has("gt-depth"))
    return pavo::usageError(kName, "a recording needs --gt-depth DIR, and --gt-depth only goes with a recording");
  if (recording && forced_range > 0)
    return pavo::usageError(kName,
                            "a recording is matched over the camera's own range; --max-disparity is for folders");
  if (!recording && args.has("views")) return pavo::usageError(kName, "--views goes with a recording");
  if (recording) return evalRecording(input, args.get("gt-depth"), modes, frames, args.get("views"));

  std::vector<std::string> scenes;
  std::string error;
  if (!collectScenes(args.positional(), scenes, error)) return pavo::failure(kName, error);
  std::vector<Totals> totals(modes.size() + 1, Totals(true));  // each mode, then the baseline
  for (const std::string& scene : scenes)
    if (const int failed = evalScene(scene, modes, forced_range, repeat, totals)) return failed;
  if (scenes.size() < 2) return 0;
  std::printf("mean over %zu scenes\n", scenes.size());
  const Figures base = totals.back().figures();
  for (size_t m = 0; m < modes.size(); ++m) printLine("mean", modeLabel(modes[m]), totals[m].figures(), &base);
  printLine("mean", "baseline=sgbm", base, nullptr);
  return 0;
}

}  // namespace

PAVO_COMMAND("eval depth",
             "DIR... | FILE.ktr --gt-depth DIR [--mode performance|quality|ultra|all] [--max-disparity N] [--repeat N] "
             "[--frames N] [--views OUT_DIR]",
             "disparity error of the depth modes against ground truth, beside OpenCV's StereoSGBM; over a folder of "
             "scene folders, one line per scene and mode and the mean per mode",
             runEvalDepth);
