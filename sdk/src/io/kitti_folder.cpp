// KITTI odometry and raw folders as published: rectified pairs of any size (odd ones included),
// projection matrices in calib.txt ("P0: ..." lines, or bare rows as some copies carry them) or
// calib_cam_to_cam.txt ("P_rect_00: ..."), capture times in times.txt or timestamps.txt, and the
// ground truth as rows of a 3x4 T_world_cam0 in poses.txt or ../../poses/<sequence>.txt.
#include <Eigen/Geometry>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "core/internal/error.h"
#include "io/internal/stereo_folder.h"

namespace pv::internal {

namespace {

namespace fs = std::filesystem;

using Projection = std::array<double, 12>;

struct CalibFile {
  std::map<std::string, std::vector<double>> named;
  std::vector<std::vector<double>> rows;  ///< lines without a name, in order
};

bool readCalibFile(const fs::path& path, CalibFile& out) {
  std::ifstream in(path);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    std::string name;
    const size_t colon = line.find(':');
    if (colon != std::string::npos) {
      name = line.substr(0, colon);
      name.erase(std::remove_if(name.begin(), name.end(), [](unsigned char c) { return std::isspace(c); }), name.end());
      line = line.substr(colon + 1);
    }
    std::istringstream fields(line);
    std::vector<double> values;
    for (double v; fields >> v;) values.push_back(v);
    if (!fields.eof()) continue;  // text such as calib_time: 09-Jan-2012 13:57:47
    if (values.empty()) continue;
    if (name.empty())
      out.rows.push_back(values);
    else
      out.named[name] = values;
  }
  return true;
}

// Projection matrix of camera `k`: "Pk", "P_rect_0k", or the k-th bare row.
bool projection(const CalibFile& c, int k, Projection& P) {
  std::vector<double> v;
  for (const std::string& name : {"P" + std::to_string(k), "P_rect_0" + std::to_string(k)}) {
    auto it = c.named.find(name);
    if (it != c.named.end()) v = it->second;
  }
  if (v.empty() && size_t(k) < c.rows.size()) v = c.rows[size_t(k)];
  if (v.size() != 12) return false;
  std::copy(v.begin(), v.end(), P.begin());
  return P[0] > 0 && P[5] > 0;
}

// Offset of camera k from the rectified camera 0, in its frame: P_k = K_k [I | t_k].
Eigen::Vector3d offset(const Projection& P) {
  Eigen::Matrix3d K;
  K << P[0], P[1], P[2], P[4], P[5], P[6], P[8], P[9], P[10];
  return K.inverse() * Eigen::Vector3d(P[3], P[7], P[11]);
}

struct ImagePair {
  const char* left;
  const char* right;
  int left_camera, right_camera;
};

constexpr ImagePair kPairs[] = {{"image_0", "image_1", 0, 1},
                                {"image_l", "image_r", 0, 1},
                                {"image_00/data", "image_01/data", 0, 1},
                                {"image_2", "image_3", 2, 3},
                                {"image_02/data", "image_03/data", 2, 3}};

// Frame number of a KITTI image name (000123.png -> 123), or -1.
long frameNumber(const std::string& path) {
  const std::string stem = fs::path(path).stem().string();
  if (stem.empty() || stem.size() > 12 || stem.find_first_not_of("0123456789") != std::string::npos) return -1;
  return std::stol(stem);
}

// Seconds since the Unix epoch of "YYYY-MM-DD HH:MM:SS.fffffffff" (raw timestamps.txt).
bool parseDateTime(const std::string& text, int64_t& ns) {
  int y, mo, d, h, mi;
  char frac[16] = {0};
  int s;
  if (std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d.%15[0-9]", &y, &mo, &d, &h, &mi, &s, frac) < 6) return false;
  // Days from civil (proleptic Gregorian).
  y -= mo <= 2;
  const int era = (y >= 0 ? y : y - 399) / 400;
  const int yoe = y - era * 400;
  const int doy = (153 * (mo + (mo > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t days = int64_t(era) * 146097 + yoe * 365 + yoe / 4 - yoe / 100 + doy - 719468;
  std::string f(frac);
  f.resize(9, '0');
  ns = ((days * 24 + h) * 60 + mi) * 60 + s;
  ns = ns * 1000000000LL + std::stoll(f);
  return true;
}

// Capture times of every frame number: times.txt (seconds) or image_00/timestamps.txt (dates).
ERROR_CODE readTimes(const fs::path& dir, std::vector<int64_t>& ns) {
  std::error_code ec;
  const bool seconds = fs::exists(dir / "times.txt", ec);
  const fs::path path = seconds ? dir / "times.txt" : dir / "image_00/timestamps.txt";
  std::ifstream in(path);
  std::string line;
  for (int number = 1; in && std::getline(in, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    int64_t t = 0;
    char* end = nullptr;
    const double s = std::strtod(line.c_str(), &end);
    const bool ok = seconds ? end != line.c_str() && std::isfinite(s) && std::abs(s) < 1e10 : parseDateTime(line, t);
    if (!ok)
      return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT,
                  path.filename().string() + " line " + std::to_string(number) + " is not a time");
    ns.push_back(seconds ? std::llround(s * 1e9) : t);
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE readPoses(const fs::path& dir, std::vector<Eigen::Matrix4d>& poses) {
  fs::path path = dir / "poses.txt";
  std::error_code ec;
  if (!fs::exists(path, ec)) {
    const fs::path canonical = fs::weakly_canonical(dir, ec);
    path = canonical.parent_path().parent_path() / "poses" / (canonical.filename().string() + ".txt");
  }
  std::ifstream in(path);
  std::string line;
  for (int i = 0; in && std::getline(in, line); ++i) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) break;
    std::istringstream fields(line);
    Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
    bool ok = true;
    for (int k = 0; k < 12 && ok; ++k) ok = bool(fields >> T(k / 4, k % 4));
    if (!ok)
      return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT,
                  path.filename().string() + " line " + std::to_string(i + 1) + " is not 12 numbers");
    // The published rotations carry a few digits only: make them orthonormal again.
    T.topLeftCorner<3, 3>() =
        Eigen::Quaterniond(Eigen::Matrix3d(T.topLeftCorner<3, 3>())).normalized().toRotationMatrix();
    poses.push_back(T);
  }
  return ERROR_CODE::SUCCESS;
}

}  // namespace

ERROR_CODE loadKittiFolder(const std::string& dir_text, StereoFolder& f) {
  const fs::path dir(dir_text);
  std::error_code ec;
  const ImagePair* pair = nullptr;
  for (const ImagePair& p : kPairs)
    if (!pair && fs::is_directory(dir / p.left, ec) && fs::is_directory(dir / p.right, ec)) pair = &p;
  if (!pair) return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, dir_text + " holds no KITTI image folders");

  CalibFile calib;
  bool have_calib = readCalibFile(dir / "calib.txt", calib);
  if (!have_calib)
    for (const fs::path& p : {dir / "calib_cam_to_cam.txt", dir.parent_path() / "calib_cam_to_cam.txt"})
      if (!have_calib) have_calib = readCalibFile(p, calib);
  if (!have_calib) return fail(ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE, dir_text + " has no calib.txt");
  Projection Pl, Pr;
  if (!projection(calib, pair->left_camera, Pl) || !projection(calib, pair->right_camera, Pr))
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the calibration lacks the projections of cameras " +
                                                          std::to_string(pair->left_camera) + " and " +
                                                          std::to_string(pair->right_camera));
  f.calibration.left = {Pl[0], Pl[5], Pl[2], Pl[6], {}};
  f.calibration.right = {Pr[0], Pr[5], Pr[2], Pr[6], {}};
  const Eigen::Vector3d t_left = offset(Pl), t_right = offset(Pr);
  // Rectified pair: the right eye only moves along x.
  f.calibration.T = {t_right.x() - t_left.x(), 0, 0};
  const auto size = calib.named.find("S_rect_0" + std::to_string(pair->left_camera));
  if (size != calib.named.end() && size->second.size() == 2) {
    f.calibration.width = int(std::lround(size->second[0]));
    f.calibration.height = int(std::lround(size->second[1]));
  }
  f.nominal_fps = 10;

  std::vector<int64_t> times;
  ERROR_CODE err = readTimes(dir, times);
  if (err != ERROR_CODE::SUCCESS) return err;
  std::vector<Eigen::Matrix4d> poses;
  if ((err = readPoses(dir, poses)) != ERROR_CODE::SUCCESS) return err;
  // The ground truth is camera 0's; the left camera sits at -t_left from it.
  Eigen::Matrix4d T_cam0_left = Eigen::Matrix4d::Identity();
  T_cam0_left.topRightCorner<3, 1>() = -t_left;

  const std::vector<std::string> lefts = sortedImageFiles((dir / pair->left).string());
  for (size_t i = 0; i < lefts.size(); ++i) {
    const fs::path right = dir / pair->right / fs::path(lefts[i]).filename();
    if (!fs::is_regular_file(right, ec)) continue;
    const long number = frameNumber(lefts[i]) >= 0 ? frameNumber(lefts[i]) : long(i);
    if (!times.empty()) {
      if (size_t(number) >= times.size())
        return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "the times list has no line for " + lefts[i]);
      f.timestamps_ns.push_back(times[size_t(number)]);
    }
    f.left.push_back(lefts[i]);
    f.right.push_back(right.string());
    const bool known = size_t(number) < poses.size();
    f.poses.push_back(known ? Eigen::Matrix4d(poses[size_t(number)] * T_cam0_left) : Eigen::Matrix4d::Identity());
    f.has_pose.push_back(known);
  }
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal
