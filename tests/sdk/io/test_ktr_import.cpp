#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "io/internal/ktr_file.h"
#include "io/internal/ktr_import.h"
#include "io/internal/ktr_side_files.h"
#include "test_utils.h"

namespace pv::internal {
namespace {

namespace fs = std::filesystem;

TEST(KtrImport, KittiKeepsImagesCalibrationAndTrajectory) {
  MAPURA_REQUIRE_SHARED(dir, "kitti_odometry_stereo_excerpt/KITTI_sequence_1");
  const std::string out = mapura::test::scratchDir("import_kitti") + "/kitti.ktr";
  ImportOptions o;
  o.format = ImportFormat::KITTI;
  o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
  ImportReport report;
  ASSERT_EQ(importStereoFolder(dir, out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(report.frames, 51);
  EXPECT_EQ(report.ground_truth_poses, 51);
  KtrReader reader;
  ASSERT_EQ(reader.open(out), ERROR_CODE::SUCCESS);
  EXPECT_EQ(reader.frameCount(), 51);
  EXPECT_EQ(reader.metadata().width, 1226);
  EXPECT_DOUBLE_EQ(reader.metadata().fps, 10);
  EXPECT_NEAR(reader.metadata().calibration.T[0], -0.5372, 1e-3);
  reader.seek(7);
  cv::Mat sbs, gray;
  int64_t ts = 0;
  int index = -1;
  ASSERT_EQ(reader.read(sbs, ts, index), ERROR_CODE::SUCCESS);
  EXPECT_EQ(ts, 700000000);
  cv::cvtColor(sbs(cv::Rect(0, 0, 1226, 370)), gray, cv::COLOR_BGR2GRAY);
  EXPECT_EQ(cv::norm(gray, cv::imread(dir + "/image_l/000007.png", cv::IMREAD_GRAYSCALE), cv::NORM_INF), 0);

  std::vector<double> t;
  std::vector<Eigen::Matrix4d> poses;
  ASSERT_TRUE(readTumTrajectory(sideFileStem(out) + ".gt.txt", t, poses));
  ASSERT_EQ(poses.size(), 51u);
  EXPECT_TRUE(poses[0].isIdentity(1e-6));
  // KITTI's second pose moves 1.199 m along +z (forward, IMAGE axes): -z in y-up axes.
  EXPECT_NEAR(poses[1](2, 3), -1.198998, 1e-5);
  EXPECT_NEAR(poses[1](1, 3), 0.02820321, 1e-5);
  EXPECT_NEAR(t[1], 0.1, 1e-9);
}

TEST(KtrImport, EurocPairsCamerasByTimestampAndCarriesBodyPosesToTheCamera) {
  MAPURA_REQUIRE_SHARED(dir, "euroc_v1_01_micro");
  const std::string out = mapura::test::scratchDir("import_euroc") + "/euroc.ktr";
  ImportOptions o;
  o.format = ImportFormat::EUROC;
  ImportReport report;
  ASSERT_EQ(importStereoFolder(dir, out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(report.frames, 95);
  EXPECT_EQ(report.ground_truth_poses, 95);
  KtrReader reader;
  ASSERT_EQ(reader.open(out), ERROR_CODE::SUCCESS);
  EXPECT_EQ(reader.metadata().width, 752);
  EXPECT_DOUBLE_EQ(reader.metadata().fps, 20);
  EXPECT_NEAR(reader.metadata().calibration.left.disto[0], -0.28340811, 1e-9);
  const auto& T = reader.metadata().calibration.T;
  EXPECT_NEAR(std::sqrt(T[0] * T[0] + T[1] * T[1] + T[2] * T[2]), 0.110, 0.002);
  EXPECT_LT(T[0], -0.1);  // the right camera sits at +x of the left one
  cv::Mat sbs;
  int64_t ts = 0;
  int index = -1;
  ASSERT_EQ(reader.read(sbs, ts, index), ERROR_CODE::SUCCESS);
  EXPECT_EQ(ts, 1403715273262142976LL);

  std::vector<double> t;
  std::vector<Eigen::Matrix4d> poses;
  ASSERT_TRUE(readTumTrajectory(sideFileStem(out) + ".gt.txt", t, poses));
  ASSERT_EQ(poses.size(), 95u);
  EXPECT_TRUE(poses[0].isIdentity(1e-6));
  // The micro excerpt barely moves: the whole path stays within a few centimetres.
  for (const Eigen::Matrix4d& p : poses) EXPECT_LT(p.col(3).head(3).norm(), 0.2);
}

TEST(KtrImport, PlainPairsAndBadFolders) {
  const fs::path dir = mapura::test::scratchDir("import_pairs");
  const std::string out = (dir / "pairs.ktr").string();
  ImportOptions o;
  o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
  EXPECT_EQ(importStereoFolder((dir / "missing").string(), out, o), ERROR_CODE::FILE_IO_ERROR);
  fs::create_directories(dir / "left");
  fs::create_directories(dir / "right");
  cv::RNG rng(4);
  for (int i = 0; i < 3; ++i) {
    cv::Mat l(40, 60, CV_8UC3), r(40, 60, CV_8UC3);
    rng.fill(l, cv::RNG::UNIFORM, 0, 255);
    rng.fill(r, cv::RNG::UNIFORM, 0, 255);
    cv::imwrite((dir / "left" / (std::to_string(i) + ".png")).string(), l);
    cv::imwrite((dir / "right" / (std::to_string(i) + ".png")).string(), r);
  }
  EXPECT_EQ(importStereoFolder(dir.string(), out, o), ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE);
  StereoCalibration c;
  c.width = 60;
  c.height = 40;
  c.left = {50, 50, 30, 20, {}};
  c.right = c.left;
  c.T = {-0.1, 0, 0};
  ASSERT_EQ(writeCalibrationYaml((dir / "calibration.yml").string(), c), ERROR_CODE::SUCCESS);
  std::ofstream(dir / "gt.txt") << "0 0 0 0 0 0 0 1\n0.1 0 0 -0.5 0 0 0 1\n0.2 0 0 -1 0 0 0 1\n";
  o.fps = 10;
  ImportReport report;
  ASSERT_EQ(importStereoFolder(dir.string(), out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(report.frames, 3);
  EXPECT_EQ(report.ground_truth_poses, 3);
  KtrReader reader;
  ASSERT_EQ(reader.open(out), ERROR_CODE::SUCCESS);
  cv::Mat sbs;
  int64_t ts = 0;
  int index = -1;
  reader.seek(2);
  ASSERT_EQ(reader.read(sbs, ts, index), ERROR_CODE::SUCCESS);
  EXPECT_EQ(cv::norm(sbs(cv::Rect(60, 0, 60, 40)), cv::imread((dir / "right/2.png").string()), cv::NORM_INF), 0);
  std::vector<double> t;
  std::vector<Eigen::Matrix4d> poses;
  ASSERT_TRUE(readTumTrajectory(sideFileStem(out) + ".gt.txt", t, poses));
  EXPECT_NEAR(poses[2](2, 3), -1.0, 1e-9);

  fs::remove(dir / "right/1.png");
  EXPECT_EQ(importStereoFolder(dir.string(), out, o), ERROR_CODE::UNSUPPORTED_FILE_FORMAT);
}

}  // namespace
}  // namespace pv::internal
