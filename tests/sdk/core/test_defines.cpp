#include <gtest/gtest.h>

#include "pv/camera.h"
#include "pv/pavo.h"

namespace {

template <typename E>
int v(E e) {
  return static_cast<int>(e);
}

TEST(Defines, EnumerationValuesAreTheApplicationsNumbers) {
  EXPECT_EQ(v(pv::ERROR_CODE::SUCCESS), 0);
  EXPECT_EQ(v(pv::ERROR_CODE::FAILURE), 1);
  EXPECT_EQ(v(pv::ERROR_CODE::CAMERA_NOT_DETECTED), 4);
  EXPECT_EQ(v(pv::ERROR_CODE::END_OF_KTR_FILE_REACHED), 14);
  EXPECT_EQ(v(pv::RESOLUTION::HD720), 2);
  EXPECT_EQ(v(pv::RESOLUTION::VGA), 3);
  EXPECT_EQ(v(pv::DEPTH_MODE::NEURAL), 4);
  EXPECT_EQ(v(pv::UNIT::METER), 2);
  EXPECT_EQ(v(pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP), 2);
  EXPECT_EQ(v(pv::MEM::GPU), 2);
  EXPECT_EQ(v(pv::MEM::BOTH), 3);
  EXPECT_EQ(v(pv::MAT_TYPE::U8_C4), 7);
  EXPECT_EQ(v(pv::VIEW::TRACKING), 113);
  EXPECT_EQ(v(pv::VIEW::DEPTH_COLOR), 119);
  EXPECT_EQ(v(pv::REFERENCE_FRAME::CAMERA), 1);
  EXPECT_EQ(v(pv::POSITIONAL_TRACKING_STATE::FPS_TOO_LOW), 3);
  EXPECT_EQ(v(pv::SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY), 2);
  EXPECT_EQ(v(pv::SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD) + 5, v(pv::SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD_OFFLINE));
  EXPECT_EQ(v(pv::MAPPING_RANGE::AUTO), 3);
  EXPECT_EQ(v(pv::MESH_FILE_FORMAT::OBJ), 2);
  EXPECT_EQ(v(pv::VIDEO_SETTINGS::GAIN), 6);
  EXPECT_EQ(v(pv::VIDEO_SETTINGS::EXPOSURE), 7);
  EXPECT_EQ(v(pv::AI_MODELS::NEURAL_DEPTH), 8);
  EXPECT_EQ(pv::MeshFilterParameters::HIGH, 2);
}

TEST(Defines, ToStringGivesUpperCaseWords) {
  EXPECT_STREQ(pv::toString(pv::ERROR_CODE::END_OF_KTR_FILE_REACHED).c_str(), "END OF KTR FILE REACHED");
  EXPECT_STREQ(pv::toString(pv::ERROR_CODE::CAMERA_NOT_DETECTED).c_str(), "CAMERA NOT DETECTED");
  EXPECT_STREQ(pv::toString(pv::MAPPING_RESOLUTION::MEDIUM).c_str(), "MEDIUM");
  EXPECT_STREQ(pv::toString(pv::MAPPING_RANGE::AUTO).c_str(), "AUTO");
  EXPECT_STREQ(pv::toString(pv::MeshFilterParameters::LOW).c_str(), "LOW");
  EXPECT_STREQ(pv::toString(pv::DEPTH_MODE::PERFORMANCE).c_str(), "PERFORMANCE");
  EXPECT_STREQ(pv::toString(pv::MAT_TYPE::U8_C4).c_str(), "U8 C4");
  EXPECT_STREQ(pv::toString(pv::VIEW::DEPTH_COLOR).c_str(), "DEPTH COLOR");
  // Every error code has its own text, upper case, no underscores.
  for (int i = 0; i < v(pv::ERROR_CODE::LAST); ++i) {
    const std::string s = pv::toString(static_cast<pv::ERROR_CODE>(i)).str();
    EXPECT_EQ(s.find("UNKNOWN"), std::string::npos) << i;
    for (char c : s) EXPECT_TRUE((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ') << s;
  }
  EXPECT_STREQ(pv::toString(static_cast<pv::ERROR_CODE>(99)).c_str(), "UNKNOWN 99");
}

TEST(Defines, MappingPresetsAndBounds) {
  EXPECT_FLOAT_EQ(pv::SpatialMappingParameters::get(pv::MAPPING_RESOLUTION::HIGH), 0.02f);
  EXPECT_FLOAT_EQ(pv::SpatialMappingParameters::get(pv::MAPPING_RESOLUTION::LOW), 0.08f);
  EXPECT_FLOAT_EQ(pv::SpatialMappingParameters::get(pv::MAPPING_RANGE::SHORT), 3.5f);
  EXPECT_FLOAT_EQ(pv::SpatialMappingParameters::get(pv::MAPPING_RANGE::LONG), 8.0f);
  EXPECT_FLOAT_EQ(pv::SpatialMappingParameters::get(pv::MAPPING_RANGE::AUTO), -1.f);
  EXPECT_FLOAT_EQ(pv::SpatialMappingParameters::allowed_resolution.first, 0.01f);
  EXPECT_FLOAT_EQ(pv::SpatialMappingParameters::allowed_range.second, 20.f);
  pv::SpatialMappingParameters p(pv::MAPPING_RESOLUTION::HIGH, pv::MAPPING_RANGE::LONG);
  EXPECT_FLOAT_EQ(p.resolution_meter, 0.02f);
  EXPECT_FLOAT_EQ(p.range_meter, 8.f);
  EXPECT_EQ(pv::getResolution(pv::RESOLUTION::HD720), pv::Resolution(1280, 720));
  EXPECT_EQ(pv::getResolution(pv::RESOLUTION::VGA), pv::Resolution(640, 360));
}

TEST(Defines, RuntimeParametersTakeArgumentsInOrder) {
  pv::RuntimeParameters rt(pv::SENSING_MODE::FILL, false, 40, 60, pv::REFERENCE_FRAME::WORLD, false);
  EXPECT_EQ(rt.sensing_mode, pv::SENSING_MODE::FILL);
  EXPECT_FALSE(rt.enable_depth);
  EXPECT_EQ(rt.confidence_threshold, 40);
  EXPECT_EQ(rt.texture_confidence_threshold, 60);
  EXPECT_EQ(rt.measure3D_reference_frame, pv::REFERENCE_FRAME::WORLD);
  EXPECT_FALSE(rt.remove_saturated_areas);
  pv::InitParameters init;
  EXPECT_FLOAT_EQ(init.depth_minimum_distance, 0.3f);
  EXPECT_FLOAT_EQ(init.depth_maximum_distance, 15.f);
  EXPECT_FALSE(init.ktr_real_time_mode);
}

TEST(Defines, NeuralModelIsNeverReportedAvailable) {
  const pv::AI_Model_status s = pv::Camera::checkAIModelStatus(pv::AI_MODELS::NEURAL_DEPTH, 0);
  EXPECT_FALSE(s.downloaded);
  EXPECT_FALSE(s.optimized);
  // The flag the application tests is the second byte of the status.
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&s);
  EXPECT_EQ(bytes[1], 0);
  pv::Camera cam;
  pv::InitParameters init;
  init.depth_mode = pv::DEPTH_MODE::NEURAL;
  init.input.setFromKTRFile("whatever.ktr");
  EXPECT_EQ(cam.open(init), pv::ERROR_CODE::AI_MODEL_NOT_AVAILABLE);
  EXPECT_FALSE(cam.isOpened());
  EXPECT_NE(std::string(pv::lastErrorDetail().c_str()), "");
}

}  // namespace
