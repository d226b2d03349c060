// The synthesized room (true depth and poses of `pavo synth room`) fused through the mapping
// module: incremental meshing time per map request at 5 cm, accuracy and completeness at 5 and
// 2 cm against the true surface, memory per square metre, and fusion time of HD720 depth.
//   bench_mapping_meshing [FRAMES=300] [PICTURE.png]
#include <Eigen/Geometry>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include <opencv2/imgcodecs.hpp>

#include "machine.h"
#include "mapping/internal/mapping_module.h"
#include "mapping/internal/surface_distance.h"
#include "synth/internal/synth.h"

using namespace pv::internal;
using Clock = std::chrono::steady_clock;

namespace {

/// Right-handed y-up (the ground-truth files) to IMAGE axes: (x, -y, -z).
Eigen::Vector3f toImage(const Eigen::Vector3f& p) { return Eigen::Vector3f(p.x(), -p.y(), -p.z()); }

DepthFrame render(const pv::internal::synth::SyntheticSequence& seq, int i) {
  DepthFrame f;
  seq.renderDepth(i, f.depth_m);
  f.T_world_camera = seq.poseImage(i).cast<float>();
  const pv::internal::RectifiedCalibration& c = seq.rectified();
  f.fx = c.fx;
  f.fy = c.fy;
  f.cx = c.cx;
  f.cy = c.cy;
  f.timestamp_ns = uint64_t(seq.timestampNs(i));
  return f;
}

/// Draws the mesh with a z-buffer and head-light shading from a camera at `eye` looking at
/// `target` with `down` pointing down the picture, and writes a PNG.
bool drawMesh(const pv::Mesh& mesh, const Eigen::Vector3f& eye, const Eigen::Vector3f& target,
              const Eigen::Vector3f& down, const std::string& path) {
  const int w = 1280, h = 800;
  const float f = 700.f;
  const Eigen::Vector3f z = (target - eye).normalized();
  const Eigen::Vector3f x = down.cross(z).normalized();
  const Eigen::Vector3f y = z.cross(x);
  cv::Mat image(h, w, CV_8UC3, cv::Scalar(40, 32, 30));
  cv::Mat zbuf(h, w, CV_32F, cv::Scalar(1e9f));
  for (const auto& t : mesh.triangles) {
    Eigen::Vector3f pc[3];
    Eigen::Vector2f pi[3];
    bool visible = true;
    for (int k = 0; k < 3; ++k) {
      const auto& v = mesh.vertices[k == 0 ? t.x : k == 1 ? t.y : t.z];
      const Eigen::Vector3f d = Eigen::Vector3f(v.x, v.y, v.z) - eye;
      pc[k] = Eigen::Vector3f(x.dot(d), y.dot(d), z.dot(d));
      if (pc[k].z() < 0.05f) visible = false;
      pi[k] = Eigen::Vector2f(f * pc[k].x() / pc[k].z() + w / 2.f, f * pc[k].y() / pc[k].z() + h / 2.f);
    }
    if (!visible) continue;
    // Faces seen from behind are skipped, so one looks into the room through its walls.
    Eigen::Vector3f nw = Eigen::Vector3f::Zero();
    for (uint32_t id : {t.x, t.y, t.z})
      nw += Eigen::Vector3f(mesh.normals[id].x, mesh.normals[id].y, mesh.normals[id].z);
    const auto& v0 = mesh.vertices[t.x];
    if (nw.dot(eye - Eigen::Vector3f(v0.x, v0.y, v0.z)) <= 0.f) continue;
    const Eigen::Vector3f n = (pc[1] - pc[0]).cross(pc[2] - pc[0]).normalized();
    const float shade = 0.25f + 0.75f * std::abs(n.dot((pc[0] + pc[1] + pc[2]).normalized()));
    const int x0 = std::max(0, int(std::floor(std::min({pi[0].x(), pi[1].x(), pi[2].x()}))));
    const int x1 = std::min(w - 1, int(std::ceil(std::max({pi[0].x(), pi[1].x(), pi[2].x()}))));
    const int y0 = std::max(0, int(std::floor(std::min({pi[0].y(), pi[1].y(), pi[2].y()}))));
    const int y1 = std::min(h - 1, int(std::ceil(std::max({pi[0].y(), pi[1].y(), pi[2].y()}))));
    const float area = (pi[1] - pi[0]).x() * (pi[2] - pi[0]).y() - (pi[1] - pi[0]).y() * (pi[2] - pi[0]).x();
    if (std::abs(area) < 1e-9f) continue;
    for (int py = y0; py <= y1; ++py)
      for (int px = x0; px <= x1; ++px) {
        const Eigen::Vector2f q(float(px) + 0.5f, float(py) + 0.5f);
        auto edge = [&](int a, int b) {
          return ((pi[b] - pi[a]).x() * (q - pi[a]).y() - (pi[b] - pi[a]).y() * (q - pi[a]).x()) / area;
        };
        const float w0 = edge(1, 2), w1 = edge(2, 0), w2 = edge(0, 1);
        if (w0 < 0.f || w1 < 0.f || w2 < 0.f) continue;
        const float depth = w0 * pc[0].z() + w1 * pc[1].z() + w2 * pc[2].z();
        if (depth >= zbuf.at<float>(py, px)) continue;
        zbuf.at<float>(py, px) = depth;
        image.at<cv::Vec3b>(py, px) = cv::Vec3b(uchar(200 * shade), uchar(210 * shade), uchar(225 * shade));
      }
  }
  return cv::imwrite(path, image);
}

double ms(Clock::time_point a) { return std::chrono::duration<double, std::milli>(Clock::now() - a).count(); }

void scan(const std::vector<DepthFrame>& frames, float voxel_m, pv::Mesh& whole, MappingStats& stats,
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
  const int n = argc > 1 ? std::atoi(argv[1]) : 300;
  const std::string png = argc > 2 ? argv[2] : "";
  mapura::bench::printMachine();
  {
    std::ifstream load("/proc/loadavg");
    std::string one;
    load >> one;
    std::cout << "load average (1 min) at start: " << one << " (other processes share these cores)\n";
  }
  pv::internal::synth::SynthOptions so;  // the synthesized room of `pavo synth room`
  so.frames = n;
  so.resolution = pv::RESOLUTION::VGA;
  pv::internal::synth::SyntheticSequence seq;
  if (seq.init(so) != pv::ERROR_CODE::SUCCESS) {
    std::cerr << "bench_mapping_meshing: cannot set up the synthesized room\n";
    return 1;
  }
  std::vector<DepthFrame> frames;
  for (int i = 0; i < n; ++i) frames.push_back(render(seq, i));
  std::printf("synthesized room (seed 1), %d frames %dx%d, true depth and poses\n", n, seq.rectified().size.width,
              seq.rectified().size.height);
  std::vector<Eigen::Vector3f> tv;
  std::vector<std::array<uint32_t, 3>> tt;
  {
    std::vector<Eigen::Vector3f> v;
    std::vector<Eigen::Vector3i> t;
    seq.surfaceMesh(v, t);
    for (const auto& p : v) tv.push_back(toImage(p));
    for (const auto& f : t) tt.push_back({uint32_t(f[0]), uint32_t(f[1]), uint32_t(f[2])});
  }
  const pv::internal::SurfaceDistance truth(tv, tt, 0.05f);

  for (float voxel : {0.05f, 0.02f}) {
    pv::Mesh mesh;
    MappingStats st;
    scan(frames, voxel, mesh, st, voxel > 0.03f);
    if (!png.empty() && voxel < 0.03f) {
      // From above and outside one corner, looking at the middle of the map. Down is the mean of
      // the cameras' down axes (the path keeps the camera level).
      Eigen::Vector3f down = Eigen::Vector3f::Zero();
      for (const auto& f : frames) down += f.T_world_camera.block<3, 1>(0, 1);
      down.normalize();
      Eigen::Vector3f side = down.cross(Eigen::Vector3f::UnitX());
      side.normalize();
      Eigen::Vector3f lo = Eigen::Vector3f::Constant(1e9f), hi = -lo;
      for (const auto& p : mesh.vertices) {
        lo = lo.cwiseMin(Eigen::Vector3f(p.x, p.y, p.z));
        hi = hi.cwiseMax(Eigen::Vector3f(p.x, p.y, p.z));
      }
      const Eigen::Vector3f centre = 0.5f * (lo + hi);
      const float size = (hi - lo).norm();
      const Eigen::Vector3f eye = centre + (0.5f * side + 0.35f * down.cross(side) - 0.75f * down) * size;
      const bool drawn = drawMesh(mesh, eye, centre, down, png);
      std::printf("%s %s\n", drawn ? "picture of the 2 cm mesh:" : "could not write", png.c_str());
    }
    std::vector<Eigen::Vector3f> v;
    std::vector<std::array<uint32_t, 3>> t;
    for (const auto& p : mesh.vertices) v.emplace_back(p.x, p.y, p.z);
    for (const auto& tri : mesh.triangles) t.push_back({tri.x, tri.y, tri.z});
    double area = 0;
    for (const auto& tri : t) area += 0.5 * double((v[tri[1]] - v[tri[0]]).cross(v[tri[2]] - v[tri[0]]).norm());
    // Seen: in view, unoccluded and within range in one of the frames (every 4th checked).
    auto seen = [&](const Eigen::Vector3f& x) { return visibleInAny(frames, x, 4, 0.01f, 5.f); };
    const MeshEvaluation e = evaluateMesh(v, t, tv, tt, voxel, 0.25f, seen);
    std::printf(
        "voxel %.0f cm: %zu triangles, accuracy mean %.2f mm (%.3f voxel), rms %.2f mm; completeness %.1f %% within "
        "%.0f cm (of %zu seen truth samples); fusion %.2f ms/frame; blocks %.1f MB + meshes %.1f MB for %.1f m^2 = "
        "%.2f "
        "MB/m^2\n",
        voxel * 100, t.size(), 1000 * e.accuracy_mean_m, e.accuracy_mean_m / voxel, 1000 * e.accuracy_rms_m,
        e.completeness_pct, voxel * 100, e.truth_seen, st.integrate_ms_total / double(st.frames_fused),
        double(st.block_bytes) / (1 << 20), double(st.mesh_bytes) / (1 << 20), area,
        double(st.block_bytes + st.mesh_bytes) / (1 << 20) / area);
  }

  // HD720 depth at 5 cm: the fusion work behind one grab of the live pipeline.
  pv::internal::synth::SynthOptions ho = so;
  ho.resolution = pv::RESOLUTION::HD720;
  pv::internal::synth::SyntheticSequence hd;
  if (hd.init(ho) != pv::ERROR_CODE::SUCCESS) return 1;
  TsdfParameters p;
  p.voxel_m = 0.05f;
  p.max_depth_m = 5.f;
  TsdfVolume volume(p);
  double total = 0;
  const int hd_frames = std::min(n, 60);
  for (int i = 0; i < hd_frames; ++i) {
    DepthFrame f = render(hd, i * n / hd_frames);
    const auto t0 = Clock::now();
    volume.integrate(f);
    total += ms(t0);
  }
  std::printf("HD720 depth (%dx%d) fused at 5 cm: %.2f ms/frame (%.0f frames/s of fusion capacity)\n",
              hd.rectified().size.width, hd.rectified().size.height, total / hd_frames, 1000.0 * hd_frames / total);
  return 0;
}
