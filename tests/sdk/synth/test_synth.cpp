#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
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

TEST(Synth, ScenesAreTexturedEverywhereAndAtStereoDistances) {
  for (const char* scene : {"room", "object"}) {
    SCOPED_TRACE(scene);
    SyntheticSequence seq;
    ASSERT_EQ(seq.init(vga(scene, 1)), ERROR_CODE::SUCCESS);
    EXPECT_NEAR(seq.rectified().baseline_m, 0.12, 0.002);
    EXPECT_NEAR(seq.calibration().left.fx, 350.0, 1e-9);
    for (int frame : {0, 3}) {
      cv::Mat sbs, gray, depth;
      seq.renderRaw(frame, sbs);
      seq.renderDepth(frame, depth);
      cv::cvtColor(sbs(cv::Rect(0, 0, 640, 360)), gray, cv::COLOR_BGR2GRAY);
      // Every 16x16 block has texture well above the sensor noise.
      int flat = 0, blocks = 0;
      for (int y = 0; y + 16 <= gray.rows; y += 16)
        for (int x = 0; x + 16 <= gray.cols; x += 16, ++blocks) {
          cv::Scalar mean, stddev;
          cv::meanStdDev(gray(cv::Rect(x, y, 16, 16)), mean, stddev);
          flat += stddev[0] < 6.0;
        }
      EXPECT_LT(flat, blocks / 10);
      EXPECT_EQ(cv::countNonZero(depth <= 0), 0);
      cv::Mat sorted = depth.reshape(1, 1).clone();
      cv::sort(sorted, sorted, cv::SORT_ASCENDING);
      const float median = sorted.at<float>(int(sorted.total() / 2));
      EXPECT_GT(median, 0.7f);
      EXPECT_LT(median, 3.0f);
    }
  }
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

// The hand-held motion: turns of 180 degrees per second and more at 30 fps, never a jump, the
// camera inside the scene with surfaces at stereo distances at the fastest moments.
TEST(Synth, HandheldMotionTurnsFastAndStaysInTheScene) {
  for (const char* scene : {"room", "object"})
    for (uint32_t seed : {1u, 2u, 3u}) {
      SCOPED_TRACE(std::string(scene) + " seed " + std::to_string(seed));
      SynthOptions o = vga(scene, seed);
      o.motion = "handheld";
      o.frames = 300;
      SyntheticSequence seq;
      ASSERT_EQ(seq.init(o), ERROR_CODE::SUCCESS);
      double fastest = 0, rates_above_180 = 0;
      int fastest_frame = 0;
      for (int i = 1; i < o.frames; ++i) {
        const Eigen::Matrix3d R =
            seq.poseImage(i - 1).topLeftCorner<3, 3>().transpose() * seq.poseImage(i).topLeftCorner<3, 3>();
        const double deg = Eigen::AngleAxisd(R).angle() * 180 / M_PI;
        EXPECT_LT(deg, 15.0) << "frame " << i;
        const Eigen::Vector3d step = (seq.poseImage(i) - seq.poseImage(i - 1)).topRightCorner<3, 1>();
        EXPECT_LT(step.norm(), 0.1) << "frame " << i;
        rates_above_180 += deg * o.fps >= 180;
        if (deg > fastest) {
          fastest = deg;
          fastest_frame = i;
        }
      }
      EXPECT_GE(fastest * o.fps, 200.0);
      EXPECT_GE(rates_above_180, 15);  // several turns, not one
      cv::Mat depth;
      seq.renderDepth(fastest_frame, depth);
      EXPECT_EQ(cv::countNonZero(depth <= 0), 0);
      EXPECT_LT(cv::countNonZero(depth < 0.4f), int(depth.total() / 20));
    }
  SynthOptions o = vga("room", 1);
  o.motion = "shaky";
  SyntheticSequence seq;
  EXPECT_EQ(seq.init(o), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
}

}  // namespace
}  // namespace pv::internal::synth
