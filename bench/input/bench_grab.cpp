// Grab throughput on a recording (decode and rectification, no depth), beside FFmpeg's own
// decode rate of the same file (`ffmpeg -i FILE -f null -`), measured in the same run.
//
//   bench_grab [FILE.ktr]        without a file, a 90-frame HD720 H.264 room scene is synthesized
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <string>

#include "bench/machine.h"
#include "pv/camera.h"
#include "synth/internal/synth.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// CPU seconds used by finished child processes so far.
double childCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// Frames per second of `ffmpeg -i FILE -f null -` (video stream only), or a negative number;
// `cpu_ms` receives its CPU milliseconds per frame.
double ffmpegRate(const std::string& path, int frames, double& cpu_ms) {
  const double cpu_before = childCpuSeconds();
  const std::string command = "ffmpeg -nostdin -v error -i '" + path + "' -map 0:v -f null - 2>&1";
  const auto start = Clock::now();
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return -1;
  char line[512];
  while (std::fgets(line, sizeof(line), pipe)) std::cerr << "ffmpeg: " << line;
  const int status = pclose(pipe);
  const double elapsed = seconds(start);
  cpu_ms = 1000 * (childCpuSeconds() - cpu_before) / frames;
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
    const std::clock_t cpu_start = std::clock();
    int grabbed = 0;
    while (camera.grab(runtime) == pv::ERROR_CODE::SUCCESS) ++grabbed;
    const double grab_fps = grabbed / seconds(start);
    const double grab_cpu_ms = 1000.0 * double(std::clock() - cpu_start) / CLOCKS_PER_SEC / std::max(grabbed, 1);
    double ffmpeg_cpu_ms = 0;
    const double ffmpeg_fps = ffmpegRate(path, frames, ffmpeg_cpu_ms);
    std::printf(
        "round %d: grab %.1f frames/s (decode + rectify, %d frames); ffmpeg -f null %.1f frames/s; ratio %.0f %%\n",
        round + 1, grab_fps, grabbed, ffmpeg_fps, ffmpeg_fps > 0 ? 100 * grab_fps / ffmpeg_fps : 0.0);
    // On a machine shared with other work the CPU time per frame is the steadier comparison.
    std::printf("         CPU per frame: grab %.1f ms, ffmpeg %.1f ms; ratio %.0f %%\n", grab_cpu_ms, ffmpeg_cpu_ms,
                grab_cpu_ms > 0 ? 100 * ffmpeg_cpu_ms / grab_cpu_ms : 0.0);
  }
  return 0;
}
