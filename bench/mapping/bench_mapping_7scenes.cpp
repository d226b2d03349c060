// Fuses the 7-Scenes excerpt (real Kinect depth, true poses) through the mapping module's TSDF
// and through OpenCV's hash TSDF (cv::kinfu::Volume) at the same voxel size, same frames, same
// run; prints integration times, memory and how far apart the two surfaces are.
//   bench_mapping_7scenes [FRAMES=400] [VOXEL_M=0.02] [DATA_DIR]
#include <Eigen/Geometry>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "machine.h"
#include "mapping/internal/marching_cubes.h"
#include "mapping/internal/tsdf_volume.h"

#ifdef HAVE_OPENCV_KINFU
#include <opencv2/flann.hpp>
#include <opencv2/rgbd/volume.hpp>
#endif

using pv::internal::ChunkMesh;
using pv::internal::DepthFrame;
using pv::internal::TsdfParameters;
using pv::internal::TsdfVolume;
using Clock = std::chrono::steady_clock;

namespace {

struct Frame {
  cv::Mat depth_m;   // float metres, NaN invalid
  cv::Mat depth_mm;  // float millimetres, 0 invalid (OpenCV's input)
  Eigen::Matrix4f T_world_camera;
};

bool loadFrame(const std::string& dir, int i, Frame& f) {
  char name[64];
  std::snprintf(name, sizeof name, "/frames/frame-%06d", i);
  const cv::Mat raw = cv::imread(dir + name + ".depth.png", cv::IMREAD_UNCHANGED);
  std::ifstream pose(dir + name + ".pose.txt");
  if (raw.empty() || raw.type() != CV_16U || !pose) return false;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) pose >> f.T_world_camera(r, c);
  if (!pose) return false;
  cv::Mat invalid = (raw == 0) | (raw == 65535);
  raw.convertTo(f.depth_mm, CV_32F);
  f.depth_mm.setTo(0.f, invalid);
  f.depth_m = f.depth_mm / 1000.f;
  f.depth_m.setTo(std::numeric_limits<float>::quiet_NaN(), invalid);
  return true;
}

double ms(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double, std::milli>(b - a).count(); }

}  // namespace

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::atoi(argv[1]) : 400;
  const float voxel_m = argc > 2 ? float(std::atof(argv[2])) : 0.02f;
  const std::string dir = argc > 3 ? argv[3] : std::string(MAPURA_SHARED_DATA) + "/7scenes_rgbd_excerpt";
  const double fx = 585, fy = 585, cx = 320, cy = 240;
  const float range_m = 4.f, trunc_vox = 4.f;

  std::vector<Frame> data;
  for (int i = 0; i < frames; ++i) {
    Frame f;
    if (!loadFrame(dir, i, f)) break;
    data.push_back(std::move(f));
  }
  if (data.empty()) {
    std::cerr << "bench_mapping_7scenes: no frames under " << dir << "\n";
    return 1;
  }
  mapura::bench::printMachine();
  {
    std::ifstream load("/proc/loadavg");
    std::string one;
    load >> one;
    std::cout << "load average (1 min) at start: " << one << " (other processes share these cores)\n";
  }
  std::cout << "7-Scenes excerpt: " << data.size() << " frames 640x480, voxel " << voxel_m * 100 << " cm, truncation "
            << trunc_vox << " voxels, range " << range_m << " m\n";

  TsdfParameters p;
  p.voxel_m = voxel_m;
  p.truncation_vox = trunc_vox;
  p.max_depth_m = range_m;
  TsdfVolume ours(p);
#ifdef HAVE_OPENCV_KINFU
  // Hash TSDF of 16^3-voxel units (OpenCV's default), same voxel, truncation, range and weight cap.
  cv::Ptr<cv::kinfu::Volume> theirs =
      cv::kinfu::makeVolume(cv::kinfu::VolumeType::HASHTSDF, voxel_m, cv::Matx44f::eye(), 0.25f, trunc_vox * voxel_m,
                            100, range_m, cv::Vec3i(16, 16, 16));
  const cv::kinfu::Intr intr{float(fx), float(fy), float(cx), float(cy)};
