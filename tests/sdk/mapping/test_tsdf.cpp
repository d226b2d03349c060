// The TSDF and its marching cubes against exact scenes rendered in the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <set>

#include "mapping/internal/marching_cubes.h"
#include "mapping/internal/tsdf_volume.h"
#include "scene_frames.h"

using namespace pv::internal;
using mapura::test::lookAt;
using mapura::test::PinholeCamera;
using mapura::test::renderDepthFrame;
using mapura::test::Scene;

namespace {

struct MeshAll {
  std::vector<Eigen::Vector3f> vertices, normals;
  std::vector<std::array<uint8_t, 3>> rgb;
  size_t triangles = 0;
  std::vector<ChunkMesh> chunks;
};

/// A wall 2 m in front of the origin, facing it.
Scene wallAhead() {
  Scene scene;
  scene.addPlane({0.f, 0.f, 2.f}, {0.f, 0.f, -1.f});
  return scene;
}

MeshAll meshAll(const TsdfVolume& volume) {
  MeshAll all;
  for (const ChunkInfo& info : volume.chunks()) {
    ChunkMesh m;
    meshChunk(volume, info, m);
    for (const auto& t : m.triangles)
      for (uint32_t id : t) EXPECT_LT(id, m.vertices.size());
    all.vertices.insert(all.vertices.end(), m.vertices.begin(), m.vertices.end());
    all.normals.insert(all.normals.end(), m.normals.begin(), m.normals.end());
    all.rgb.insert(all.rgb.end(), m.rgb.begin(), m.rgb.end());
    all.triangles += m.triangles.size();
    all.chunks.push_back(std::move(m));
  }
  return all;
}

struct ErrorStats {
  double mean = 0, max = 0, p95 = 0;
};

ErrorStats surfaceError(const Scene& scene, const std::vector<Eigen::Vector3f>& vertices) {
  ErrorStats e;
  std::vector<double> d;
  for (const auto& v : vertices) d.push_back(scene.distance(v));
  if (d.empty()) return e;
  for (double x : d) e.mean += x / double(d.size());
  std::sort(d.begin(), d.end());
  e.max = d.back();
  e.p95 = d[d.size() * 95 / 100];
  return e;
}

}  // namespace

TEST(MarchingCubesTable, EveryCaseClosesAroundItsCrossedEdges) {
  const MarchingCubesTable& t = marchingCubesTable();
  for (int config = 0; config < 256; ++config) {
    std::set<int> crossed, used;
    for (int e = 0; e < 12; ++e)
      if (((config >> t.edge_corners[size_t(e)][0]) & 1) != ((config >> t.edge_corners[size_t(e)][1]) & 1))
        crossed.insert(e);
    std::map<std::pair<int, int>, int> directed;
    for (const auto& tri : t.triangles[size_t(config)]) {
      for (int n = 0; n < 3; ++n) {
        used.insert(tri[size_t(n)]);
        ++directed[{tri[size_t(n)], tri[size_t((n + 1) % 3)]}];
      }
    }
    EXPECT_EQ(crossed, used) << "case " << config;
    // Inside the cube, every edge of a triangle fan is shared with the opposite direction by
    // its neighbour, or lies on the cube's faces (the loop); no directed edge twice.
    for (const auto& [edge, count] : directed) EXPECT_EQ(count, 1) << "case " << config;
  }
}

TEST(TsdfVolume, PlaneIsRecoveredWithinAFractionOfAVoxelAndFacesTheCamera) {
  Scene scene;
  scene.addPlane({0.f, 0.f, 2.f}, {0.f, 0.f, -1.f}, {30, 140, 220});
  const PinholeCamera cam;
  TsdfParameters p;
  p.voxel_m = 0.02f;
  TsdfVolume volume(p);
  for (int i = 0; i < 5; ++i) {
    const Eigen::Vector3f eye(0.05f * float(i - 2), 0.02f * float(i % 2), 0.f);
    volume.integrate(renderDepthFrame(scene, cam, lookAt(eye, eye + Eigen::Vector3f(0.f, 0.f, 1.f))));
  }
  const MeshAll m = meshAll(volume);
  ASSERT_GT(m.triangles, 1000u);
  const ErrorStats e = surfaceError(scene, m.vertices);
  EXPECT_LT(e.mean, 0.1 * p.voxel_m);
  EXPECT_LT(e.max, 0.5 * p.voxel_m);
  size_t facing = 0;
  for (const auto& n : m.normals) facing += n.z() < -0.9f;
  EXPECT_GT(double(facing) / double(m.normals.size()), 0.98);
  // Fused colour: vertex colours are handed out red, green, blue.
  size_t right_colour = 0;
  for (const auto& c : m.rgb)
    right_colour += std::abs(c[0] - 220) < 4 && std::abs(c[1] - 140) < 4 && std::abs(c[2] - 30) < 4;
  EXPECT_GT(double(right_colour) / double(m.rgb.size()), 0.95);
  // Covered area: the view's footprint at 2 m is about 2.6 m x 1.9 m.
  double area = 0;
  for (const ChunkMesh& c : m.chunks)
    for (const auto& t : c.triangles)
      area += 0.5 * double((c.vertices[t[1]] - c.vertices[t[0]]).cross(c.vertices[t[2]] - c.vertices[t[0]]).norm());
  EXPECT_NEAR(area, 2.56 * 1.92, 0.6);
}

