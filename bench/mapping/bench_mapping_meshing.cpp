// A rendered room (walls, a box and a ball; exact depth and colour) scanned by a camera turning
// round the room: incremental meshing time per map request at 5 cm, accuracy and completeness at
// 2 cm against the true surface, memory per square metre, and fusion time of HD720 depth.
//   bench_mapping_meshing [FRAMES=240]
#include <Eigen/Geometry>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "machine.h"
#include "mapping/internal/mapping_module.h"
#include "mapping/internal/surface_distance.h"
#include "render_scene.h"

using namespace pv::internal;
using mapura::test::PinholeCamera;
using mapura::test::Scene;
using Clock = std::chrono::steady_clock;

namespace {

Scene makeRoom() {
  Scene s;
  s.addBox({-3.f, -1.6f, -2.f}, {3.f, 1.f, 2.f});  // the room, seen from inside (y down: floor at y = 1)
  s.addBox({1.f, 0.2f, 0.8f}, {2.f, 1.f, 1.6f});   // a chest on the floor
  s.addSphere({-1.5f, 0.5f, -1.f}, 0.5f);          // a ball on the floor
  return s;
}

/// Truth as triangles: the boxes' faces and a finely tessellated ball.
void truthMesh(std::vector<Eigen::Vector3f>& v, std::vector<std::array<uint32_t, 3>>& t) {
  auto box = [&](const Eigen::Vector3f& lo, const Eigen::Vector3f& hi) {
    const uint32_t base = uint32_t(v.size());
    for (int c = 0; c < 8; ++c)
      v.emplace_back(c & 1 ? hi.x() : lo.x(), c & 2 ? hi.y() : lo.y(), c & 4 ? hi.z() : lo.z());
    const int faces[6][4] = {{0, 1, 3, 2}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 3, 7, 6}, {0, 2, 6, 4}, {1, 3, 7, 5}};
    for (const auto& f : faces) {
      t.push_back({base + uint32_t(f[0]), base + uint32_t(f[1]), base + uint32_t(f[2])});
      t.push_back({base + uint32_t(f[0]), base + uint32_t(f[2]), base + uint32_t(f[3])});
    }
  };
  box({-3.f, -1.6f, -2.f}, {3.f, 1.f, 2.f});
  box({1.f, 0.2f, 0.8f}, {2.f, 1.f, 1.6f});
  const uint32_t base = uint32_t(v.size());
  const int nu = 128, nv = 64;
  for (int j = 0; j <= nv; ++j)
    for (int i = 0; i <= nu; ++i) {
      const float th = float(M_PI) * float(j) / nv, ph = 2.f * float(M_PI) * float(i) / nu;
      v.emplace_back(-1.5f + 0.5f * std::sin(th) * std::cos(ph), 0.5f + 0.5f * std::cos(th),
                     -1.f + 0.5f * std::sin(th) * std::sin(ph));
    }
  for (int j = 0; j < nv; ++j)
    for (int i = 0; i < nu; ++i) {
      const uint32_t a = base + uint32_t(j * (nu + 1) + i);
      t.push_back({a, a + 1, a + uint32_t(nu) + 1});
      t.push_back({a + 1, a + uint32_t(nu) + 2, a + uint32_t(nu) + 1});
    }
}

/// Turning round the room's middle while bobbing up and down.
Eigen::Matrix4f pathPose(int i, int n) {
  const float a = 2.f * float(M_PI) * float(i) / float(n);
  const Eigen::Vector3f eye(0.4f * std::cos(a), -0.2f + 0.15f * std::sin(3.f * a), 0.4f * std::sin(a));
  const Eigen::Vector3f look(std::sin(a), 0.35f + 0.25f * std::sin(2.f * a), std::cos(a));
  return mapura::test::lookAt(eye, eye + look);
}

DepthFrame render(const Scene& s, const PinholeCamera& cam, const Eigen::Matrix4f& T, uint64_t t) {
  DepthFrame f;
  s.render(cam, T, f.depth_m, f.bgr);
  f.T_world_camera = T;
  f.fx = cam.fx;
  f.fy = cam.fy;
  f.cx = cam.cx;
  f.cy = cam.cy;
  f.timestamp_ns = t;
  return f;
}

double ms(Clock::time_point a) { return std::chrono::duration<double, std::milli>(Clock::now() - a).count(); }

void scan(const Scene& s, const std::vector<DepthFrame>& frames, float voxel_m, pv::Mesh& whole, MappingStats& stats,
          bool report_requests) {
  MappingConfig c;
  c.voxel_m = voxel_m;
  c.range_m = 5.f;
  c.use_chunk_only = true;
  MappingModule m(c);
  pv::Mesh live;
  double mesh_sum = 0, mesh_max = 0, copy_sum = 0;
  int requests = 0;
  size_t chunks_sum = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    while (!m.submit(frames[i])) std::this_thread::sleep_for(std::chrono::microseconds(200));
    if (i % 41 == 40) {  // the application's cadence: one request at most every 41 frames
      m.requestMap();
      while (!m.mapReady()) std::this_thread::sleep_for(std::chrono::microseconds(200));
      const MappingStats st = m.stats();
      const auto t0 = Clock::now();
      (void)m.retrieve(live);
      copy_sum += ms(t0);
      mesh_sum += st.mesh_ms_last;
      mesh_max = std::max(mesh_max, st.mesh_ms_last);
      chunks_sum += st.chunks_meshed_last;
      ++requests;
    }
  }
  if (report_requests && requests)
    std::printf(
        "incremental meshing at %.0f cm: %d requests, %.2f ms mean, %.2f ms max per request (%.1f chunks "
        "re-meshed each); copy into the holder %.2f ms mean\n",
        voxel_m * 100, requests, mesh_sum / requests, mesh_max, double(chunks_sum) / requests, copy_sum / requests);
  (void)m.extractWhole(whole);
  stats = m.stats();
}

}  // namespace

