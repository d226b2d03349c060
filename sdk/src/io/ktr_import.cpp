#include "io/internal/ktr_import.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>

#include "core/internal/error.h"
#include "input/internal/rectifier.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_side_files.h"

namespace pv::internal {

namespace {

namespace fs = std::filesystem;

struct StereoFolder {
  std::vector<std::string> left, right;  // image paths, frame order
  std::vector<int64_t> timestamps_ns;
  StereoCalibration calibration;
  double fps = 30;
  // Ground truth: T_world_leftcamera (raw left, IMAGE axes) per frame, where known.
  std::vector<int> gt_frames;
  std::vector<Eigen::Matrix4d> gt_poses;
};

const Eigen::Matrix4d kFlip = Eigen::Vector4d(1, -1, -1, 1).asDiagonal();

std::vector<std::string> sortedImages(const fs::path& dir) {
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec)) {
    const std::string ext = e.path().extension().string();
    if (ext == ".png" || ext == ".jpg" || ext == ".jpeg" || ext == ".pgm" || ext == ".ppm")
      files.push_back(e.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool readSeq(const cv::FileNode& node, std::vector<double>& out) {
  out.clear();
  if (!node.isSeq()) return false;
  for (const cv::FileNode& v : node) {
    if (!v.isReal() && !v.isInt()) return false;
    out.push_back(double(v));
  }
  return true;
}

ERROR_CODE readEurocCamera(const fs::path& cam, EyeCalibration& eye, Eigen::Matrix4d& T_body_cam, int& w, int& h,
                           double& fps) {
  try {
    cv::FileStorage fs(cam / "sensor.yaml", cv::FileStorage::READ);
    std::vector<double> k, d, res, t;
    if (!fs.isOpened() || !readSeq(fs["intrinsics"], k) || k.size() != 4 ||
        !readSeq(fs["distortion_coefficients"], d) || d.size() < 4 || !readSeq(fs["resolution"], res) ||
        res.size() != 2 || !readSeq(fs["T_BS"]["data"], t) || t.size() != 16)
      return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, (cam / "sensor.yaml").string() + " lacks the camera model");
    eye = {k[0], k[1], k[2], k[3], {d[0], d[1], d[2], d[3], d.size() > 4 ? d[4] : 0.0}};
    for (int i = 0; i < 16; ++i) T_body_cam(i / 4, i % 4) = t[size_t(i)];
    w = int(res[0]);
    h = int(res[1]);
    if (fs["rate_hz"].isInt() || fs["rate_hz"].isReal()) fps = double(fs["rate_hz"]);
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, (cam / "sensor.yaml").string() + ": " + e.what());
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE readEurocList(const fs::path& cam, std::vector<int64_t>& ts, std::vector<std::string>& files) {
  std::ifstream in(cam / "data.csv");
  if (!in) return fail(ERROR_CODE::FILE_IO_ERROR, "cannot read " + (cam / "data.csv").string());
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    const size_t comma = line.find(',');
    if (comma == std::string::npos) return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "malformed line in data.csv");
    std::string name = line.substr(comma + 1);
    name.erase(std::remove_if(name.begin(), name.end(), [](char c) { return c == '\r' || c == ' '; }), name.end());
    ts.push_back(std::strtoll(line.c_str(), nullptr, 10));
    files.push_back((cam / "data" / name).string());
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE loadEuroc(const fs::path& dir, StereoFolder& f) {
  const fs::path cam0 = dir / "mav0/cam0", cam1 = dir / "mav0/cam1";
  Eigen::Matrix4d B0 = Eigen::Matrix4d::Identity(), B1 = B0;
  int w0 = 0, h0 = 0, w1 = 0, h1 = 0;
  std::error_code ec;
  ERROR_CODE err = readEurocCamera(cam0, f.calibration.left, B0, w0, h0, f.fps);
  if (err == ERROR_CODE::SUCCESS) err = readEurocCamera(cam1, f.calibration.right, B1, w1, h1, f.fps);
  if (err != ERROR_CODE::SUCCESS) return err;
  if (w0 != w1 || h0 != h1) return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the two cameras differ in size");
  f.calibration.width = w0;
  f.calibration.height = h0;
  const Eigen::Matrix4d T_right_left = B1.inverse() * B0;  // x_right = R x_left + T
  for (int i = 0; i < 9; ++i) f.calibration.R[size_t(i)] = T_right_left(i / 3, i % 3);
  for (int i = 0; i < 3; ++i) f.calibration.T[size_t(i)] = T_right_left(i, 3);
  // Frames are the timestamps both cameras have.
  std::vector<int64_t> ts0, ts1;
  std::vector<std::string> files0, files1;
  if ((err = readEurocList(cam0, ts0, files0)) != ERROR_CODE::SUCCESS) return err;
  if ((err = readEurocList(cam1, ts1, files1)) != ERROR_CODE::SUCCESS) return err;
  for (size_t i = 0; i < ts0.size(); ++i) {
    const auto it = std::find(ts1.begin(), ts1.end(), ts0[i]);
    if (it == ts1.end() || !fs::exists(files0[i], ec) || !fs::exists(files1[size_t(it - ts1.begin())], ec)) continue;
    f.timestamps_ns.push_back(ts0[i]);
    f.left.push_back(files0[i]);
    f.right.push_back(files1[size_t(it - ts1.begin())]);
  }
  // Ground truth: a TUM file of body poses beside mav0 (the first *gt*.txt found).
  for (const auto& e : fs::directory_iterator(dir, ec)) {
    const std::string name = e.path().filename().string();
    if (name.find("gt") == std::string::npos || e.path().extension() != ".txt") continue;
    std::vector<double> t;
    std::vector<Eigen::Matrix4d> body;
    if (!readTumTrajectory(e.path().string(), t, body) || t.empty()) continue;
    for (size_t i = 0; i < f.timestamps_ns.size(); ++i) {
      const double ti = double(f.timestamps_ns[i]) * 1e-9;
      const auto it = std::lower_bound(t.begin(), t.end(), ti - 0.005);
      if (it == t.end() || std::abs(*it - ti) > 0.005) continue;
      f.gt_frames.push_back(int(i));
      f.gt_poses.push_back(body[size_t(it - t.begin())] * B0);
    }
    break;
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE loadKitti(const fs::path& dir, StereoFolder& f) {
  std::ifstream calib(dir / "calib.txt");
  double P[2][12];
  for (auto& row : P) {
    std::string line;
    if (!std::getline(calib, line)) return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "calib.txt needs two lines");
    if (line.find(':') != std::string::npos) line = line.substr(line.find(':') + 1);
    std::istringstream in(line);
    for (double& v : row)
      if (!(in >> v)) return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "calib.txt lines need 12 numbers");
  }
  f.left = sortedImages(dir / "image_l");
  f.right = sortedImages(dir / "image_r");
  if (f.left.empty()) {
    f.left = sortedImages(dir / "image_0");
    f.right = sortedImages(dir / "image_1");
  }
  f.fps = 10;
  f.calibration.left = {P[0][0], P[0][5], P[0][2], P[0][6], {}};
  f.calibration.right = {P[1][0], P[1][5], P[1][2], P[1][6], {}};
  f.calibration.T = {P[1][3] / P[1][0], 0, 0};
  std::ifstream poses(dir / "poses.txt");
  std::string line;
  for (int i = 0; std::getline(poses, line); ++i) {
    std::istringstream in(line);
    Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
    bool ok = true;
    for (int k = 0; k < 12 && ok; ++k) ok = bool(in >> T(k / 4, k % 4));
    if (!ok)
      return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "poses.txt line " + std::to_string(i + 1) + " is malformed");
    f.gt_frames.push_back(i);
    f.gt_poses.push_back(T);
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE loadPairs(const fs::path& dir, StereoFolder& f) {
  f.left = sortedImages(dir / "left");
  f.right = sortedImages(dir / "right");
  ERROR_CODE err = readCalibrationYaml((dir / "calibration.yml").string(), f.calibration);
  if (err != ERROR_CODE::SUCCESS) return err;
  std::vector<double> t;
  std::vector<Eigen::Matrix4d> poses;
  if (fs::exists(dir / "gt.txt")) {
    if (!readTumTrajectory((dir / "gt.txt").string(), t, poses))
      return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "gt.txt is not a TUM trajectory");
    for (size_t i = 0; i < poses.size(); ++i) {
      f.gt_frames.push_back(int(i));
      f.gt_poses.push_back(kFlip * poses[i] * kFlip);  // TUM side files are right-handed y-up
    }
  }
  return ERROR_CODE::SUCCESS;
}

cv::Mat loadPair(const std::string& left, const std::string& right, int w, int h) {
  cv::Mat l = cv::imread(left, cv::IMREAD_COLOR), r = cv::imread(right, cv::IMREAD_COLOR), sbs;
  if (l.cols != w || l.rows != h || r.cols != w || r.rows != h) return cv::Mat();
  cv::hconcat(l, r, sbs);
  return sbs;
}

}  // namespace

ERROR_CODE importStereoFolder(const std::string& dir, const std::string& output, const ImportOptions& options,
                              ImportReport* report) {
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) return fail(ERROR_CODE::FILE_IO_ERROR, dir + " is not a folder");
  StereoFolder f;
  ERROR_CODE err = options.format == ImportFormat::EUROC   ? loadEuroc(dir, f)
                   : options.format == ImportFormat::KITTI ? loadKitti(dir, f)
                                                           : loadPairs(dir, f);
  if (err != ERROR_CODE::SUCCESS) return err;
  if (f.left.empty() || f.left.size() != f.right.size())
    return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, dir + ": no left/right image pairs of equal count");
  const cv::Mat first = cv::imread(f.left[0], cv::IMREAD_UNCHANGED);
  if (first.empty()) return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "cannot read " + f.left[0]);
  const int w = first.cols, h = first.rows;
  if (f.calibration.width == 0) {
    f.calibration.width = w;
    f.calibration.height = h;
  }
  if (f.calibration.width != w || f.calibration.height != h)
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the calibration is for another image size");
  Rectifier rectifier;
  if ((err = rectifier.init(f.calibration)) != ERROR_CODE::SUCCESS) return err;
  if (w % 2 || h % 2) return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "images need an even width and height");
  const double fps = options.fps > 0 ? options.fps : f.fps;
  if (f.timestamps_ns.empty())
    for (size_t i = 0; i < f.left.size(); ++i) f.timestamps_ns.push_back(std::llround(double(i) * 1e9 / fps));

  KtrMetadata m;
  m.serial_number = options.serial_number;
  m.width = w;
  m.height = h;
  m.fps = fps;
  m.time_origin_ns = f.timestamps_ns[0];
  m.calibration = f.calibration;
  KtrWriter writer;
  if ((err = writer.open(output, m, options.codec)) != ERROR_CODE::SUCCESS) return err;
  for (size_t i = 0; i < f.left.size(); ++i) {
    const cv::Mat sbs = loadPair(f.left[i], f.right[i], w, h);
    if (sbs.empty()) return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "cannot read the pair " + f.left[i]);
    if ((err = writer.write(sbs, f.timestamps_ns[i])) != ERROR_CODE::SUCCESS) return err;
  }
  if ((err = writer.close()) != ERROR_CODE::SUCCESS) return err;

  // Ground truth of the rectified left camera, rebased on the first known pose, y-up axes.
  int written = 0;
  if (!f.gt_poses.empty()) {
    Eigen::Matrix4d raw_from_rect = Eigen::Matrix4d::Identity();
    for (int i = 0; i < 9; ++i) raw_from_rect(i % 3, i / 3) = rectifier.leftRotation().at<double>(i);  // R1^T
    const Eigen::Matrix4d first_inv = (f.gt_poses[0] * raw_from_rect).inverse();
    std::vector<int64_t> ts;
    std::vector<Eigen::Matrix4d> poses;
    for (size_t k = 0; k < f.gt_poses.size(); ++k) {
      if (f.gt_frames[k] >= int(f.timestamps_ns.size())) break;
      ts.push_back(f.timestamps_ns[size_t(f.gt_frames[k])]);
      poses.push_back(kFlip * (first_inv * f.gt_poses[k] * raw_from_rect) * kFlip);
    }
    if (!writeTumTrajectory(sideFileStem(output) + ".gt.txt", ts, poses))
      return fail(ERROR_CODE::FILE_IO_ERROR, "cannot write " + sideFileStem(output) + ".gt.txt");
    written = int(poses.size());
  }
  if (report) *report = ImportReport{int(f.left.size()), written};
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal
