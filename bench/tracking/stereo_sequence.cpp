#include "stereo_sequence.h"

#include <Eigen/Geometry>
#include <filesystem>
#include <fstream>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>

namespace mapura::bench {

namespace fs = std::filesystem;

bool StereoSequence::read(size_t i, cv::Mat& left, cv::Mat& right) const {
  if (i >= size()) return false;
  left = cv::imread(left_files[i], cv::IMREAD_GRAYSCALE);
  right = cv::imread(right_files[i], cv::IMREAD_GRAYSCALE);
  if (left.empty() || right.empty()) return false;
  if (!map_left_x.empty()) {
    cv::Mat l, r;
    cv::remap(left, l, map_left_x, map_left_y, cv::INTER_LINEAR);
    cv::remap(right, r, map_right_x, map_right_y, cv::INTER_LINEAR);
    left = l;
    right = r;
  }
  return true;
}

static std::vector<std::string> sortedPngs(const fs::path& dir) {
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec))
    if (e.path().extension() == ".png") files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

bool loadKittiSequence(const std::string& dir, StereoSequence& s, std::string& error) {
  s = StereoSequence();
  s.left_files = sortedPngs(fs::path(dir) / "image_l");
  s.right_files = sortedPngs(fs::path(dir) / "image_r");
  std::ifstream calib(fs::path(dir) / "calib.txt");
  double p0[12], p1[12];
  for (double& v : p0) calib >> v;
  for (double& v : p1) calib >> v;
  if (!calib || s.left_files.empty() || s.left_files.size() != s.right_files.size()) {
    error = "not a KITTI stereo folder: " + dir;
    return false;
  }
  s.calibration.fx = p0[0];
  s.calibration.fy = p0[5];
  s.calibration.cx = p0[2];
  s.calibration.cy = p0[6];
  s.calibration.baseline_m = -p1[3] / p1[0];
  const cv::Mat first = cv::imread(s.left_files[0], cv::IMREAD_GRAYSCALE);
  s.calibration.size = first.size();
  std::ifstream poses(fs::path(dir) / "poses.txt");
  for (size_t i = 0; i < s.left_files.size(); ++i) {
    s.t_s.push_back(0.1 * double(i));
    double m[12];
    for (double& v : m) poses >> v;
    if (!poses) break;
    pv::internal::StampedPose p;
    p.t_s = s.t_s.back();
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) p.T_world_camera.linear()(r, c) = m[r * 4 + c];
      p.T_world_camera.translation()[r] = m[r * 4 + 3];
    }
    // Re-orthonormalise the rotation written with 7 digits.
    p.T_world_camera.linear() = Eigen::Quaterniond(p.T_world_camera.linear()).normalized().toRotationMatrix();
    s.ground_truth.push_back(p);
  }
  return true;
}

namespace {

struct AslCamera {
  cv::Mat K, D;
  Eigen::Matrix4d T_body_sensor;
  cv::Size size;
};

bool readAslCamera(const fs::path& yaml, AslCamera& cam) {
  cv::FileStorage fs(yaml.string(), cv::FileStorage::READ);
  if (!fs.isOpened()) return false;
  std::vector<double> intr, dist, tbs, res;
  fs["intrinsics"] >> intr;
  fs["distortion_coefficients"] >> dist;
  fs["resolution"] >> res;
  fs["T_BS"]["data"] >> tbs;
  if (intr.size() != 4 || dist.size() != 4 || tbs.size() != 16 || res.size() != 2) return false;
  cam.K = (cv::Mat_<double>(3, 3) << intr[0], 0, intr[2], 0, intr[1], intr[3], 0, 0, 1);
  cam.D = (cv::Mat_<double>(1, 4) << dist[0], dist[1], dist[2], dist[3]);
  for (int i = 0; i < 16; ++i) cam.T_body_sensor(i / 4, i % 4) = tbs[size_t(i)];
  cam.size = cv::Size(int(res[0]), int(res[1]));
  return true;
}

}  // namespace

bool loadEurocSequence(const std::string& dir, const std::string& ground_truth_tum, StereoSequence& s,
                       std::string& error) {
  s = StereoSequence();
  const fs::path mav = fs::path(dir) / "mav0";
  AslCamera c0, c1;
  if (!readAslCamera(mav / "cam0" / "sensor.yaml", c0) || !readAslCamera(mav / "cam1" / "sensor.yaml", c1)) {
    error = "not an EuRoC/ASL folder: " + dir;
    return false;
  }
  s.left_files = sortedPngs(mav / "cam0" / "data");
  s.right_files = sortedPngs(mav / "cam1" / "data");
  if (s.left_files.empty() || s.left_files.size() != s.right_files.size()) {
    error = "left and right image counts differ in " + dir;
    return false;
  }
  for (const std::string& f : s.left_files) s.t_s.push_back(std::stod(fs::path(f).stem().string()) * 1e-9);

  // OpenCV wants the motion from camera 0 to camera 1: p1 = R p0 + T.
  const Eigen::Matrix4d T_c1_c0 = c1.T_body_sensor.inverse() * c0.T_body_sensor;
  cv::Mat R(3, 3, CV_64F), T(3, 1, CV_64F);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) R.at<double>(r, c) = T_c1_c0(r, c);
    T.at<double>(r) = T_c1_c0(r, 3);
  }
  cv::Mat R1, R2, P1, P2, Q;
  cv::stereoRectify(c0.K, c0.D, c1.K, c1.D, c0.size, R, T, R1, R2, P1, P2, Q, cv::CALIB_ZERO_DISPARITY, 0);
  cv::initUndistortRectifyMap(c0.K, c0.D, R1, P1, c0.size, CV_32FC1, s.map_left_x, s.map_left_y);
  cv::initUndistortRectifyMap(c1.K, c1.D, R2, P2, c1.size, CV_32FC1, s.map_right_x, s.map_right_y);
  s.calibration.fx = P1.at<double>(0, 0);
  s.calibration.fy = P1.at<double>(1, 1);
  s.calibration.cx = P1.at<double>(0, 2);
  s.calibration.cy = P1.at<double>(1, 2);
  s.calibration.baseline_m = -P2.at<double>(0, 3) / P2.at<double>(0, 0);
  s.calibration.size = c0.size;

  // Rectified left camera in the world: T_world_body * T_body_cam0 * R1^T.
  pv::internal::Trajectory body;
  std::string why;
  if (!pv::internal::readTumTrajectory(ground_truth_tum, body, why)) {
    error = why;
    return false;
  }
  Eigen::Isometry3d T_cam0_rect = Eigen::Isometry3d::Identity();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) T_cam0_rect.linear()(r, c) = R1.at<double>(c, r);
  const Eigen::Isometry3d T_body_cam0(c0.T_body_sensor);
  for (const auto& p : body) {
    pv::internal::StampedPose q = p;
    q.T_world_camera = p.T_world_camera * T_body_cam0 * T_cam0_rect;
    s.ground_truth.push_back(q);
  }
  return true;
}

}  // namespace mapura::bench
