// Spatial mapping through pv::Camera on a synthesized recording: parameter checks, the grab
// hand-over, request / status / retrieve, the whole-map extraction and disabling.
#include <gtest/gtest.h>

#include <thread>

#include "core/internal/camera_state.h"
#include "synth/internal/synth.h"
#include "test_utils.h"

using namespace pv;

TEST(CameraMapping, RecordingIsMappedAtGivenPosesThroughThePublicCalls) {
  internal::synth::SynthOptions o;
  o.frames = 24;
  o.resolution = RESOLUTION::VGA;
  o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
  const std::string path = mapura::test::scratchDir("mapping_camera") + "/room.ktr";
  ASSERT_EQ(internal::synth::synthesize(o, path), ERROR_CODE::SUCCESS);
  internal::synth::SyntheticSequence seq;
  ASSERT_EQ(seq.init(o), ERROR_CODE::SUCCESS);

  Camera camera;
  InitParameters init;
  init.input.setFromKTRFile(String(path.c_str()));
  init.depth_mode = DEPTH_MODE::PERFORMANCE;
  init.coordinate_system = COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
  ASSERT_EQ(camera.open(init), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();

  SpatialMappingParameters p;
  p.resolution_meter = 0.05f;
  p.range_meter = -1.f;  // recommended for the camera
  p.use_chunk_only = true;
  // The live types need tracking; the two-pass types need refined poses.
  EXPECT_EQ(camera.enableSpatialMapping(p), ERROR_CODE::MODULE_NOT_ENABLED);
  p.map_type = SPATIAL_MAP_TYPE::MESH_OFFLINE;
  EXPECT_EQ(camera.enableSpatialMapping(p), ERROR_CODE::MODULE_NOT_ENABLED);
  p.resolution_meter = 0.5f;
  camera.state()->refined_pose = [&seq](int index, Eigen::Matrix4f& T) {
    T = seq.poseImage(index).cast<float>();
    return true;
  };
  EXPECT_EQ(camera.enableSpatialMapping(p), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);  // voxel too big
  p.resolution_meter = 0.05f;
  ASSERT_EQ(camera.enableSpatialMapping(p), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  const SpatialMappingParameters used = camera.getSpatialMappingParameters();
  EXPECT_GE(used.range_meter, SpatialMappingParameters::allowed_range.first);
  EXPECT_LE(used.range_meter, SpatialMappingParameters::allowed_range.second);
  EXPECT_EQ(camera.getSpatialMapRequestStatusAsync(), ERROR_CODE::MAP_NOT_READY);

  Mesh live;
  int frames = 0;
  while (camera.grab() == ERROR_CODE::SUCCESS) {
    ++frames;
    if (frames == 12) camera.requestSpatialMapAsync();
  }
  EXPECT_EQ(frames, o.frames);
  while (camera.getSpatialMapRequestStatusAsync() != ERROR_CODE::SUCCESS) std::this_thread::yield();
  // The copy may run on another thread while grabs go on.
  std::thread copier([&] { EXPECT_EQ(camera.retrieveSpatialMapAsync(live), ERROR_CODE::SUCCESS); });
  copier.join();
  EXPECT_GT(live.getNumberOfTriangles(), 0u);
  EXPECT_TRUE(live.vertices.empty());  // use_chunk_only
  EXPECT_NE(camera.getSpatialMappingState(), SPATIAL_MAPPING_STATE::NOT_ENABLED);

  Mesh whole;
  ASSERT_EQ(camera.extractWholeSpatialMap(whole), ERROR_CODE::SUCCESS);
  EXPECT_GE(whole.getNumberOfTriangles(), live.getNumberOfTriangles());
  EXPECT_FALSE(whole.triangles.empty());
  // In the chosen system (right-handed, y up): the room's floor lies below the first camera.
  float min_y = 0.f;
  for (const auto& v : whole.vertices) min_y = std::min(min_y, v.y);
  EXPECT_LT(min_y, -0.5f);

  camera.disableSpatialMapping();
  EXPECT_EQ(camera.getSpatialMappingState(), SPATIAL_MAPPING_STATE::NOT_ENABLED);
  EXPECT_EQ(camera.retrieveSpatialMapAsync(live), ERROR_CODE::MODULE_NOT_ENABLED);
}
