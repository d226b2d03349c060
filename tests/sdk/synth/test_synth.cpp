#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "synth/internal/synth.h"
#include "test_utils.h"

namespace pv::internal::synth {
namespace {

SynthOptions vga(const std::string& scene, uint32_t seed) {
  SynthOptions o;
  o.scene = scene;
  o.resolution = RESOLUTION::VGA;
  o.seed = seed;
  o.frames = 4;
  return o;
}

TEST(Synth, FramesAreDeterministicForASeedAndDifferBetweenSeeds) {
  SyntheticSequence a, b, c;
  ASSERT_EQ(a.init(vga("room", 3)), ERROR_CODE::SUCCESS);
  ASSERT_EQ(b.init(vga("room", 3)), ERROR_CODE::SUCCESS);
  ASSERT_EQ(c.init(vga("room", 4)), ERROR_CODE::SUCCESS);
  cv::Mat fa, fb, fc;
  a.renderRaw(2, fa);
  b.renderRaw(2, fb);
  c.renderRaw(2, fc);
  EXPECT_EQ(fa.size(), cv::Size(1280, 360));
  EXPECT_EQ(cv::norm(fa, fb, cv::NORM_INF), 0);
  EXPECT_GT(cv::norm(fa, fc, cv::NORM_L1) / double(fa.total()), 10.0);
  EXPECT_NE(a.init(vga("castle", 1)), ERROR_CODE::SUCCESS);
  SynthOptions hd = vga("room", 1);
  hd.resolution = RESOLUTION::HD1080;
  EXPECT_EQ(a.init(hd), ERROR_CODE::INVALID_RESOLUTION);
}

TEST(Synth, WritesTheRecordingAndConsistentGroundTruth) {
  SynthOptions o = vga("object", 2);
  o.frames = 6;
  o.gt_depth = true;
  o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
  const std::string dir = mapura::test::scratchDir("synth_files");
  ASSERT_EQ(synthesize(o, dir + "/obj.ktr"), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  ASSERT_TRUE(std::filesystem::exists(dir + "/obj.ktr"));
  SyntheticSequence seq;
  ASSERT_EQ(seq.init(o), ERROR_CODE::SUCCESS);

  // Trajectory: TUM lines, identity first, small smooth steps, matching poseRightHandedYUp.
  std::ifstream gt(dir + "/obj.gt.txt");
  std::string line;
  std::vector<Eigen::Matrix4d> poses;
  while (std::getline(gt, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream in(line);
    double t, x, y, z, qx, qy, qz, qw;
    ASSERT_TRUE(bool(in >> t >> x >> y >> z >> qx >> qy >> qz >> qw)) << line;
    EXPECT_NEAR(t, seq.timestampNs(int(poses.size())) * 1e-9, 1e-6);
    Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
    T.topLeftCorner<3, 3>() = Eigen::Quaterniond(qw, qx, qy, qz).toRotationMatrix();
    T.topRightCorner<3, 1>() = Eigen::Vector3d(x, y, z);
    poses.push_back(T);
  }
  ASSERT_EQ(poses.size(), 6u);
  EXPECT_TRUE(poses[0].isIdentity(1e-6));
  for (size_t i = 1; i < poses.size(); ++i) {
    EXPECT_TRUE(poses[i].isApprox(seq.poseRightHandedYUp(int(i)), 1e-5));
    const Eigen::Matrix4d step = poses[i - 1].inverse() * poses[i];
    const double moved_m = step.block<3, 1>(0, 3).norm();
    EXPECT_LT(moved_m, 0.05);
    EXPECT_GT(moved_m, 0.001);
    EXPECT_LT(Eigen::AngleAxisd(Eigen::Matrix3d(step.topLeftCorner<3, 3>())).angle(), 0.06);
  }
  // The two conventions differ by the axis flip only.
  const Eigen::Matrix4d flip = Eigen::Vector4d(1, -1, -1, 1).asDiagonal();
  EXPECT_TRUE((flip * seq.poseImage(3) * flip).isApprox(poses[3], 1e-5));

  // Depth PNGs: millimetres of renderDepth.
  cv::Mat depth_m, png = cv::imread(dir + "/obj.gt-depth/000004.png", cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(png.empty());
  EXPECT_EQ(png.type(), CV_16U);
  seq.renderDepth(4, depth_m);
  cv::Mat depth_mm;
  depth_m.convertTo(depth_mm, CV_16U, 1000.0);
  EXPECT_EQ(cv::norm(png, depth_mm, cv::NORM_INF), 0);
  EXPECT_FALSE(std::filesystem::exists(dir + "/obj.gt-depth/000006.png"));

  // Surface: the header counts match the binary payload.
  std::ifstream ply(dir + "/obj.gt.ply", std::ios::binary);
  std::string word;
  size_t vertices = 0, faces = 0;
  while (ply >> word && word != "end_header") {
    if (word == "vertex") ply >> vertices;
    if (word == "face") ply >> faces;
  }
  EXPECT_GT(vertices, 100u);
  EXPECT_GT(faces, 100u);
  const auto size = std::filesystem::file_size(dir + "/obj.gt.ply");
  EXPECT_EQ(size - size_t(ply.tellg()) - 1, vertices * 12 + faces * 13);
}

}  // namespace
}  // namespace pv::internal::synth
