// A long live scan through the virtual camera looping a recording, with the calls the mapping
// worker makes each frame (grab, pose, every fifth image, a map request every 41 frames and its
// retrieval into a kept mesh), sampling the process's memory, the map's memory and the frame
// time at a fixed interval. The scan goes on after the mapping memory budget is reached, so that
// what happens to memory from then on can be judged.
//
// Used by bench_long_scan (30 minutes, plotted) and by test_long_scan (3 minutes in CI).
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "pv/defines.h"

namespace mapura::bench {

struct LongScanOptions {
  std::string recording;  ///< played by the virtual camera, rewinding at its end
  double minutes = 30;
  double sample_every_s = 10;
  int memory_mb = 64;  ///< the mapping memory budget
  float resolution_m = 0.02f;
  pv::DEPTH_MODE depth_mode = pv::DEPTH_MODE::PERFORMANCE;
  bool texture = false;  ///< keep keyframe images for texturing (they count against the budget)
};

struct LongScanSample {
  double t_s = 0;
  int frames = 0;             ///< grabbed so far
  double rss_mb = 0;          ///< resident memory of the whole process
  double heap_mb = 0;         ///< bytes the C library's allocator has handed out and not had back
  double map_mb = 0;          ///< TSDF blocks, meshes and texture keyframes as the mapping counts them
  size_t blocks = 0;          ///< TSDF blocks
  size_t chunks = 0;          ///< chunks of the kept mesh
  size_t tracked = 0;         ///< frames whose poses tracking keeps
  size_t keyframes = 0;       ///< keyframes of the tracking map (area memory)
  size_t landmarks = 0;       ///< landmarks of the tracking map
  size_t texture_images = 0;  ///< keyframe images kept for texturing
  double fps = 0;             ///< frames grabbed per second since the previous sample
  double cpu_ms = 0;          ///< CPU time of the process (all threads) per frame since then
  double grab_ms_max = 0;     ///< longest grab since then (waiting for the camera included)
  bool memory_full = false;   ///< the mapping reports NOT_ENOUGH_MEMORY
};

struct LongScanResult {
  std::vector<LongScanSample> samples;
  double budget_reached_s = -1;  ///< first sample with the budget reached; -1 never
  std::string error;             ///< why the scan could not run; empty when it did
};

/// Runs the scan; `on_sample` (optional) sees each sample as it is taken.
LongScanResult runLongScan(const LongScanOptions& options,
                           const std::function<void(const LongScanSample&)>& on_sample = nullptr);

/// Whether resident memory keeps growing once the budget is reached: samples from `settle_s`
/// after it on are taken; the growth is the Theil-Sen slope (median of the pairwise slopes, so a
/// few outliers do not move it) over that window, and it is steady when Kendall's tau (the share
/// of sample pairs that rise minus those that fall) is at least `min_tau` as well.
struct GrowthVerdict {
  bool judged = false;  ///< enough samples after the budget was reached
  int samples = 0;
  double window_min = 0;
  double slope_mb_per_min = 0;
  double growth_mb = 0;  ///< slope times the window
  double tau = 0;
  bool steady_growth = false;  ///< growth above `limit_mb` and tau above `min_tau`
  std::string text;
};
/// Resident memory may not grow by more than this over the judged window (a few frame buffers'
/// worth: the allocator's noise from one sample to the next stays well below it).
constexpr double kGrowthLimitMb = 8;
GrowthVerdict judgeGrowthAfterBudget(const LongScanResult& result, double settle_s, double limit_mb,
                                     double min_tau = 0.5);

/// One line per sample, with a header line first when `header` is set.
std::string formatSample(const LongScanSample& s, bool header = false);

}  // namespace mapura::bench