TEST(TsdfVolume, SphereAndBoxSeenFromAroundMatchTheirTrueSurface) {
  for (int shape = 0; shape < 2; ++shape) {
    Scene scene;
    if (shape == 0)
      scene.addSphere({0.f, 0.f, 0.f}, 0.5f);
    else
      scene.addBox({-0.4f, -0.3f, -0.35f}, {0.4f, 0.3f, 0.35f});
    const PinholeCamera cam;
    TsdfParameters p;
    p.voxel_m = 0.01f;
    TsdfVolume volume(p);
    for (int i = 0; i < 12; ++i) {
      const float a = float(i) * 0.5236f;
      const Eigen::Vector3f eye(1.6f * std::cos(a), -0.5f + 0.1f * float(i % 3), 1.6f * std::sin(a));
      volume.integrate(renderDepthFrame(scene, cam, lookAt(eye, Eigen::Vector3f::Zero())));
    }
    const MeshAll m = meshAll(volume);
    ASSERT_GT(m.triangles, 5000u) << "shape " << shape;
    const ErrorStats e = surfaceError(scene, m.vertices);
    EXPECT_LT(e.mean, 0.2 * p.voxel_m) << "shape " << shape;
    EXPECT_LT(e.p95, 0.4 * p.voxel_m) << "shape " << shape;
    // Box edges and corners are rounded by the volume's sampling; the sphere is smooth.
    EXPECT_LT(e.max, (shape == 0 ? 0.6 : 2.5) * p.voxel_m) << "shape " << shape;
    // Normals point out of the object.
    size_t outward = 0;
    for (size_t i = 0; i < m.vertices.size(); ++i) outward += m.normals[i].dot(m.vertices[i]) > 0.f;
    EXPECT_GT(double(outward) / double(m.vertices.size()), 0.99) << "shape " << shape;
    // Within each chunk, no edge is shared by more than two triangles.
    for (const ChunkMesh& c : m.chunks) {
      std::map<std::pair<uint32_t, uint32_t>, int> uses;
      for (const auto& t : c.triangles)
        for (int n = 0; n < 3; ++n) {
          const uint32_t a = t[size_t(n)], b = t[size_t((n + 1) % 3)];
          ++uses[{std::min(a, b), std::max(a, b)}];
        }
      for (const auto& [edge, count] : uses) ASSERT_LE(count, 2);
    }
  }
}

TEST(TsdfVolume, DepthBeyondTheRangeIsNotFused) {
  Scene scene;
  // Left half of the view: a wall at 1.5 m; right half: a wall at 4 m.
  scene.addPlane({0.f, 0.f, 1.5f}, {0.f, 0.f, -1.f});
  scene.addPlane({0.f, 0.f, 4.f}, {0.f, 0.f, -1.f});
  scene.primitives[0].kind = mapura::test::Primitive::BOX;
  scene.primitives[0].a = {-5.f, -5.f, 1.5f};
  scene.primitives[0].b = {0.f, 5.f, 1.6f};
  const PinholeCamera cam;
  TsdfParameters p;
  p.voxel_m = 0.04f;
  p.max_depth_m = 3.f;
  TsdfVolume volume(p);
  volume.integrate(renderDepthFrame(scene, cam, Eigen::Matrix4f::Identity()));
  const MeshAll m = meshAll(volume);
  ASSERT_GT(m.triangles, 100u);
  const float trunc_m = p.truncation_vox * p.voxel_m;
  for (size_t b = 0; b < volume.blockCount(); ++b)
    EXPECT_LE(float(volume.block(int(b)).key.z * kBlockSide) * p.voxel_m, p.max_depth_m + trunc_m);
  for (const auto& v : m.vertices) EXPECT_LT(v.z(), 2.f);

  p.max_depth_m = 5.f;
  TsdfVolume wide(p);
  wide.integrate(renderDepthFrame(scene, cam, Eigen::Matrix4f::Identity()));
  const MeshAll w = meshAll(wide);
  EXPECT_TRUE(std::any_of(w.vertices.begin(), w.vertices.end(), [](const Eigen::Vector3f& v) { return v.z() > 3.9f; }));
}

TEST(TsdfVolume, BlockLimitStopsAllocationButKeepsFusingExistingBlocks) {
  const Scene scene = wallAhead();
  const PinholeCamera cam;
  TsdfParameters p;
  p.voxel_m = 0.02f;
  TsdfVolume volume(p);
  volume.setMaxBlocks(20);
  const IntegrationStats s = volume.integrate(renderDepthFrame(scene, cam, Eigen::Matrix4f::Identity()));
  EXPECT_EQ(volume.blockCount(), 20u);
  EXPECT_GT(s.blocks_refused, 0);
  EXPECT_EQ(s.blocks_updated, 20);
  const IntegrationStats again = volume.integrate(renderDepthFrame(scene, cam, Eigen::Matrix4f::Identity()));
  EXPECT_EQ(volume.blockCount(), 20u);
  EXPECT_EQ(again.blocks_updated, 20);
  EXPECT_EQ(again.blocks_allocated, 0);
  const MeshAll m = meshAll(volume);
  EXPECT_LT(surfaceError(scene, m.vertices).max, 0.5 * p.voxel_m);
}

TEST(TsdfVolume, ChunksAreFixedCubesAndChangesMarkOnlyTheirChunks) {
  const Scene scene = wallAhead();
  PinholeCamera cam;
  cam.fx = cam.fy = 600;  // narrow view: about 0.5 m wide at 2 m
  TsdfParameters p;
  p.voxel_m = 0.05f;
  TsdfVolume volume(p);
  const Eigen::Matrix4f left = lookAt({-3.f, 0.f, 0.f}, {-3.f, 0.f, 1.f});
  const Eigen::Matrix4f right = lookAt({3.f, 0.f, 0.f}, {3.f, 0.f, 1.f});
  volume.integrate(renderDepthFrame(scene, cam, left));
  const size_t after_left = volume.chunks().size();
  for (auto& c : volume.chunks()) c.dirty = false;
  volume.integrate(renderDepthFrame(scene, cam, right));
  ASSERT_GT(volume.chunks().size(), after_left);
  for (size_t i = 0; i < volume.chunks().size(); ++i) {
    const ChunkInfo& c = volume.chunks()[i];
    EXPECT_EQ(c.dirty, i >= after_left) << i;
    for (int b : c.blocks) {
      const auto& key = volume.block(b).key;
      EXPECT_EQ(floorDiv(key.x, volume.chunkBlocks()), c.key.x);
      EXPECT_EQ(floorDiv(key.z, volume.chunkBlocks()), c.key.z);
    }
  }
}

TEST(TsdfVolume, MixedPixelsOnDepthEdgesAreNotFused) {
  Scene scene;
  scene.addPlane({0.f, 0.f, 3.f}, {0.f, 0.f, -1.f});
  scene.addBox({-5.f, -5.f, 1.5f}, {0.f, 5.f, 1.6f});  // left half of the view at 1.5 m
  const PinholeCamera cam;
  TsdfParameters p;
  p.voxel_m = 0.02f;
  DepthFrame f = renderDepthFrame(scene, cam, Eigen::Matrix4f::Identity());
  // A stereo matcher's edge fattening: pixels across the edge take depths between both sides.
  for (int v = 0; v < f.depth_m.rows; ++v)
    for (int u = 0; u < f.depth_m.cols - 1; ++u)
      if (f.depth_m.at<float>(v, u) < 2.f && f.depth_m.at<float>(v, u + 1) > 2.f) {
        f.depth_m.at<float>(v, u + 1) = 2.0f;
        f.depth_m.at<float>(v, u + 2) = 2.5f;
        break;
      }
  for (const float jump : {0.04f, 10.f}) {  // the default, and no edge test at all
    p.edge_jump = jump;
    TsdfVolume volume(p);
    for (int i = 0; i < 3; ++i) volume.integrate(f);
    const MeshAll m = meshAll(volume);
    size_t between = 0;
    for (const auto& v : m.vertices) between += scene.distance(v) > 2.f * p.voxel_m;
    if (jump < 1.f)
      EXPECT_EQ(between, 0u);
    else
      EXPECT_GT(between, 10u);  // the test can tell
  }
}

