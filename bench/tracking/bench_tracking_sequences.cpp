// Runs tracking on stereo image folders (no camera, no recording) and prints trajectory errors and
// time per frame:
//   bench_tracking_sequences euroc|kitti|pairs DIR [--every N] [--first K] [--out BASE]
// The folder is read as `pavo import` reads it (its ground truth included); --every and --first
// thin and cut it the same way. BASE.live.txt, BASE.two_pass.txt and BASE.gt.txt (TUM files) are
// written when --out is given; --verbose 1 prints a line per frame (state, points, error against the
// ground truth from the first pose on).
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "machine.h"
#include "pv/defines.h"
#include "stereo_sequence.h"
#include "tracking/internal/tracking_engine.h"
#include "trajectory_report.h"

using namespace pv::internal;

namespace {

// The ground-truth pose at frame `i`'s time; false when there is none.
bool truthAt(const mapura::bench::StereoSequence& seq, size_t i, Eigen::Isometry3d& T) {
  for (const StampedPose& p : seq.ground_truth)
    if (std::abs(p.t_s - seq.t_s[i]) < 1e-6) {
      T = p.T_world_camera;
      return true;
    }
  return false;
}

double angleDeg(const Eigen::Isometry3d& T) { return Eigen::AngleAxisd(T.linear()).angle() * 180 / M_PI; }

// One line per frame: state, points used and refused, true turn since the previous frame, error
// of the motion since frame 0 against the truth's.
void printFrame(size_t i, const mapura::bench::StereoSequence& seq, const EngineOutput& out, double ms) {
  static Eigen::Isometry3d e0, g0, g_previous;
  static bool have_previous = false;
  Eigen::Isometry3d g;
  const bool known = truthAt(seq, i, g);
  if (i == 0) {
    e0 = out.T_world_camera;
    g0 = g;
  }
  std::printf("frame %4zu t %7.3f %-9s used %4zu rejected %4zu conf %3d %6.1f ms", i, seq.t_s[i],
              pv::toString(out.state).c_str(), out.used.size(), out.rejected.size(), out.confidence, ms);
  if (known) {
    const Eigen::Isometry3d de = e0.inverse() * out.T_world_camera, dg = g0.inverse() * g;
    std::printf("  turn %5.1f deg  error %5.2f deg %6.3f m", have_previous ? angleDeg(g_previous.inverse() * g) : 0.0,
                angleDeg(dg.inverse() * de), (de.translation() - dg.translation()).norm());
    g_previous = g;
    have_previous = true;
  }
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  int every = 1, first = 0;
  bool verbose = false;
  std::string out_base;
  for (int i = 3; i + 1 < argc; i += 2) {
    const std::string k = argv[i];
    if (k == "--every")
      every = std::atoi(argv[i + 1]);
    else if (k == "--first")
      first = std::atoi(argv[i + 1]);
    else if (k == "--out")
      out_base = argv[i + 1];
    else if (k == "--verbose")
      verbose = std::atoi(argv[i + 1]) != 0;
  }
  if (argc < 3 || argc % 2 == 0 || every < 1 || first < 0) {
    std::cerr
        << "usage: bench_tracking_sequences euroc|kitti|pairs DIR [--every N] [--first K] [--out BASE] [--verbose 1]\n";
    return 2;
  }
  mapura::bench::printMachine();
  mapura::bench::StereoSequence seq;
  std::string error;
  if (!mapura::bench::loadSequence(argv[1], argv[2], every, first, seq, error)) {
    std::cerr << "cannot load: " << error << "\n";
    return 1;
  }
  std::printf("%zu frames %dx%d fx %.1f baseline %.4f m\n", seq.size(), seq.calibration.size.width,
              seq.calibration.size.height, seq.calibration.fx, seq.calibration.baseline_m);

  TrackingEngine engine(seq.calibration, TrackingEngineParameters());
  Trajectory live;
  double total_ms = 0, worst_ms = 0;
  int ok = 0;
  for (size_t i = 0; i < seq.size(); ++i) {
    cv::Mat l, r;
    if (!seq.read(i, l, r)) break;
    const auto t0 = std::chrono::steady_clock::now();
    const EngineOutput out = engine.process(l, r, cv::Mat(), int(i), seq.t_s[i]);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    total_ms += ms;
    worst_ms = std::max(worst_ms, ms);
    // FPS_TOO_LOW still carries a pose (frames far apart in time), as pavo track counts it.
    if (out.state == pv::POSITIONAL_TRACKING_STATE::OK || out.state == pv::POSITIONAL_TRACKING_STATE::FPS_TOO_LOW) {
      ++ok;
      live.push_back({seq.t_s[i], out.T_world_camera});
    }
    if (verbose) printFrame(i, seq, out, ms);
  }
  std::printf(
      "frames tracked %d/%zu, %.2f ms per frame (worst %.1f ms), keyframes %zu landmarks %zu loops %d, local maps "
      "restarted %d\n",
      ok, seq.size(), total_ms / double(seq.size()), worst_ms, engine.map().keyframes.size(),
      engine.map().landmarks.size(), engine.loopCount(), engine.restarts());
  mapura::bench::printTrajectoryErrors("live", live, seq.ground_truth);
  // Drift without any alignment: motion from the first pose, estimated against true.
  const auto pairs = associateByTime(live, seq.ground_truth, 0.02);
  if (!pairs.empty()) {
    const Eigen::Isometry3d e0 = live[pairs[0].first].T_world_camera,
                            g0 = seq.ground_truth[pairs[0].second].T_world_camera;
    double worst = 0, last = 0;
    for (const auto& [i, j] : pairs) {
      const Eigen::Vector3d de = (e0.inverse() * live[i].T_world_camera).translation();
      const Eigen::Vector3d dg = (g0.inverse() * seq.ground_truth[j].T_world_camera).translation();
      last = (de - dg).norm();
      worst = std::max(worst, last);
    }
    std::printf("drift from the first pose: at the end %.4f m, largest %.4f m\n", last, worst);
  }
  const auto t0 = std::chrono::steady_clock::now();
  engine.finalise();
  const double final_ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
  Trajectory refined;
  for (size_t i = 0; i < seq.size(); ++i) {
    Eigen::Isometry3d T;
    if (engine.trajectory().refinedPose(int(i), T)) refined.push_back({seq.t_s[i], T});
  }
  std::printf("final optimisation %.0f ms\n", final_ms);
  mapura::bench::printTrajectoryErrors("two-pass", refined, seq.ground_truth);
  // The estimates (live and two-pass) and the ground truth as TUM files, for `pavo eval traj`.
  if (!out_base.empty()) {
    if (!writeTumTrajectory(out_base + ".live.txt", live, error) ||
        !writeTumTrajectory(out_base + ".two_pass.txt", refined, error) ||
        !writeTumTrajectory(out_base + ".gt.txt", seq.ground_truth, error))
      std::cerr << error << "\n";
  }
  return 0;
}