int main(int argc, char** argv) {
  const int n = argc > 1 ? std::atoi(argv[1]) : 240;
  mapura::bench::printMachine();
  {
    std::ifstream load("/proc/loadavg");
    std::string one;
    load >> one;
    std::cout << "load average (1 min) at start: " << one << " (other processes share these cores)\n";
  }
  const Scene room = makeRoom();
  PinholeCamera cam;  // 640 x 360, 90 degrees across
  cam.width = 640;
  cam.height = 360;
  cam.fx = cam.fy = 320;
  cam.cx = 319.5;
  cam.cy = 179.5;
  std::vector<DepthFrame> frames;
  for (int i = 0; i < n; ++i) frames.push_back(render(room, cam, pathPose(i, n), uint64_t(i + 1) * 33333333ull));
  std::printf("rendered room 6 x 2.6 x 4 m with a chest and a ball, %d frames 640x360, exact depth\n", n);

  for (float voxel : {0.05f, 0.02f}) {
    pv::Mesh mesh;
    MappingStats st;
    scan(room, frames, voxel, mesh, st, voxel > 0.03f);
    std::vector<Eigen::Vector3f> v;
    std::vector<std::array<uint32_t, 3>> t;
    for (const auto& p : mesh.vertices) v.emplace_back(p.x, p.y, p.z);
    for (const auto& tri : mesh.triangles) t.push_back({tri.x, tri.y, tri.z});
    double sum = 0, sum2 = 0;
    for (const auto& p : v) {
      const double d = room.distance(p);
      sum += d;
      sum2 += d * d;
    }
    double area = 0;
    for (const auto& tri : t) area += 0.5 * double((v[tri[1]] - v[tri[0]]).cross(v[tri[2]] - v[tri[0]]).norm());
    std::vector<Eigen::Vector3f> tv;
    std::vector<std::array<uint32_t, 3>> tt;
    truthMesh(tv, tt);
    // Seen: in view, unoccluded and within range in one of the frames (every 4th checked).
    auto seen = [&](const Eigen::Vector3f& x) {
      for (size_t i = 0; i < frames.size(); i += 4) {
        const DepthFrame& f = frames[i];
        const Eigen::Matrix4f T_cw = f.T_world_camera.inverse();
        const Eigen::Vector3f pc = T_cw.topLeftCorner<3, 3>() * x + T_cw.topRightCorner<3, 1>();
        if (pc.z() <= 0.1f || pc.z() > 5.f) continue;
        const int u = int(f.fx * pc.x() / pc.z() + f.cx + 0.5), r = int(f.fy * pc.y() / pc.z() + f.cy + 0.5);
        if (u < 0 || r < 0 || u >= f.depth_m.cols || r >= f.depth_m.rows) continue;
        if (std::abs(f.depth_m.at<float>(r, u) - pc.z()) < 0.01f) return true;
      }
      return false;
    };
    const MeshEvaluation e = evaluateMesh(v, t, tv, tt, voxel, 0.25f, seen);
    std::printf(
        "voxel %.0f cm: %zu triangles, accuracy mean %.2f mm (%.2f voxel), rms %.2f mm; completeness %.1f %% within "
        "%.0f cm (of %zu seen truth samples); fusion %.2f ms/frame; blocks %.1f MB + meshes %.1f MB for %.1f m^2 = "
        "%.2f "
        "MB/m^2\n",
        voxel * 100, t.size(), 1000 * sum / double(v.size()), sum / double(v.size()) / voxel,
        1000 * std::sqrt(sum2 / double(v.size())), e.completeness_pct, voxel * 100, e.truth_seen,
        st.integrate_ms_total / double(st.frames_fused), double(st.block_bytes) / (1 << 20),
        double(st.mesh_bytes) / (1 << 20), area, double(st.block_bytes + st.mesh_bytes) / (1 << 20) / area);
  }

  // HD720 depth at 5 cm: the fusion work behind one grab of the live pipeline.
  PinholeCamera hd;
  hd.width = 1280;
  hd.height = 720;
  hd.fx = hd.fy = 700;
  hd.cx = 639.5;
  hd.cy = 359.5;
  TsdfParameters p;
  p.voxel_m = 0.05f;
  p.max_depth_m = 5.f;
  TsdfVolume volume(p);
  double total = 0;
  const int hd_frames = std::min(n, 60);
  for (int i = 0; i < hd_frames; ++i) {
    DepthFrame f = render(room, hd, pathPose(i * n / hd_frames, n), uint64_t(i + 1));
    const auto t0 = Clock::now();
    volume.integrate(f);
    total += ms(t0);
  }
  std::printf("HD720 depth (1280x720) fused at 5 cm: %.2f ms/frame (%.0f frames/s of fusion capacity)\n",
              total / hd_frames, 1000.0 * hd_frames / total);
  return 0;
}
