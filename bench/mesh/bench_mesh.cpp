// Times and peak memory of the map object operations on synthetic scans:
//   load and save of a 1 M-triangle binary PLY, MEDIUM filter of 1 M triangles, texture of a
//   200 k-triangle scan from 100 keyframes. Usage: bench_mesh [scratch folder] [repeats]
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "machine.h"
#include "pv/mesh.h"
#include "scene_renderer.h"
#include "synthetic_scan.h"

namespace {

long statusKb(const char* key) {
  std::ifstream f("/proc/self/status");
  std::string line;
  while (std::getline(f, line))
    if (line.rfind(key, 0) == 0) return std::stol(line.substr(std::string(key).size()));
  return -1;
}

double cpuSeconds() {
  struct rusage u;
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + 1e-6 * double(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

// Runs `op` `repeats` times; prints the best and median wall time, the CPU time of the best run
// (all threads; on a machine shared with other work the wall time includes waiting for a core),
// and the peak resident memory during the runs (VmHWM after resetting it) above the memory
// resident before them.
void measure(const char* name, int repeats, const std::function<bool()>& op, double goal_s) {
  std::vector<std::pair<double, double>> seconds;     // wall, CPU
  { std::ofstream("/proc/self/clear_refs") << "5"; }  // resets the peak to the current size
  const long before_kb = statusKb("VmRSS:");
  bool ok = true;
  for (int i = 0; i < repeats; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    const double c0 = cpuSeconds();
    ok = op() && ok;
    seconds.emplace_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(),
                         cpuSeconds() - c0);
  }
  const long peak_kb = statusKb("VmHWM:");
  std::sort(seconds.begin(), seconds.end());
  std::printf("%-44s wall best %6.3f s median %6.3f s, CPU %6.3f s (goal %.1f s); peak RSS %5.0f MiB (+%4.0f MiB)%s\n",
              name, seconds.front().first, seconds[seconds.size() / 2].first, seconds.front().second, goal_s,
              double(peak_kb) / 1024.0, double(peak_kb - before_kb) / 1024.0, ok ? "" : "  FAILED");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string dir = argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string() + "/bench_mesh";
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  std::filesystem::create_directories(dir);
  mapura::bench::printMachine();

  const mapura::test::SyntheticScene scene;
  pv::Mesh big = mapura::test::makeNoisyScan(500, 0.002f, 5, scene);
  std::printf("scan: %zu triangles, %zu vertices, %zu chunks\n", big.triangles.size(), big.vertices.size(),
              big.chunks.size());
  const std::string ply = dir + "/big.ply";
  measure(
      "save binary PLY, 1 M triangles", repeats, [&] { return big.save(ply.c_str(), pv::MESH_FILE_FORMAT::PLY); }, 1.0);
  std::printf("  file: %.1f MiB\n", double(std::filesystem::file_size(ply)) / 1048576.0);
  measure(
      "load binary PLY, 1 M triangles (+ chunks)", repeats,
      [&] {
        pv::Mesh m;
        return m.load(ply.c_str()) && m.getNumberOfTriangles() == big.triangles.size();
      },
      0.3);
  measure(
      "filter MEDIUM, 1 M triangles", repeats,
      [&] {
        pv::Mesh m = big;
        return m.filter(pv::MeshFilterParameters::MEDIUM);
      },
      1.0);
  {
    pv::Mesh m = big;
    m.filter(pv::MeshFilterParameters::MEDIUM);
    std::printf("  MEDIUM keeps %zu of %zu triangles\n", m.triangles.size(), big.triangles.size());
  }
  big = pv::Mesh();

  pv::Mesh scan = mapura::test::makeNoisyScan(224, 0.001f, 9, scene);
  scan.filter(pv::MeshFilterParameters::LOW);
  auto source = std::make_shared<pv::internal::TextureSource>();
  for (int i = 0; i < 100; ++i) {
    const float a = 2.f * float(M_PI) * float(i) / 100.f;
    const float height = 0.8f + 0.9f * float(i % 5) / 4.f;
    const auto cam =
        mapura::test::lookAt({2.3f * std::cos(a), height, 2.3f * std::sin(a)}, {0.f, 0.3f, 0.f}, 640, 480, 520);
    source->keyframes.push_back(mapura::test::keyframeFrom(scene, cam));
  }
  std::printf("texture scan: %zu triangles, %zu keyframes of 640x480\n", scan.triangles.size(),
              source->keyframes.size());
  measure(
      "texture RGB, 200 k triangles, 100 keyframes", repeats,
      [&] {
        pv::Mesh m = scan;
        m.texture_source = source;
        const bool ok = m.applyTexture(pv::MESH_TEXTURE_FORMAT::RGB);
        static bool printed = false;
        if (ok && !printed) {
          printed = true;
          std::printf("  atlas %zux%zu\n", m.texture.getWidth(), m.texture.getHeight());
        }
        return ok;
      },
      10.0);
  return 0;
}
