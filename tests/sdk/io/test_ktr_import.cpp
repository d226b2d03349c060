#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "core/internal/camera_state.h"
#include "depth/internal/stereo_dataset.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_import.h"
#include "io/internal/ktr_side_files.h"
#include "pv/camera.h"
#include "test_utils.h"

namespace pv::internal {
namespace {

namespace fs = std::filesystem;

double rotationDeg(const Eigen::Matrix4d& a, const Eigen::Matrix4d& b) {
  const Eigen::Matrix3d R = a.topLeftCorner<3, 3>().transpose() * b.topLeftCorner<3, 3>();
  return std::acos(std::clamp((R.trace() - 1) / 2, -1.0, 1.0)) * 180 / M_PI;
}

std::string firstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

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

// The MH_01 excerpt exactly as the dataset ships it: sensor.yaml without a YAML header, the times
// from data.csv (the files say 20 Hz, the frames are 10 Hz), ground truth from the body trajectory.
TEST(KtrImport, EurocAsPublishedAtReducedRates) {
  MAPURA_REQUIRE_SHARED(dir, "euroc_mh01_shake_10hz");
  ASSERT_NE(firstLine(dir + "/mav0/cam0/sensor.yaml").rfind("%YAML", 0), 0u) << "the copy is not as published";
  const std::string out = mapura::test::scratchDir("import_euroc_mh01") + "/mh01.ktr";
  std::vector<int64_t> listed;
  std::ifstream csv(dir + "/mav0/cam0/data.csv");
  for (std::string line; std::getline(csv, line);)
    if (!line.empty() && line[0] != '#') listed.push_back(std::stoll(line));
  ASSERT_EQ(listed.size(), 100u);
  for (int every : {1, 2, 3}) {
    SCOPED_TRACE(every);
    ImportOptions o;
    o.format = ImportFormat::EUROC;
    o.every = every;
    o.first = every == 1 ? 20 : 0;
    ImportReport report;
    ASSERT_EQ(importStereoFolder(dir, out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    const int frames = every == 1 ? 20 : (100 + every - 1) / every;
    EXPECT_EQ(report.frames, frames);
    EXPECT_EQ(report.ground_truth_poses, frames);
    EXPECT_NEAR(report.fps, 10.0 / every, 0.01);
    KtrReader reader;
    ASSERT_EQ(reader.open(out), ERROR_CODE::SUCCESS);
    EXPECT_EQ(reader.frameCount(), frames);
    EXPECT_EQ(reader.metadata().width, 752);
    EXPECT_NEAR(reader.metadata().calibration.left.fx, 458.654, 1e-9);
    cv::Mat sbs;
    int64_t ts = 0;
    int index = -1;
    reader.seek(frames - 1);
    ASSERT_EQ(reader.read(sbs, ts, index), ERROR_CODE::SUCCESS);
    // Matroska keeps milliseconds from the first frame's time.
    EXPECT_NEAR(double(ts - listed[size_t((frames - 1) * every)]), 0.0, 5e5);
    std::vector<double> t;
    std::vector<Eigen::Matrix4d> poses;
    ASSERT_TRUE(readTumTrajectory(sideFileStem(out) + ".gt.txt", t, poses));
    ASSERT_EQ(poses.size(), size_t(frames));
    EXPECT_TRUE(poses[0].isIdentity(1e-6));
    EXPECT_NEAR(t.back(), double(listed[size_t((frames - 1) * every)]) * 1e-9, 1e-6);
    // Shaken by hand: 2.5-5 degrees between 10 Hz frames at the peaks, never a jump.
    double largest = 0;
    for (size_t i = 1; i < poses.size(); ++i) largest = std::max(largest, rotationDeg(poses[i - 1], poses[i]));
    EXPECT_GT(largest, 2.0 * every);
    EXPECT_LT(largest, 6.0 * every);
  }
}

// data.csv lines whose image is absent (in either camera) are skipped; a malformed line is refused.
TEST(KtrImport, EurocSkipsListedFramesWithoutImages) {
  MAPURA_REQUIRE_SHARED(src, "euroc_mh01_shake_10hz/mav0");
  const fs::path dir = mapura::test::scratchDir("import_euroc_missing");
  std::vector<std::string> names;
  std::ifstream csv(src + "/cam0/data.csv");
  for (std::string line; std::getline(csv, line) && names.size() < 6;)
    if (!line.empty() && line[0] != '#') names.push_back(line.substr(0, line.find(',')));
  for (const char* cam : {"cam0", "cam1"}) {
    fs::create_directories(dir / "mav0" / cam / "data");
    fs::copy_file(fs::path(src) / cam / "sensor.yaml", dir / "mav0" / cam / "sensor.yaml");
    std::ofstream list(dir / "mav0" / cam / "data.csv");
    list << "#timestamp [ns],filename\r\n";
    for (size_t i = 0; i < names.size(); ++i) {
      list << names[i] << "," << names[i] << ".png\r\n";
      const bool absent = (i == 2 && std::string(cam) == "cam1") || (i == 4 && std::string(cam) == "cam0");
      if (!absent)
        fs::create_symlink(fs::path(src) / cam / "data" / (names[i] + ".png"),
                           dir / "mav0" / cam / "data" / (names[i] + ".png"));
    }
  }
  const std::string out = (dir / "cut.ktr").string();
  ImportOptions o;
  o.format = ImportFormat::EUROC;
  o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
  ImportReport report;
  ASSERT_EQ(importStereoFolder(dir.string(), out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(report.frames, 4);
  EXPECT_EQ(report.ground_truth_poses, 0);  // no trajectory beside this mav0
  KtrReader reader;
  ASSERT_EQ(reader.open(out), ERROR_CODE::SUCCESS);
  cv::Mat sbs, gray;
  int64_t ts = 0;
  int index = -1;
  reader.seek(2);
  ASSERT_EQ(reader.read(sbs, ts, index), ERROR_CODE::SUCCESS);
  EXPECT_EQ(ts, std::stoll(names[3]) - std::stoll(names[3]) % 1000000 + std::stoll(names[0]) % 1000000);
  cv::cvtColor(sbs(cv::Rect(752, 0, 752, 480)), gray, cv::COLOR_BGR2GRAY);
  EXPECT_EQ(cv::norm(gray, cv::imread(src + "/cam1/data/" + names[3] + ".png", cv::IMREAD_GRAYSCALE), cv::NORM_INF), 0);
  std::ofstream(dir / "mav0/cam1/data.csv", std::ios::app) << "12x34,broken.png\n";
  EXPECT_EQ(importStereoFolder(dir.string(), out, o), ERROR_CODE::UNSUPPORTED_FILE_FORMAT);
  EXPECT_NE(std::string(lastErrorDetail().c_str()).find("line 8"), std::string::npos) << lastErrorDetail().c_str();
}

// KITTI odometry as published: dataset/sequences/NN with "P0:".."P3:" and "Tr:" lines, times.txt
// and dataset/poses/NN.txt, at an odd image size that the recording keeps pixel for pixel.
TEST(KtrImport, KittiPublishedLayoutAtAnOddSize) {
  MAPURA_REQUIRE_SHARED(src, "kitti_odometry_stereo_excerpt/KITTI_sequence_1");
  const fs::path root = mapura::test::scratchDir("import_kitti_odd");
  const fs::path seq = root / "dataset/sequences/07";
  fs::create_directories(seq / "image_0");
  fs::create_directories(seq / "image_1");
  fs::create_directories(root / "dataset/poses");
  const int w = 1225, h = 369;                                    // as KITTI 00-02 (1241x376), an odd width
  const double times[] = {0.0, 0.103, 0.207, 0.31, 0.517, 0.62};  // frame 4 comes late
  std::ofstream times_txt(seq / "times.txt"), poses_txt(root / "dataset/poses/07.txt");
  std::ifstream poses_src(src + "/poses.txt");
  for (int i = 0; i < 6; ++i) {
    char name[16];
    std::snprintf(name, sizeof(name), "%06d.png", i);
    for (const auto& [from, to] : {std::pair<const char*, const char*>{"image_l", "image_0"}, {"image_r", "image_1"}})
      cv::imwrite((seq / to / name).string(), cv::imread(src + "/" + from + "/" + name)(cv::Rect(0, 0, w, h)));
    times_txt << std::scientific << times[i] << "\n";
    std::string line;
    std::getline(poses_src, line);
    poses_txt << line << "\n";
  }
  times_txt.close();
  poses_txt.close();
  std::ifstream calib_src(src + "/calib.txt");
  std::ofstream calib(seq / "calib.txt");
  std::string p0, p1;
  std::getline(calib_src, p0);
  std::getline(calib_src, p1);
  // Colour cameras 2 and 3 sit beside 0 and 1 on the published rigs; only 0 and 1 are used here.
  calib << "P0: " << p0 << "\nP1: " << p1 << "\nP2: " << p0 << "\nP3: " << p1 << "\nTr: 1 0 0 0 0 1 0 0 0 0 1 0\n";
  calib.close();

  const std::string out = (root / "seq07.ktr").string();
  ImportOptions o;
  o.format = guessImportFormat(seq.string());
  EXPECT_EQ(o.format, ImportFormat::KITTI);
  o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
  ImportReport report;
  ASSERT_EQ(importStereoFolder(seq.string(), out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(report.frames, 6);
  EXPECT_EQ(report.ground_truth_poses, 6);
  KtrReader reader;
  ASSERT_EQ(reader.open(out), ERROR_CODE::SUCCESS);
  EXPECT_EQ(reader.metadata().width, w);
  EXPECT_EQ(reader.metadata().height, h);
  EXPECT_NEAR(reader.metadata().calibration.left.cx, 601.8873, 1e-9);  // as published, not moved
  cv::Mat sbs, gray;
  int64_t ts = 0;
  int index = -1;
  for (int i = 0; i < 6; ++i) {
    ASSERT_EQ(reader.read(sbs, ts, index), ERROR_CODE::SUCCESS);
    EXPECT_EQ(ts, std::llround(times[i] * 1000) * 1000000);
    ASSERT_EQ(sbs.size(), cv::Size(2 * w, h));
    char name[16];
    std::snprintf(name, sizeof(name), "%06d.png", i);
    cv::cvtColor(sbs(cv::Rect(w, 0, w, h)), gray, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(cv::norm(gray, cv::imread((seq / "image_1" / name).string(), cv::IMREAD_GRAYSCALE), cv::NORM_INF), 0);
  }
  std::vector<double> t;
  std::vector<Eigen::Matrix4d> poses;
  ASSERT_TRUE(readTumTrajectory(sideFileStem(out) + ".gt.txt", t, poses));
  ASSERT_EQ(poses.size(), 6u);
  EXPECT_NEAR(t[4], 0.517, 1e-9);
  EXPECT_NEAR(poses[1](2, 3), -1.198998, 1e-5);

  // The odd size plays through rectification and depth like any other.
  Camera camera;
  InitParameters init;
  init.input.setFromKTRFile(out.c_str());
  init.depth_mode = DEPTH_MODE::PERFORMANCE;
  init.coordinate_units = UNIT::METER;
  ASSERT_EQ(camera.open(init), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(camera.getCameraInformation().camera_configuration.resolution, Resolution(w, h));
  ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
  Mat depth;
  ASSERT_EQ(camera.retrieveMeasure(depth, MEASURE::DEPTH), ERROR_CODE::SUCCESS);
  EXPECT_EQ(depth.getWidth(), size_t(w));
  EXPECT_EQ(depth.getHeight(), size_t(h));
  EXPECT_EQ(cv::norm(camera.state()->frame.left_gray,
                     cv::imread((seq / "image_0/000000.png").string(), cv::IMREAD_GRAYSCALE), cv::NORM_INF),
            0);

  // The raw KITTI layout: image_00/data, timestamps.txt dates, calib_cam_to_cam.txt one level up.
  const fs::path drive = root / "2011_09_26/2011_09_26_drive_0001_sync";
  fs::create_directories(drive / "image_00/data");
  fs::create_directories(drive / "image_01/data");
  std::ofstream stamps(drive / "image_00/timestamps.txt");
  for (int i = 0; i < 3; ++i) {
    char name[16], raw[24];
    std::snprintf(name, sizeof(name), "%06d.png", i);
    std::snprintf(raw, sizeof(raw), "%010d.png", i);
    fs::copy_file(seq / "image_0" / name, drive / "image_00/data" / raw);
    fs::copy_file(seq / "image_1" / name, drive / "image_01/data" / raw);
    stamps << (i == 0   ? "2011-09-26 13:02:25.964389445\n"
               : i == 1 ? "2011-09-26 13:02:26.064389445\n"
                        : "2011-09-26 13:02:27.164389445\n");
  }
  stamps.close();
  std::ofstream(root / "2011_09_26/calib_cam_to_cam.txt")
      << "calib_time: 09-Jan-2012 13:57:47\nS_rect_00: " << w << " " << h << "\nP_rect_00: " << p0
      << "\nS_rect_01: " << w << " " << h << "\nP_rect_01: " << p1 << "\n";
  ASSERT_EQ(importStereoFolder(drive.string(), out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(report.frames, 3);
  ASSERT_EQ(reader.open(out), ERROR_CODE::SUCCESS);
  EXPECT_NEAR(reader.metadata().calibration.T[0], -0.5372, 1e-3);
  reader.seek(2);
  ASSERT_EQ(reader.read(sbs, ts, index), ERROR_CODE::SUCCESS);
  EXPECT_EQ(ts - reader.metadata().time_origin_ns, 1200000000);  // across two seconds
}

// Middlebury 2014 and ETH3D pairs as published (odd sizes, "doffs= 53.271" spacing, baseline in
// millimetres): the left image stays exactly as it is and depth agrees with the true disparity.
TEST(KtrImport, MiddleburyAndEth3dPairsGiveTheirTrueDepth) {
  for (const char* scene :
       {"middlebury2014_quarter/ArtL", "middlebury2014_quarter/Adirondack", "eth3d_two_view/terrace"}) {
    SCOPED_TRACE(scene);
    MAPURA_REQUIRE_SHARED(dir, scene);
    const std::string out = mapura::test::scratchDir("import_pair") + "/pair.ktr";
    ImportOptions o;
    o.format = guessImportFormat(dir);
    EXPECT_EQ(o.format, ImportFormat::PAIRS);
    o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
    ImportReport report;
    ASSERT_EQ(importStereoFolder(dir, out, o, &report), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    EXPECT_EQ(report.frames, 1);
    StereoSample sample;
    std::string error;
    ASSERT_TRUE(loadStereoSample(dir, sample, error)) << error;

    Camera camera;
    InitParameters init;
    init.input.setFromKTRFile(out.c_str());
    init.depth_mode = DEPTH_MODE::QUALITY;
    init.coordinate_units = UNIT::METER;
    init.depth_minimum_distance = 0.3f;
    ASSERT_EQ(camera.open(init), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    ASSERT_EQ(camera.grab(), ERROR_CODE::SUCCESS);
    EXPECT_EQ(cv::norm(camera.state()->frame.left_bgr, sample.left_bgr, cv::NORM_INF), 0);
    Mat depth;
    ASSERT_EQ(camera.retrieveMeasure(depth, MEASURE::DEPTH), ERROR_CODE::SUCCESS);
    const cv::Mat z(int(depth.getHeight()), int(depth.getWidth()), CV_32F, depth.getPtr<float>(), depth.getStepBytes());
    ASSERT_EQ(z.size(), sample.gt_disparity_px.size());
    // The published disparity from depth: f * B / z - doffs, doffs = cx1 - cx0.
    const CalibrationParameters raw = camera.getCameraInformation().camera_configuration.calibration_parameters_raw;
    const double fB = raw.left_cam.fx * raw.baseline_m, doffs = raw.right_cam.cx - raw.left_cam.cx;
    std::vector<double> errors;
    for (int y = 0; y < z.rows; ++y)
      for (int x = 0; x < z.cols; ++x) {
        const float d = sample.gt_disparity_px.at<float>(y, x), e = z.at<float>(y, x);
        if (sample.eval_mask.at<uchar>(y, x) && std::isfinite(d) && std::isfinite(e))
          errors.push_back(std::abs(fB / e - doffs - d));
      }
    ASSERT_GT(errors.size(), size_t(z.total() / 3));
    std::sort(errors.begin(), errors.end());
    std::printf("%s: disparity error median %.3f px, 80th percentile %.3f px\n", scene, errors[errors.size() / 2],
                errors[errors.size() * 4 / 5]);
    // A misplaced right image (doffs) or a baseline in the wrong unit is tens of pixels off; ArtL's thin
    // structures leave a fifth of its pixels wrong in any mode.
    EXPECT_LT(errors[errors.size() / 2], 1.0);
  }
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
