// pavo track FILE.ktr -o TRAJ.txt [--two-pass] [--depth-mode MODE]: positional tracking over a
// recording, written as a TUM trajectory (camera-to-world, metres, x right, y up, looking along -z).
// With --two-pass, TRAJ.txt holds the second pass (refined poses) and TRAJ.txt.first_pass.txt the
// live poses of the first.
#include <chrono>
#include <cstdio>
#include <iostream>

#include "command.h"
#include "pv/camera.h"
#include "tracking/internal/trajectory_eval.h"

namespace {

bool parseDepthMode(const std::string& text, pv::DEPTH_MODE& mode) {
  for (int m = 0; m < int(pv::DEPTH_MODE::LAST); ++m) {
    std::string label = pv::toString(pv::DEPTH_MODE(m)).c_str();
    std::string lower;
    for (char c : label) lower += char(std::tolower(static_cast<unsigned char>(c)));
    if (text == label || text == lower || text == std::to_string(m)) {
      mode = pv::DEPTH_MODE(m);
      return true;
    }
  }
  return false;
}

/// One pass over the whole recording; appends the pose of every tracked frame.
int trackPass(pv::Camera& camera, const char* label, pv::internal::Trajectory& out) {
  const int total = camera.getKTRNumberOfFrames();
  int frames = 0, tracked = 0;
  double ms = 0;
  for (;;) {
    const auto t0 = std::chrono::steady_clock::now();
    const pv::ERROR_CODE grabbed = camera.grab();
    ms += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    if (grabbed == pv::ERROR_CODE::END_OF_KTR_FILE_REACHED) break;
    if (grabbed != pv::ERROR_CODE::SUCCESS) {
      std::cerr << "frame " << frames << ": " << pv::toString(grabbed).c_str() << " (skipped)\n";
      if (grabbed != pv::ERROR_CODE::CORRUPTED_FRAME) return -1;
      continue;
    }
    ++frames;
    pv::Pose pose;
    const pv::POSITIONAL_TRACKING_STATE state = camera.getPosition(pose, pv::REFERENCE_FRAME::WORLD);
    if (state == pv::POSITIONAL_TRACKING_STATE::OK || state == pv::POSITIONAL_TRACKING_STATE::FPS_TOO_LOW) {
      ++tracked;
      pv::internal::StampedPose p;
      p.t_s = double(pose.timestamp_ns) * 1e-9;
      for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) p.T_world_camera.linear()(r, c) = pose.pose_data(r, c);
        p.T_world_camera.translation()[r] = pose.pose_data(r, 3);
      }
      out.push_back(p);
    }
    if (frames % 100 == 0) std::fprintf(stderr, "\r%s: %d/%d", label, frames, total);
  }
  std::fprintf(stderr, "\r%s: %d frames, %d tracked, %.1f ms per grab\n", label, frames, tracked,
               frames ? ms / frames : 0.0);
  return frames;
}

int runTrack(int argc, char** argv) {
  const char* name = "track";
  pavo::Args args(argc, argv, {"two-pass"});
  if (!args.error().empty()) return pavo::usageError(name, args.error());
  const auto unknown = args.unknown({"o", "two-pass", "depth-mode"});
  if (!unknown.empty()) return pavo::usageError(name, "unknown option --" + unknown[0]);
  if (args.positional().size() != 1 || !args.has("o")) return pavo::usageError(name, "expected FILE.ktr -o TRAJ.txt");
  pv::DEPTH_MODE depth = pv::DEPTH_MODE::NONE;
  if (args.has("depth-mode") && !parseDepthMode(args.get("depth-mode"), depth))
    return pavo::usageError(name, "unknown depth mode '" + args.get("depth-mode") + "'");

  pv::InitParameters init;
  init.input.setFromKTRFile(args.positional()[0].c_str());
  init.depth_mode = depth;
  init.coordinate_system = pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
  init.coordinate_units = pv::UNIT::METER;
  pv::Camera camera;
  pv::ERROR_CODE err = camera.open(init);
  if (err != pv::ERROR_CODE::SUCCESS)
    return pavo::failure(name, std::string(pv::lastErrorDetail().c_str()) + " (" + pv::toString(err).c_str() + ")");
  err = camera.enablePositionalTracking();
  if (err != pv::ERROR_CODE::SUCCESS)
    return pavo::failure(name, std::string(pv::lastErrorDetail().c_str()) + " (" + pv::toString(err).c_str() + ")");

  pv::internal::Trajectory trajectory;
  if (trackPass(camera, "tracking", trajectory) < 0) return pavo::failure(name, "the recording could not be read");
  if (args.has("two-pass")) {
    // Final optimisation, rewind, and a second pass that reports the refined poses.
    camera.disablePositionalTracking();
    camera.setKTRPosition(0);
    pv::PositionalTrackingParameters second;
    second.enable_area_memory = false;
    err = camera.enablePositionalTracking(second);
    if (err != pv::ERROR_CODE::SUCCESS) return pavo::failure(name, pv::lastErrorDetail().c_str());
    // The first pass's live poses go beside the output, for comparison.
    std::string error;
    const std::string live_path = args.get("o") + ".first_pass.txt";
    if (!pv::internal::writeTumTrajectory(live_path, trajectory, error)) return pavo::failure(name, error);
    std::printf("first pass: %zu poses written to %s\n", trajectory.size(), live_path.c_str());
    trajectory.clear();
    if (trackPass(camera, "second pass", trajectory) < 0) return pavo::failure(name, "the recording could not be read");
  }
  std::string error;
  if (!pv::internal::writeTumTrajectory(args.get("o"), trajectory, error)) return pavo::failure(name, error);
  std::printf("%zu poses written to %s\n", trajectory.size(), args.get("o").c_str());
  return 0;
}

}  // namespace

PAVO_COMMAND("track", "FILE.ktr -o TRAJ.txt [--two-pass] [--depth-mode MODE]",
             "positional tracking over a recording, written as a TUM trajectory", runTrack);