#endif
  // Frame by frame, one volume after the other, so that load from other processes hits both alike.
  double ours_ms = 0, theirs_ms = 0, band_blocks = 0;
  for (size_t i = 0; i < data.size(); ++i) {
    const Frame& f = data[i];
    DepthFrame d;
    d.depth_m = f.depth_m;
    d.T_world_camera = f.T_world_camera;
    d.fx = fx;
    d.fy = fy;
    d.cx = cx;
    d.cy = cy;
    const auto t0 = Clock::now();
    band_blocks += double(ours.integrate(d).blocks_updated);
    ours_ms += ms(t0, Clock::now());
#ifdef HAVE_OPENCV_KINFU
    cv::Matx44f pose;
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c) pose(r, c) = f.T_world_camera(r, c);
    const auto t1 = Clock::now();
    theirs->integrate(f.depth_mm, 1000.f, pose, intr, int(i));
    theirs_ms += ms(t1, Clock::now());
#endif
  }
  const auto m0 = Clock::now();
  std::vector<Eigen::Vector3f> vertices;
  double area_m2 = 0;
  size_t triangles = 0;
  for (const auto& chunk : ours.chunks()) {
    ChunkMesh m;
    pv::internal::meshChunk(ours, chunk, m);
    for (const auto& t : m.triangles)
      area_m2 += 0.5 * double((m.vertices[t[1]] - m.vertices[t[0]]).cross(m.vertices[t[2]] - m.vertices[t[0]]).norm());
    triangles += m.triangles.size();
    vertices.insert(vertices.end(), m.vertices.begin(), m.vertices.end());
  }
  const double mesh_ms = ms(m0, Clock::now());
  const double block_mb = double(ours.blockCount() * TsdfVolume::blockBytes()) / (1 << 20);

  std::cout << "\n| volume | integration ms/frame | frames/s | blocks or units | memory MB | surface |\n"
            << "|---|---|---|---|---|---|\n";
  std::printf(
      "| ours (8^3 blocks, chunks) | %.2f | %.1f | %zu blocks | %.1f | %zu triangles, %.2f m^2, %.2f MB/m^2 |\n",
      ours_ms / double(data.size()), 1000.0 * double(data.size()) / ours_ms, ours.blockCount(), block_mb, triangles,
      area_m2, block_mb / std::max(area_m2, 1e-9));

#ifdef HAVE_OPENCV_KINFU
  cv::Mat points, normals;
  theirs->fetchPointsNormals(points, normals);
  std::printf("| OpenCV cv::kinfu HASHTSDF (16^3 units) | %.2f | %.1f | - | - | %d points |\n",
              theirs_ms / double(data.size()), 1000.0 * double(data.size()) / theirs_ms, points.rows);
  std::printf("\nintegration speed-up over OpenCV: %.2fx\n", theirs_ms / ours_ms);

  // Agreement of the two surfaces: distance from each of our vertices to OpenCV's nearest point.
  cv::Mat pts = points.reshape(1, points.rows).colRange(0, 3).clone();
  if (pts.rows > 0 && !vertices.empty()) {
    cv::flann::Index index(pts, cv::flann::KDTreeIndexParams(4));
    std::vector<double> d;
    for (size_t i = 0; i < vertices.size(); i += 7) {
      std::vector<float> q{vertices[i].x(), vertices[i].y(), vertices[i].z()}, dist(1);
      std::vector<int> idx(1);
      index.knnSearch(q, idx, dist, 1, cv::flann::SearchParams(32));
      d.push_back(std::sqrt(double(dist[0])));
    }
    std::sort(d.begin(), d.end());
    double mean = 0;
    for (double x : d) mean += x / double(d.size());
    std::printf("our vertices to OpenCV's surface points: mean %.4f m, median %.4f m, 90%% %.4f m\n", mean,
                d[d.size() / 2], d[d.size() * 9 / 10]);
  }
#else
  std::cout << "(OpenCV rgbd module not found: no side-by-side figures)\n";
#endif
  std::printf("blocks fused per frame: %.0f\n", band_blocks / double(data.size()));
  std::printf("our meshing of the whole volume: %.1f ms\n", mesh_ms);
  return 0;
}
