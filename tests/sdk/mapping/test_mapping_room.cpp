// The synthesized room (true depth and poses) through the mapping module, judged against the
// room's true surface; the extracted mesh through the mesh files.
#include <gtest/gtest.h>

#include <filesystem>

#include "mapping/internal/mapping_module.h"
#include "mapping/internal/surface_distance.h"
#include "synth/internal/synth.h"
#include "test_utils.h"

using namespace pv::internal;

TEST(MappingRoom, SynthesizedRoomIsAccurateAndCompleteAndSurvivesItsFile) {
  synth::SynthOptions o;
  o.frames = 45;
  o.resolution = pv::RESOLUTION::VGA;
  synth::SyntheticSequence seq;
  ASSERT_EQ(seq.init(o), pv::ERROR_CODE::SUCCESS);
  MappingConfig c;
  c.voxel_m = 0.05f;
  c.range_m = 5.f;
  MappingModule m(c);
  std::vector<DepthFrame> frames;
  for (int i = 0; i < o.frames; ++i) {
    DepthFrame f;
    seq.renderDepth(i, f.depth_m);
    f.T_world_camera = seq.poseImage(i).cast<float>();
    f.fx = seq.rectified().fx;
    f.fy = seq.rectified().fy;
    f.cx = seq.rectified().cx;
    f.cy = seq.rectified().cy;
    f.timestamp_ns = uint64_t(seq.timestampNs(i));
    while (!m.submit(f)) m.waitIdle();
    frames.push_back(f);
  }
  pv::Mesh mesh;
  ASSERT_EQ(m.extractWhole(mesh), pv::ERROR_CODE::SUCCESS);

  std::vector<Eigen::Vector3f> mv, tv;
  std::vector<std::array<uint32_t, 3>> mt, tt;
  for (const auto& p : mesh.vertices) mv.emplace_back(p.x, p.y, p.z);
  for (const auto& t : mesh.triangles) mt.push_back({t.x, t.y, t.z});
  std::vector<Eigen::Vector3f> v;
  std::vector<Eigen::Vector3i> t;
  seq.surfaceMesh(v, t);
  for (const auto& p : v) tv.emplace_back(p.x(), -p.y(), -p.z());  // right-handed y-up to IMAGE axes
  for (const auto& f : t) tt.push_back({uint32_t(f[0]), uint32_t(f[1]), uint32_t(f[2])});
  const MeshEvaluation e = evaluateMesh(mv, mt, tv, tt, c.voxel_m, 0.25f, [&](const Eigen::Vector3f& p) {
    return visibleInAny(frames, p, 3, 0.01f, c.range_m);
  });
  EXPECT_LT(e.accuracy_mean_m, 0.25 * c.voxel_m);
  EXPECT_GT(e.completeness_pct, 95.0);
  EXPECT_GT(e.truth_seen, 10000u);

  const std::string path = mapura::test::scratchDir("mapping_room") + "/mesh.ply";
  ASSERT_TRUE(mesh.save(pv::String(path.c_str()), pv::MESH_FILE_FORMAT::PLY)) << pv::lastErrorDetail().c_str();
  pv::Mesh loaded;
  ASSERT_TRUE(loaded.load(pv::String(path.c_str())));
  EXPECT_EQ(loaded.getNumberOfTriangles(), mesh.getNumberOfTriangles());
}
