// Tracking on a rendered room (no camera, no recording): time per frame and trajectory errors.
//   bench_tracking_room [--width W --height H --fx F --frames N --laps L]
// Defaults: HD720 (1280x720, fx 700), 300 frames over one lap of a 0.8 m circle.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "machine.h"
#include "synthetic_stereo.h"
#include "tracking/internal/tracking_engine.h"
#include "trajectory_report.h"

using namespace pv::internal;

/// CPU time of the whole process (all threads), milliseconds.
static double processCpuMs() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec * 1e3 + t.tv_nsec * 1e-6;
}

int main(int argc, char** argv) {
  int width = 1280, height = 720, frames = 300;
  double fx = 700, laps = 1;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string k = argv[i];
    const double v = std::atof(argv[i + 1]);
    if (k == "--width")
      width = int(v);
    else if (k == "--height")
      height = int(v);
    else if (k == "--fx")
      fx = v;
    else if (k == "--frames")
      frames = int(v);
    else if (k == "--laps")
      laps = v;
  }
  mapura::bench::printMachine();
  const RectifiedCalibration c = mapura::test::syntheticCalibration(width, height, fx);
  const mapura::test::SyntheticRoom room(Eigen::Vector3d(3, 1.5, 3), 7);
  std::printf("room: %dx%d fx %.0f, %d frames, %.1f laps of a 0.8 m circle\n", width, height, fx, frames, laps);

  TrackingEngine engine(c, TrackingEngineParameters());
  Trajectory live, truth;
  std::vector<double> ms;
  double cpu_ms = 0;
  const Eigen::Isometry3d T0_inv = mapura::test::circlePose(0, 0.8).inverse();
  cv::Mat left, right;
  for (int i = 0; i < frames; ++i) {
    const Eigen::Isometry3d T = mapura::test::circlePose(laps * i / frames, 0.8);
    room.render(c, T, left, right);
    const auto t0 = std::chrono::steady_clock::now();
    const double cpu0 = processCpuMs();
    const EngineOutput out = engine.process(left, right, cv::Mat(), i, i / 30.0);
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    cpu_ms += processCpuMs() - cpu0;
    truth.push_back({i / 30.0, T0_inv * T});
    if (out.state == pv::POSITIONAL_TRACKING_STATE::OK) live.push_back({i / 30.0, out.T_world_camera});
  }
  std::vector<double> sorted = ms;
  std::sort(sorted.begin(), sorted.end());
  double sum = 0;
  for (double m : ms) sum += m;
  std::printf(
      "time per frame: mean %.2f ms, median %.2f ms, p95 %.2f ms, max %.2f ms; tracked %zu/%d; keyframes %zu, "
      "loops %d\n",
      sum / ms.size(), sorted[sorted.size() / 2], sorted[sorted.size() * 95 / 100], sorted.back(), live.size(), frames,
      engine.map().keyframes.size(), engine.loopCount());
  std::printf("cpu time per frame (all threads): mean %.2f ms\n", cpu_ms / frames);
  mapura::bench::printTrajectoryErrors("live", live, truth);
  const auto t0 = std::chrono::steady_clock::now();
  engine.finalise();
  std::printf("final optimisation %.0f ms\n",
              std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
  Trajectory refined;
  for (int i = 0; i < frames; ++i) {
    Eigen::Isometry3d T;
    if (engine.trajectory().refinedPose(i, T)) refined.push_back({i / 30.0, T});
  }
  mapura::bench::printTrajectoryErrors("two-pass", refined, truth);
  return 0;
}