TEST(TsdfVolume, DoubtfulDepthIsNotFusedAndLessSureDepthWeighsLess) {
  const Scene wall = wallAhead();
  const PinholeCamera cam;
  TsdfParameters p;
  p.voxel_m = 0.02f;
  p.max_confidence = 85.f;
  // Left half of the view too doubtful to fuse, right half sure; without a confidence all of it.
  DepthFrame f = renderDepthFrame(wall, cam, Eigen::Matrix4f::Identity());
  const DepthFrame sure_everywhere = f;
  f.confidence = cv::Mat(f.depth_m.size(), CV_32F, cv::Scalar(10.f));
  f.confidence.colRange(0, f.depth_m.cols / 2).setTo(95.f);
  const DepthFrame* const frames[] = {&f, &sure_everywhere};
  for (const DepthFrame* frame : frames) {
    TsdfVolume volume(p);
    volume.integrate(*frame);
    const MeshAll m = meshAll(volume);
    ASSERT_GT(m.triangles, 100u);
    size_t left = 0;
    for (const auto& v : m.vertices) left += v.x() < -0.1f;
    if (frame == &f)
      EXPECT_EQ(left, 0u);
    else
      EXPECT_GT(left, m.vertices.size() / 3);
  }

  // A sure frame at 2.01 m, then a doubtful one (confidence 60: a sixth of the weight) 6 cm
  // behind: weighted, the surface stays near the sure frame's; unweighted, it moves halfway.
  Scene ahead, behind;
  ahead.addPlane({0.f, 0.f, 2.01f}, {0.f, 0.f, -1.f});
  behind.addPlane({0.f, 0.f, 2.07f}, {0.f, 0.f, -1.f});
  DepthFrame near_frame = renderDepthFrame(ahead, cam, Eigen::Matrix4f::Identity());
  near_frame.confidence = cv::Mat(near_frame.depth_m.size(), CV_32F, cv::Scalar(1.f));
  DepthFrame far_frame = renderDepthFrame(behind, cam, Eigen::Matrix4f::Identity());
  far_frame.confidence = cv::Mat(far_frame.depth_m.size(), CV_32F, cv::Scalar(60.f));
  for (const bool weigh : {true, false}) {
    p.weigh_by_confidence = weigh;
    TsdfVolume volume(p);
    volume.integrate(near_frame);
    volume.integrate(far_frame);
    const MeshAll m = meshAll(volume);
    ASSERT_GT(m.triangles, 100u);
    double z = 0;
    for (const auto& v : m.vertices) z += double(v.z()) / double(m.vertices.size());
    if (weigh)
      EXPECT_NEAR(z, 2.01, 0.015);
    else
      EXPECT_NEAR(z, 2.04, 0.01);
  }
}

TEST(TsdfVolume, EveryVoxelInTheTruncationBandOfAValidPixelIsFusedAndFewBlocksAreWasted) {
  // A wide view at the range's far end, where sampled rays are far apart: thin poles, a grazing
  // floor, a sphere and a wall near the range limit.
  Scene scene;
  scene.addPlane({0.f, 1.1f, 0.f}, {0.f, -1.f, 0.f});
  scene.addPlane({0.f, 0.f, 3.95f}, {0.f, 0.f, -1.f});
  scene.addSphere({-0.6f, 0.2f, 2.2f}, 0.3f);
  for (int i = 0; i < 9; ++i) {
    const float x = -1.6f + 0.4f * float(i), z = 1.2f + 0.3f * float(i), half = 0.004f + 0.002f * float(i % 3);
    scene.addBox({x - half, -2.f, z - half}, {x + half, 1.1f, z + half});
  }
  PinholeCamera cam;
  cam.width = 640;
  cam.height = 480;
  cam.fx = cam.fy = 585;
  cam.cx = 319.5;
  cam.cy = 239.5;
  TsdfParameters p;
  p.voxel_m = 0.02f;
  p.max_depth_m = 4.f;
  p.edge_jump = 100.f;  // every valid pixel counts
  for (const Eigen::Matrix4f& T : {Eigen::Matrix4f(lookAt({0.f, 0.f, 0.f}, {0.3f, 0.4f, 3.f})),
                                   Eigen::Matrix4f(lookAt({0.2f, -0.3f, 0.1f}, {-0.4f, 0.6f, 3.f}))}) {
    TsdfVolume volume(p);
    const DepthFrame f = renderDepthFrame(scene, cam, T);
    volume.integrate(f);
    // Every voxel centre that projects onto a valid pixel and lies well inside that pixel's band.
    const Eigen::Matrix3f R_cw = T.topLeftCorner<3, 3>().transpose();
    const Eigen::Vector3f t_cw = -R_cw * T.topRightCorner<3, 1>();
    const float trunc_m = p.truncation_vox * p.voxel_m;
    std::set<std::array<int, 3>> needed;
    size_t in_band = 0, missed = 0;
    const Eigen::Vector3i lo = (Eigen::Vector3f(-2.8f, -2.f, 0.f) / p.voxel_m).cast<int>();
    const Eigen::Vector3i hi = (Eigen::Vector3f(2.8f, 1.3f, 4.2f) / p.voxel_m).cast<int>();
    for (int z = lo.z(); z <= hi.z(); ++z)
      for (int y = lo.y(); y <= hi.y(); ++y)
        for (int x = lo.x(); x <= hi.x(); ++x) {
          const Eigen::Vector3f c = R_cw * (Eigen::Vector3f(float(x), float(y), float(z)) * p.voxel_m) + t_cw;
          if (c.z() < 0.5f) continue;
          const float u = float(cam.fx) * c.x() / c.z() + float(cam.cx) + 0.5f;
          const float v = float(cam.fy) * c.y() / c.z() + float(cam.cy) + 0.5f;
          // (The outermost columns lack a neighbour for the edge test and are never fused.)
          if (u < 1.f || v < 0.f || u >= float(cam.width - 1) || v >= float(cam.height)) continue;
          const float d = f.depth_m.at<float>(int(v), int(u));
          if (!(d > 0.f && d <= p.max_depth_m)) continue;
          if (std::abs(d - c.z()) * c.norm() / c.z() > 0.85f * trunc_m) continue;
          ++in_band;
          const std::array<int, 3> key{floorDiv(x, kBlockSide), floorDiv(y, kBlockSide), floorDiv(z, kBlockSide)};
          needed.insert(key);
          const VoxelBlock* b = volume.find({key[0], key[1], key[2]});
          const int i = x - key[0] * kBlockSide, j = y - key[1] * kBlockSide, k = z - key[2] * kBlockSide;
          missed += !b || b->weight[size_t(i + kBlockSide * j + kBlockSide * kBlockSide * k)] <= 0.f;
        }
    ASSERT_GT(in_band, 100000u);
    EXPECT_EQ(missed, 0u) << "of " << in_band << " voxels in the band";
    // Blocks allocated beyond those that hold such a voxel: few (the band's rim), and each with
    // a voxel the frame updated.
    EXPECT_GE(volume.blockCount(), needed.size());
    EXPECT_LT(double(volume.blockCount()), 1.15 * double(needed.size()));
    size_t unobserved = 0;
    for (size_t b = 0; b < volume.blockCount(); ++b) {
      const auto& weights = volume.block(int(b)).weight;
      unobserved += std::none_of(weights.begin(), weights.end(), [](float w) { return w > 0.f; });
    }
    EXPECT_EQ(unobserved, 0u);
  }
}

TEST(TsdfVolume, FramesWithoutAUsablePoseOrCameraFuseNothing) {
  const Scene scene = wallAhead();
  const PinholeCamera cam;
  TsdfParameters p;
  p.voxel_m = 0.02f;
  const DepthFrame good = renderDepthFrame(scene, cam, Eigen::Matrix4f::Identity());
  std::vector<DepthFrame> bad(4, good);
  bad[0].T_world_camera(0, 3) = std::numeric_limits<float>::quiet_NaN();
  bad[1].T_world_camera(1, 1) = std::numeric_limits<float>::infinity();
  bad[2].fx = std::numeric_limits<double>::quiet_NaN();
  bad[3].cy = std::numeric_limits<double>::infinity();
  TsdfVolume volume(p);
  for (const DepthFrame& f : bad) {
    const IntegrationStats s = volume.integrate(f);
    EXPECT_EQ(s.blocks_updated, 0);
  }
  EXPECT_EQ(volume.blockCount(), 0u);
  // A pose far from the origin still fuses, within what block keys hold.
  DepthFrame far = good;
  far.T_world_camera(0, 3) = 1.0e4f;
  EXPECT_GT(volume.integrate(far).blocks_updated, 0);
  EXPECT_GT(volume.integrate(good).blocks_updated, 0);
}
