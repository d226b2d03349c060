// The mapping module without a camera: chunk hand-over contract, budget, queue overflow, reset
// with a request in flight, coordinate conversion, keyframes.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "mapping/internal/mapping_module.h"
#include "mesh/internal/texture_source.h"
#include "pv/camera.h"
#include "scene_frames.h"

using namespace pv::internal;
using mapura::test::lookAt;
using mapura::test::PinholeCamera;
using mapura::test::Scene;

namespace {

/// A room 6 m x 2.5 m x 4 m seen from its middle.
Scene room() {
  Scene s;
  s.addBox({-3.f, -1.5f, -2.f}, {3.f, 1.f, 2.f});
  return s;
}

DepthFrame frameAt(const Scene& scene, const Eigen::Matrix4f& T, uint64_t t_ns) {
  return mapura::test::renderDepthFrame(scene, PinholeCamera(), T, t_ns);
}

/// Looking along yaw `a` from the room's middle.
Eigen::Matrix4f view(float a) { return lookAt({0.f, 0.f, 0.f}, {std::sin(a), 0.f, std::cos(a)}); }

void fuse(MappingModule& m, const Scene& s, float a, uint64_t t) {
  while (!m.submit(frameAt(s, view(a), t))) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void requestAndWait(MappingModule& m) {
  m.requestMap();
  m.waitIdle();
  ASSERT_TRUE(m.mapReady());
}

MappingConfig config() {
  MappingConfig c;
  c.voxel_m = 0.05f;
  c.range_m = 6.f;
  c.use_chunk_only = true;
  c.queue_capacity = 4;
  return c;
}

template <class T>
bool sameArray(const std::vector<T>& a, const std::vector<T>& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

bool sameChunk(const pv::Chunk& a, const pv::Chunk& b) {
  return sameArray(a.vertices, b.vertices) && sameArray(a.triangles, b.triangles) && sameArray(a.colors, b.colors);
}

}  // namespace

TEST(MappingModule, ChunkContractHoldsPerHolderAcrossRetrievals) {
  const Scene s = room();
  MappingModule m(config());
  pv::Mesh first, second;
  EXPECT_EQ(m.retrieve(first), pv::ERROR_CODE::MAP_NOT_READY);

  fuse(m, s, 0.f, 1000);
  requestAndWait(m);
  ASSERT_EQ(m.retrieve(first), pv::ERROR_CODE::SUCCESS);
  const size_t n1 = first.chunks.size();
  ASSERT_GT(n1, 1u);
  for (const auto& c : first.chunks) EXPECT_EQ(c.has_been_updated, c.timestamp_ns != 0);
  EXPECT_TRUE(first.vertices.empty());  // use_chunk_only
  const pv::Mesh snapshot = first;

  // Nothing changed: a second retrieval flags nothing and changes nothing.
  requestAndWait(m);
  ASSERT_EQ(m.retrieve(first), pv::ERROR_CODE::SUCCESS);
  ASSERT_EQ(first.chunks.size(), n1);
  for (size_t i = 0; i < n1; ++i) {
    EXPECT_FALSE(first.chunks[i].has_been_updated);
    EXPECT_TRUE(sameChunk(first.chunks[i], snapshot.chunks[i]));
  }

  // Turn around: new chunks are appended after the old ones, whose indices stay.
  fuse(m, s, 3.1416f, 2000);
  requestAndWait(m);
  ASSERT_EQ(m.retrieve(first), pv::ERROR_CODE::SUCCESS);
  const size_t n2 = first.chunks.size();
  ASSERT_GT(n2, n1);
  size_t changed_old = 0;
  for (size_t i = 0; i < n2; ++i) {
    const bool differs = i >= n1 || !sameChunk(first.chunks[i], snapshot.chunks[i]);
    if (i < n1) changed_old += differs;
    // Flag set exactly where the content changed (or a new, non-empty chunk).
    if (i >= n1 && first.chunks[i].vertices.empty()) continue;
    EXPECT_EQ(first.chunks[i].has_been_updated, differs) << "chunk " << i;
  }
  EXPECT_LT(changed_old, n1);  // the far side of the room was not touched

  // The second holder never retrieved: everything it gets is flagged.
  ASSERT_EQ(m.retrieve(second), pv::ERROR_CODE::SUCCESS);
  ASSERT_EQ(second.chunks.size(), n2);
  for (size_t i = 0; i < n2; ++i) {
    EXPECT_EQ(second.chunks[i].has_been_updated, second.chunks[i].timestamp_ns != 0);
    EXPECT_TRUE(sameChunk(first.chunks[i], second.chunks[i]));
  }

  // A change seen by one holder's retrieval stays pending for the other.
  fuse(m, s, 1.5708f, 3000);
  requestAndWait(m);
  ASSERT_EQ(m.retrieve(first), pv::ERROR_CODE::SUCCESS);
  const pv::Mesh after_turn = first;
  fuse(m, s, -1.5708f, 4000);
  requestAndWait(m);
  ASSERT_EQ(m.retrieve(first), pv::ERROR_CODE::SUCCESS);
  const pv::Mesh second_before = second;
  ASSERT_EQ(m.retrieve(second), pv::ERROR_CODE::SUCCESS);
  for (size_t i = 0; i < second.chunks.size(); ++i) {
    const bool new_or_changed =
        i >= second_before.chunks.size() || !sameChunk(second.chunks[i], second_before.chunks[i]);
    if (i >= second_before.chunks.size() && second.chunks[i].vertices.empty()) continue;
    EXPECT_EQ(second.chunks[i].has_been_updated, new_or_changed) << "chunk " << i;
    const bool first_saw_it_last = i < after_turn.chunks.size() && first.chunks[i].has_been_updated;
    if (first_saw_it_last) {
      EXPECT_TRUE(second.chunks[i].has_been_updated) << "chunk " << i;
    }
  }

  // The whole map: every chunk flagged, whole-map arrays filled.
  pv::Mesh whole;
  ASSERT_EQ(m.extractWhole(whole), pv::ERROR_CODE::SUCCESS);
  size_t tri = 0;
  for (const auto& c : whole.chunks) {
    EXPECT_TRUE(c.has_been_updated);
    tri += c.triangles.size();
  }
  EXPECT_EQ(whole.triangles.size(), tri);
  for (const auto& t : whole.triangles) ASSERT_LT(std::max({t.x, t.y, t.z}), whole.vertices.size());
}

TEST(MappingModule, PointCloudCarriesColouredSurfacePointsWithTheSameContract) {
  Scene s;
  s.addPlane({0.f, 0.f, 2.f}, {0.f, 0.f, -1.f}, {10, 20, 250});  // red
  MappingModule m(config());
  fuse(m, s, 0.f, 5);
  requestAndWait(m);
  pv::FusedPointCloud cloud;
  ASSERT_EQ(m.retrieve(cloud), pv::ERROR_CODE::SUCCESS);
  size_t points = 0;
  for (const auto& c : cloud.chunks) {
    for (const auto& p : c.vertices) {
      EXPECT_NEAR(p.z, 2.f, 0.025f);
      uint32_t bits;
      std::memcpy(&bits, &p.w, 4);
      EXPECT_NEAR(int((bits >> 16) & 255), 250, 3);
      EXPECT_NEAR(int(bits & 255), 10, 3);
      ++points;
    }
  }
  EXPECT_GT(points, 500u);
  ASSERT_EQ(m.retrieve(cloud), pv::ERROR_CODE::SUCCESS);
  for (const auto& c : cloud.chunks) EXPECT_FALSE(c.has_been_updated);
}

TEST(MappingModule, VerticesAndKeyframesAreInTheApplicationsSystemAndUnit) {
  Scene s;
  s.addPlane({0.f, 0.f, 2.f}, {0.f, 0.f, -1.f});
  MappingConfig c = config();
  c.coordinate_system = pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
  c.coordinate_units = pv::UNIT::MILLIMETER;
  c.save_texture = true;
  MappingModule m(c);
  const DepthFrame f = frameAt(s, lookAt({0.5f, 0.f, 0.f}, {0.5f, 0.f, 1.f}), 7);
  m.offerKeyframe(f.bgr, f);
  m.offerKeyframe(f.bgr, f);  // same pose: not kept twice
  ASSERT_TRUE(m.submit(f));
  pv::Mesh mesh;
  ASSERT_EQ(m.extractWhole(mesh), pv::ERROR_CODE::SUCCESS);
  ASSERT_FALSE(mesh.vertices.empty());
  for (const auto& v : mesh.vertices) EXPECT_NEAR(v.z, -2000.f, 25.f);  // looking along -z
  for (const auto& n : mesh.normals) EXPECT_GT(n.z, 0.9f);              // facing the camera
  ASSERT_TRUE(mesh.texture_source);
  ASSERT_EQ(mesh.texture_source->keyframes.size(), 1u);
  const TextureKeyframe& kf = mesh.texture_source->keyframes[0];
  EXPECT_NEAR(kf.T_mesh_camera(0, 3), 500.f, 1e-3f);
  // A mesh point projects back into the keyframe where the camera saw it.
  const Eigen::Vector4f p(mesh.vertices[0].x, mesh.vertices[0].y, mesh.vertices[0].z, 1.f);
  const Eigen::Vector4f pc = kf.T_mesh_camera.inverse() * p;
  EXPECT_GT(pc.z(), 0.f);
  EXPECT_NEAR(pc.z(), 2000.f, 25.f);
}

TEST(MappingModule, MemoryBudgetStopsGrowthAndLeavesAValidMap) {
  const Scene s = room();
  MappingConfig c = config();
  c.voxel_m = 0.02f;
  c.max_memory_bytes = size_t(4) << 20;
  MappingModule m(c);
  fuse(m, s, 0.f, 1);
  fuse(m, s, 1.f, 2);
  m.waitIdle();
  EXPECT_EQ(m.state(), pv::SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY);
  const MappingStats before = m.stats();
  EXPECT_LE(before.block_bytes + before.mesh_bytes + before.keyframe_bytes, c.max_memory_bytes);
  fuse(m, s, 2.f, 3);
  m.waitIdle();
  EXPECT_EQ(m.stats().blocks, before.blocks);
  pv::Mesh mesh;
  ASSERT_EQ(m.extractWhole(mesh), pv::ERROR_CODE::SUCCESS);
  EXPECT_GT(mesh.triangles.size(), 100u);
  for (const auto& t : mesh.triangles) ASSERT_LT(std::max({t.x, t.y, t.z}), mesh.vertices.size());
  EXPECT_EQ(m.state(), pv::SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY);
}

TEST(MappingModule, SustainedOverflowReportsFpsTooLowAndRecovers) {
  const Scene s = room();
  MappingConfig c = config();
  c.voxel_m = 0.01f;
  c.queue_capacity = 1;
  MappingModule m(c);
  const DepthFrame f = frameAt(s, view(0.f), 1);
  EXPECT_EQ(m.state(), pv::SPATIAL_MAPPING_STATE::INITIALIZING);
  int dropped = 0;
  for (int i = 0; i < 40; ++i) dropped += !m.submit(f);  // far faster than 1 cm fusion
  EXPECT_GT(dropped, 20);
  EXPECT_EQ(m.state(), pv::SPATIAL_MAPPING_STATE::FPS_TOO_LOW);
  for (int i = 0; i < 40; ++i) {
    m.waitIdle();
    EXPECT_TRUE(m.submit(f));
  }
  m.waitIdle();
  EXPECT_EQ(m.state(), pv::SPATIAL_MAPPING_STATE::OK);
}

TEST(MappingModule, WaitingForRoomFusesEveryFrameOfAFastSource) {
  // A recording read as fast as it decodes: the same flood of frames as above, none dropped.
  const Scene s = room();
  MappingConfig c = config();
  c.voxel_m = 0.01f;
  c.queue_capacity = 1;
  c.wait_for_room = true;
  MappingModule m(c);
  for (int i = 0; i < 12; ++i) EXPECT_TRUE(m.submit(frameAt(s, view(0.1f * float(i % 3)), uint64_t(i + 1))));
  m.waitIdle();
  const MappingStats st = m.stats();
  EXPECT_EQ(st.frames_dropped, 0u);
  EXPECT_EQ(st.frames_fused, 12u);
  EXPECT_EQ(m.state(), pv::SPATIAL_MAPPING_STATE::OK);
}

TEST(MappingModule, ResetWithARequestInFlightAndRetrievalsBesideFusion) {
  const Scene s = room();
  for (int round = 0; round < 3; ++round) {
    auto m = std::make_unique<MappingModule>(config());
    for (int i = 0; i < 3; ++i) m->submit(frameAt(s, view(0.5f * float(i)), uint64_t(i + 1)));
    m->requestMap();
    m.reset();  // must neither hang nor crash while meshing or fusing
  }
  // Retrievals on another thread while frames keep coming.
  MappingModule m(config());
  fuse(m, s, 0.f, 1);
  requestAndWait(m);
  std::atomic<bool> done{false};
  std::thread reader([&] {
    pv::Mesh mesh;
    while (!done) {
      if (m.mapReady()) {
        EXPECT_EQ(m.retrieve(mesh), pv::ERROR_CODE::SUCCESS);
      }
      for (const auto& c : mesh.chunks)
        for (const auto& t : c.triangles) ASSERT_LT(std::max({t.x, t.y, t.z}), c.vertices.size());
    }
  });
  for (int i = 0; i < 12; ++i) {
    fuse(m, s, 0.5f * float(i), uint64_t(10 + i));
    if (i % 3 == 0) m.requestMap();
  }
  m.waitIdle();
  done = true;
  reader.join();
}

TEST(CameraMapping, CallsOnAClosedCameraFailWithAReason) {
  pv::Camera camera;
  EXPECT_EQ(camera.enableSpatialMapping(), pv::ERROR_CODE::CAMERA_NOT_INITIALIZED);
  EXPECT_EQ(camera.getSpatialMappingState(), pv::SPATIAL_MAPPING_STATE::NOT_ENABLED);
  pv::Mesh mesh;
  EXPECT_EQ(camera.retrieveSpatialMapAsync(mesh), pv::ERROR_CODE::MODULE_NOT_ENABLED);
  EXPECT_EQ(camera.getSpatialMapRequestStatusAsync(), pv::ERROR_CODE::MODULE_NOT_ENABLED);
  camera.requestSpatialMapAsync();
  camera.disableSpatialMapping();
  EXPECT_GT(std::strlen(pv::lastErrorDetail().c_str()), 0u);
}
