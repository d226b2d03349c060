// Time per HD720 frame of each depth mode, with the rectification a grab does first, beside
// OpenCV's StereoSGBM on the same rectified pair.
//
//   bench_depth [--frames N] [--range PX] [--pair DIR] [--mode performance|quality|ultra]
//               [--baseline-frames N]   (0 skips SGBM, for profiling our modes alone)
//
// The pair is a real one (ETH3D terrace by default) scaled to 1280x720 and treated as the raw
// side-by-side frame (BGRA, as recordings decode) of a camera with lens distortion, so each frame
// is rectified by the camera's own rectifier before matching, as Camera::grab does: the left eye
// in colour and grey, the right eye in grey.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "core/internal/camera_state.h"
#include "core/internal/heap_policy.h"
#include "depth/internal/depth_module.h"
#include "depth/internal/stereo_dataset.h"
#include "depth/internal/stereo_engine.h"
#include "input/internal/rectifier.h"
#include "machine.h"

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point t0) { return std::chrono::duration<double, std::milli>(Clock::now() - t0).count(); }

// CPU time of the whole process (all threads), milliseconds: on a shared machine it tells what the
// work costs while the wall clock also counts the waits for a core.
double cpuMs() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) * 1e-6;
}

/// The median, 0 for no values (a skipped baseline).
double median(std::vector<double> v) {
  if (v.empty()) return 0.0;
  std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
  return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int frames = 10, range = 0, baseline_frames = -1;
  std::string only_mode;
  std::string pair_dir = std::string(MAPURA_SHARED_DATA) + "/eth3d_two_view/terrace";
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--frames"))
      frames = std::max(1, std::atoi(argv[i + 1]));
    else if (!std::strcmp(argv[i], "--range"))
      range = std::atoi(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--pair"))
      pair_dir = argv[i + 1];
    else if (!std::strcmp(argv[i], "--mode"))
      only_mode = argv[i + 1];
    else if (!std::strcmp(argv[i], "--baseline-frames"))
      baseline_frames = std::max(0, std::atoi(argv[i + 1]));
  }
  mapura::bench::printMachine();
  // As an opened camera does.
  pv::internal::keepFrameBuffersInHeap();

  pv::internal::StereoSample sample;
  std::string error;
  if (!pv::internal::loadStereoSample(pair_dir, sample, error)) {
    std::fprintf(stderr, "bench_depth: %s\n", error.c_str());
    return 1;
  }
  const cv::Size hd720(1280, 720);
  cv::Mat raw_left, raw_right;
  cv::resize(sample.left_bgr, raw_left, hd720, 0, 0, cv::INTER_LINEAR);
  cv::resize(sample.right_bgr, raw_right, hd720, 0, 0, cv::INTER_LINEAR);

  // An HD720 camera: 700 px focal length, 12 cm baseline, mild barrel distortion.
  pv::internal::StereoCalibration factory;
  for (pv::internal::EyeCalibration* eye : {&factory.left, &factory.right}) {
    eye->fx = eye->fy = 700;
    eye->cx = 640;
    eye->cy = 360;
    eye->disto = {-0.05, 0.01, 0, 0, 0};
  }
  factory.T = {-0.12, 0, 0};
  factory.width = hd720.width;
  factory.height = hd720.height;
  pv::internal::Rectifier rectifier;
  if (rectifier.init(factory) != pv::ERROR_CODE::SUCCESS) {
    std::fprintf(stderr, "bench_depth: the calibration does not rectify\n");
    return 1;
  }
  const pv::internal::RectifiedCalibration& calib = rectifier.rectified();
  cv::Mat raw_bgr, raw;
  cv::hconcat(raw_left, raw_right, raw_bgr);
  cv::cvtColor(raw_bgr, raw, cv::COLOR_BGR2BGRA);
  // The search range a camera opened with a 0.5 m minimum distance (the application's) uses.
  if (range <= 0) range = pv::internal::disparityRangeFor(calib, 0.5f);
  std::printf(
      "input: %s scaled to 1280x720, search range %d px (full resolution), %d frames, median ms "
      "(wall clock; cpu = all threads)\n",
      sample.name.c_str(), range, frames);

  cv::Mat bgr_l, gray_l, gray_r;
  std::vector<double> rect_ms;
  for (int i = 0; i < frames; ++i) {
    const auto t0 = Clock::now();
    rectifier.apply(raw, bgr_l, gray_l, gray_r);
    rect_ms.push_back(msSince(t0));
  }
  const double rectification_ms = median(rect_ms);
  std::printf("%-12s %8.2f ms\n", "rectify", rectification_ms);

  std::vector<double> base_ms, base_cpu;
  if (baseline_frames < 0) baseline_frames = frames;
  for (int i = 0; i < baseline_frames; ++i) {
    const auto t0 = Clock::now();
    const double c0 = cpuMs();
    const cv::Mat d = pv::internal::baselineSgbmDisparity(gray_l, gray_r, range);
    base_ms.push_back(msSince(t0));
    base_cpu.push_back(cpuMs() - c0);
  }
  const double sgbm_ms = median(base_ms), sgbm_cpu = median(base_cpu);

  for (pv::DEPTH_MODE mode : {pv::DEPTH_MODE::PERFORMANCE, pv::DEPTH_MODE::QUALITY, pv::DEPTH_MODE::ULTRA}) {
    std::string name = pv::toString(mode).c_str();
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    if (!only_mode.empty() && name != only_mode) continue;
    pv::internal::StereoParameters params;
    params.mode = mode;
    params.half_size_output = true;  // as the camera asks
    params.max_disparity_px = range;
    pv::internal::DepthFilterParameters filter;
    std::vector<double> total_ms, depth_ms, total_cpu;
    for (int i = 0; i < frames; ++i) {
      const auto t0 = Clock::now();
      const double c0 = cpuMs();
      rectifier.apply(raw, bgr_l, gray_l, gray_r);
      const auto t1 = Clock::now();
      pv::internal::StereoOutput out;
      if (!pv::internal::computeStereo(gray_l, gray_r, params, out, error)) {
        std::fprintf(stderr, "bench_depth: %s\n", error.c_str());
        return 1;
      }
      const pv::internal::DepthData depth =
          pv::internal::filterToDepth(std::move(out), gray_l, calib.fx, calib.baseline_m, filter);
      depth_ms.push_back(msSince(t1));
      total_ms.push_back(msSince(t0));
      total_cpu.push_back(cpuMs() - c0);
    }
    std::printf(
        "%-12s %8.2f ms per frame (depth %.2f + rectification), cpu %.2f ms   |   sgbm %8.2f ms + rectification "
        "= %.2f ms, cpu %.2f ms\n",
        pv::toString(mode).c_str(), median(total_ms), median(depth_ms), median(total_cpu), sgbm_ms,
        sgbm_ms + rectification_ms, sgbm_cpu);
  }
  return 0;
}
