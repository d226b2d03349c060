#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "io/internal/area_file.h"
#include "pv/camera.h"
#include "test_utils.h"

using namespace pv::internal;

namespace {

MapData sampleMap(RectifiedCalibration& c) {
  c.fx = c.fy = 400;
  c.cx = 320;
  c.cy = 180;
  c.baseline_m = 0.12;
  c.size = cv::Size(640, 360);
  MapData map;
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> u(-2, 2);
  for (int i = 0; i < 30; ++i) map.landmarks[map.next_landmark_id++] = {Eigen::Vector3d(u(rng), u(rng), 3 + u(rng)), 2};
  for (int k = 0; k < 3; ++k) {
    Keyframe kf;
    kf.id = map.next_keyframe_id++;
    kf.frame_index = 10 * k;
    kf.T_world_camera.linear() = Eigen::AngleAxisd(0.1 * k, Eigen::Vector3d::UnitY()).toRotationMatrix();
    kf.T_world_camera.translation() = Eigen::Vector3d(0.1 * k, 0, 0);
    for (int i = k; i < 30; i += 2)
      kf.observations.push_back({i, float(10 * i), float(5 * i), k == 1 ? NAN : float(10 * i - 7)});
    if (k != 2) {
      kf.descriptors.create(int(kf.observations.size()), 32, CV_8U);
      cv::randu(kf.descriptors, 0, 255);
    }
    map.keyframes[kf.id] = kf;
  }
  return map;
}

}  // namespace

TEST(AreaFile, RoundTripKeepsEverything) {
  RectifiedCalibration c, c2;
  const MapData map = sampleMap(c);
  const std::string path = mapura::test::scratchDir("area") + "/a.ogt";
  ASSERT_EQ(writeAreaFile(path, map, c), pv::ERROR_CODE::SUCCESS);
  MapData back;
  ASSERT_EQ(readAreaFile(path, back, c2), pv::ERROR_CODE::SUCCESS);
  EXPECT_EQ(c2.size, c.size);
  EXPECT_EQ(c2.fx, c.fx);
  EXPECT_EQ(c2.baseline_m, c.baseline_m);
  EXPECT_EQ(back.next_keyframe_id, map.next_keyframe_id);
  EXPECT_EQ(back.next_landmark_id, map.next_landmark_id);
  ASSERT_EQ(back.landmarks.size(), map.landmarks.size());
  for (const auto& [id, lm] : map.landmarks) EXPECT_EQ(back.landmarks[id].p_world, lm.p_world);
  ASSERT_EQ(back.keyframes.size(), map.keyframes.size());
  for (const auto& [id, kf] : map.keyframes) {
    const Keyframe& b = back.keyframes[id];
    EXPECT_EQ(b.frame_index, kf.frame_index);
    EXPECT_TRUE(b.T_world_camera.isApprox(kf.T_world_camera, 1e-12));
    ASSERT_EQ(b.observations.size(), kf.observations.size());
    for (size_t i = 0; i < kf.observations.size(); ++i) {
      EXPECT_EQ(b.observations[i].landmark, kf.observations[i].landmark);
      EXPECT_EQ(b.observations[i].u, kf.observations[i].u);
      EXPECT_EQ(std::isnan(b.observations[i].u_right), std::isnan(kf.observations[i].u_right));
    }
    EXPECT_EQ(b.descriptors.rows, kf.descriptors.rows);
    if (!kf.descriptors.empty()) {
      EXPECT_EQ(cv::norm(b.descriptors, kf.descriptors, cv::NORM_L1), 0.0);
    }
  }
}

TEST(AreaFile, CorruptTruncatedAndForeignFilesAreRefused) {
  RectifiedCalibration c, out_c;
  const MapData map = sampleMap(c);
  const std::vector<uint8_t> bytes = encodeAreaFile(map, c);
  MapData out;
  out.next_keyframe_id = 77;  // must stay untouched on failure
  for (size_t n = 0; n < bytes.size(); n += 7)
    EXPECT_EQ(decodeAreaFile(bytes.data(), n, out, out_c), pv::ERROR_CODE::INVALID_AREA_FILE) << n;
  std::mt19937 rng(5);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<uint8_t> broken = bytes;
    broken[rng() % broken.size()] ^= uint8_t(1 + rng() % 255);
    EXPECT_EQ(decodeAreaFile(broken.data(), broken.size(), out, out_c), pv::ERROR_CODE::INVALID_AREA_FILE);
  }
  std::vector<uint8_t> other_version = bytes;
  other_version[8] = 99;
  EXPECT_EQ(decodeAreaFile(other_version.data(), other_version.size(), out, out_c), pv::ERROR_CODE::INVALID_AREA_FILE);
  EXPECT_NE(std::string(pv::lastErrorDetail().c_str()).find("version"), std::string::npos);
  const uint8_t png[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R', 0, 0, 0, 1};
  EXPECT_EQ(decodeAreaFile(png, sizeof png, out, out_c), pv::ERROR_CODE::INVALID_AREA_FILE);
  EXPECT_EQ(decodeAreaFile(nullptr, 0, out, out_c), pv::ERROR_CODE::INVALID_AREA_FILE);
  EXPECT_EQ(out.next_keyframe_id, 77);

  const std::string dir = mapura::test::scratchDir("area_bad");
  EXPECT_EQ(readAreaFile(dir + "/missing.ogt", out, out_c), pv::ERROR_CODE::FILE_IO_ERROR);
  EXPECT_EQ(writeAreaFile(dir + "/no/such/dir/a.ogt", map, c), pv::ERROR_CODE::FILE_IO_ERROR);
}
