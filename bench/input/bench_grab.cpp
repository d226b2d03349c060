// Grab throughput on a recording (decode and rectification, no depth), beside FFmpeg's own
// decode rate of the same file (`ffmpeg -i FILE -f null -`), measured in the same run.
//
//   bench_grab [FILE.ktr]        without a file, a 90-frame HD720 H.264 room scene is synthesized
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include "bench/machine.h"
#include "pv/camera.h"
#include "synth/internal/synth.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// Frames per second of `ffmpeg -i FILE -f null -` (video stream only), or a negative number.
double ffmpegRate(const std::string& path, int frames) {
  const std::string command = "ffmpeg -nostdin -v error -i '" + path + "' -map 0:v -f null - 2>&1";
  const auto start = Clock::now();
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return -1;
  char line[512];
  while (std::fgets(line, sizeof(line), pipe)) std::cerr << "ffmpeg: " << line;
  const int status = pclose(pipe);
  const double elapsed = seconds(start);
  return status == 0 ? frames / elapsed : -1;
}

}  // namespace

int main(int argc, char** argv) {
  std::string path = argc > 1 ? argv[1] : "";
  if (path.empty()) {
    path = (std::filesystem::temp_directory_path() / "bench_grab_hd720.ktr").string();
    if (!std::filesystem::exists(path)) {
      pv::internal::synth::SynthOptions o;
      o.frames = 90;
      std::cerr << "synthesizing " << path << " ...\n";
      if (pv::internal::synth::synthesize(o, path) != pv::ERROR_CODE::SUCCESS) {
        std::cerr << "cannot synthesize: " << pv::lastErrorDetail().c_str() << "\n";
        return 1;
      }
    }
  }
  mapura::bench::printMachine();
  pv::Camera camera;
  pv::InitParameters init;
  init.input.setFromKTRFile(path.c_str());
  init.depth_mode = pv::DEPTH_MODE::NONE;
  if (camera.open(init) != pv::ERROR_CODE::SUCCESS) {
    std::cerr << "cannot open " << path << ": " << pv::lastErrorDetail().c_str() << "\n";
    return 1;
  }
  const int frames = camera.getKTRNumberOfFrames();
  const pv::Resolution size = camera.getCameraInformation().camera_configuration.resolution;
  pv::RuntimeParameters runtime;
  runtime.enable_depth = false;
  std::cout << "file: " << path << " (" << frames << " frames, " << size.width << "x" << size.height << " per eye)\n";
  for (int round = 0; round < 2; ++round) {
    camera.setKTRPosition(0);
    const auto start = Clock::now();
    int grabbed = 0;
    while (camera.grab(runtime) == pv::ERROR_CODE::SUCCESS) ++grabbed;
    const double grab_fps = grabbed / seconds(start);
    const double ffmpeg_fps = ffmpegRate(path, frames);
    std::printf(
        "round %d: grab %.1f frames/s (decode + rectify, %d frames); ffmpeg -f null %.1f frames/s; ratio %.0f %%\n",
        round + 1, grab_fps, grabbed, ffmpeg_fps, ffmpeg_fps > 0 ? 100 * grab_fps / ffmpeg_fps : 0.0);
  }
  return 0;
}
