// EuRoC MAV / ASL folders as the dataset publishes them: mav0/cam0 and mav0/cam1, each with a
// sensor.yaml (no "%YAML" first line in the published files), a data.csv of "timestamp,filename"
// lines and the images in data/; the trajectory in mav0/state_groundtruth_estimate0/data.csv or a
// TUM file of body poses beside mav0.
#include <Eigen/Geometry>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <opencv2/core.hpp>
#include <sstream>

#include "core/internal/error.h"
#include "io/internal/ktr_side_files.h"
#include "io/internal/stereo_folder.h"

namespace pv::internal {

namespace {

namespace fs = std::filesystem;

bool readSeq(const cv::FileNode& node, std::vector<double>& out) {
  out.clear();
  if (!node.isSeq()) return false;
  for (const cv::FileNode& v : node) {
    if (!v.isReal() && !v.isInt()) return false;
    out.push_back(double(v));
  }
  return true;
}

std::string readText(const fs::path& path, bool& ok) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  ok = bool(in) || in.eof();
  return text.str();
}

// OpenCV's YAML parser wants a "%YAML" directive first; the ASL files are plain YAML without one.
ERROR_CODE readSensorYaml(const fs::path& path, EyeCalibration& eye, Eigen::Matrix4d& T_body_cam, int& w, int& h,
                          double& fps) {
  const std::string where = path.string();
  bool ok = false;
  std::string text = readText(path, ok);
  if (!ok || text.empty()) return fail(ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE, "cannot read " + where);
  if (text.compare(0, 5, "%YAML") != 0) text = "%YAML:1.0\n" + text;
  try {
    cv::FileStorage fs(text, cv::FileStorage::READ | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_YAML);
    std::vector<double> k, d, res, t;
    if (!fs.isOpened() || !readSeq(fs["intrinsics"], k) || k.size() != 4 ||
        !readSeq(fs["distortion_coefficients"], d) || d.size() < 4 || d.size() > 5 || !readSeq(fs["resolution"], res) ||
        res.size() != 2 || !readSeq(fs["T_BS"]["data"], t) || t.size() != 16)
      return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, where + " lacks the camera model");
    for (const char* key : {"camera_model", "distortion_model"}) {
      const cv::FileNode node = fs[key];
      if (!node.isString()) continue;
      const std::string model = node.string();
      if (model != "pinhole" && model != "radial-tangential" && model != "radtan")
        return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, where + ": the " + key + " " + model + " is not supported");
    }
    eye = {k[0], k[1], k[2], k[3], {d[0], d[1], d[2], d[3], d.size() > 4 ? d[4] : 0.0}};
    for (int i = 0; i < 16; ++i) T_body_cam(i / 4, i % 4) = t[size_t(i)];
    w = int(res[0]);
    h = int(res[1]);
    if (fs["rate_hz"].isInt() || fs["rate_hz"].isReal()) fps = double(fs["rate_hz"]);
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, where + ": " + e.what());
  }
  return ERROR_CODE::SUCCESS;
}

std::string trimmed(const std::string& s) {
  const size_t a = s.find_first_not_of(" \t\r\n");
  if (a == std::string::npos) return std::string();
  return s.substr(a, s.find_last_not_of(" \t\r\n") - a + 1);
}

// data.csv: frames by timestamp (ns) whose image file exists.
ERROR_CODE readFrameList(const fs::path& cam, std::map<int64_t, std::string>& frames) {
  std::ifstream in(cam / "data.csv");
  if (!in) return fail(ERROR_CODE::FILE_IO_ERROR, "cannot read " + (cam / "data.csv").string());
  std::string line;
  std::error_code ec;
  for (int number = 1; std::getline(in, line); ++number) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#') continue;
    const size_t comma = line.find(',');
    const std::string stamp = trimmed(line.substr(0, comma));
    int64_t t = 0;
    const auto parsed = std::from_chars(stamp.data(), stamp.data() + stamp.size(), t);
    if (comma == std::string::npos || stamp.empty() || parsed.ec != std::errc() ||
        parsed.ptr != stamp.data() + stamp.size() || t < 0)
      return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT,
                  (cam / "data.csv").string() + " line " + std::to_string(number) + " is not \"timestamp,filename\"");
    const fs::path image = cam / "data" / trimmed(line.substr(comma + 1));
    if (fs::is_regular_file(image, ec)) frames[t] = image.string();
  }
  return ERROR_CODE::SUCCESS;
}

// mav0/state_groundtruth_estimate0/data.csv: "timestamp, p x y z, q w x y z, ..." (body in world).
bool readAslTrajectory(const fs::path& csv, std::vector<double>& t_s, std::vector<Eigen::Matrix4d>& poses) {
  std::ifstream in(csv);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#') continue;
    for (char& c : line)
      if (c == ',') c = ' ';
    std::istringstream fields(line);
    long long ns;
    double x, y, z, qw, qx, qy, qz;
    if (!(fields >> ns >> x >> y >> z >> qw >> qx >> qy >> qz)) return false;
    Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
    T.topLeftCorner<3, 3>() = Eigen::Quaterniond(qw, qx, qy, qz).normalized().toRotationMatrix();
    T.topRightCorner<3, 1>() = Eigen::Vector3d(x, y, z);
    t_s.push_back(double(ns) * 1e-9);
    poses.push_back(T);
  }
  return !poses.empty();
}

// The body trajectory: the dataset's own estimate, else the first TUM "*gt*.txt" beside mav0.
bool readBodyTrajectory(const fs::path& dir, std::vector<double>& t_s, std::vector<Eigen::Matrix4d>& poses) {
  if (readAslTrajectory(dir / "mav0/state_groundtruth_estimate0/data.csv", t_s, poses)) return true;
  std::error_code ec;
  std::vector<fs::path> candidates;
  for (const auto& e : fs::directory_iterator(dir, ec))
    if (e.path().filename().string().find("gt") != std::string::npos && e.path().extension() == ".txt")
      candidates.push_back(e.path());
  std::sort(candidates.begin(), candidates.end());
  for (const fs::path& p : candidates) {
    t_s.clear();
    poses.clear();
    if (readTumTrajectory(p.string(), t_s, poses) && !poses.empty()) return true;
  }
  return false;
}

}  // namespace

ERROR_CODE loadEurocFolder(const std::string& dir_text, StereoFolder& f) {
  const fs::path dir(dir_text), cam0 = dir / "mav0/cam0", cam1 = dir / "mav0/cam1";
  Eigen::Matrix4d B0 = Eigen::Matrix4d::Identity(), B1 = B0;
  int w0 = 0, h0 = 0, w1 = 0, h1 = 0;
  ERROR_CODE err = readSensorYaml(cam0 / "sensor.yaml", f.calibration.left, B0, w0, h0, f.nominal_fps);
  if (err == ERROR_CODE::SUCCESS)
    err = readSensorYaml(cam1 / "sensor.yaml", f.calibration.right, B1, w1, h1, f.nominal_fps);
  if (err != ERROR_CODE::SUCCESS) return err;
  if (w0 != w1 || h0 != h1) return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the two cameras differ in size");
  f.calibration.width = w0;
  f.calibration.height = h0;
  const Eigen::Matrix4d T_right_left = B1.inverse() * B0;  // x_right = R x_left + T
  for (int i = 0; i < 9; ++i) f.calibration.R[size_t(i)] = T_right_left(i / 3, i % 3);
  for (int i = 0; i < 3; ++i) f.calibration.T[size_t(i)] = T_right_left(i, 3);

  // Frames are the timestamps both cameras have an image for.
  std::map<int64_t, std::string> frames0, frames1;
  if ((err = readFrameList(cam0, frames0)) != ERROR_CODE::SUCCESS) return err;
  if ((err = readFrameList(cam1, frames1)) != ERROR_CODE::SUCCESS) return err;
  for (const auto& [t, left] : frames0) {
    const auto right = frames1.find(t);
    if (right == frames1.end()) continue;
    f.timestamps_ns.push_back(t);
    f.left.push_back(left);
    f.right.push_back(right->second);
  }

  std::vector<double> t_s;
  std::vector<Eigen::Matrix4d> body;
  if (!readBodyTrajectory(dir, t_s, body)) return ERROR_CODE::SUCCESS;
  std::vector<size_t> order(t_s.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return t_s[a] < t_s[b]; });
  std::vector<double> times;
  std::vector<Eigen::Matrix4d> sorted;
  for (size_t i : order) {
    times.push_back(t_s[i]);
    sorted.push_back(body[i]);
  }
  f.poses.assign(f.size(), Eigen::Matrix4d::Identity());
  f.has_pose.assign(f.size(), 0);
  for (size_t i = 0; i < f.size(); ++i) {
    Eigen::Matrix4d T_world_body;
    if (!interpolatePose(times, sorted, double(f.timestamps_ns[i]) * 1e-9, 0.05, T_world_body)) continue;
    f.poses[i] = T_world_body * B0;
    f.has_pose[i] = 1;
  }
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal
