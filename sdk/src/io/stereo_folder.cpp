#include "io/internal/stereo_folder.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <filesystem>

#include "core/internal/error.h"

namespace pv::internal {

namespace fs = std::filesystem;

bool StereoFolder::hasGroundTruth() const { return std::find(has_pose.begin(), has_pose.end(), 1) != has_pose.end(); }

std::vector<std::string> sortedImageFiles(const std::string& dir) {
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec)) {
    std::string ext = e.path().extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    if (ext == ".png" || ext == ".jpg" || ext == ".jpeg" || ext == ".pgm" || ext == ".ppm")
      files.push_back(e.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

ImportFormat guessImportFormat(const std::string& dir) {
  std::error_code ec;
  const fs::path d(dir);
  if (fs::is_directory(d / "mav0", ec)) return ImportFormat::EUROC;
  for (const char* sub : {"image_0", "image_l", "image_2", "image_00"})
    if (fs::is_directory(d / sub, ec)) return ImportFormat::KITTI;
  return ImportFormat::PAIRS;
}

ERROR_CODE loadStereoFolder(const std::string& dir, ImportFormat format, StereoFolder& folder) {
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) return fail(ERROR_CODE::FILE_IO_ERROR, dir + " is not a folder");
  folder = StereoFolder();
  const ERROR_CODE err = format == ImportFormat::EUROC   ? loadEurocFolder(dir, folder)
                         : format == ImportFormat::KITTI ? loadKittiFolder(dir, folder)
                                                         : loadPairFolder(dir, folder);
  if (err != ERROR_CODE::SUCCESS) return err;
  if (folder.left.empty() || folder.left.size() != folder.right.size())
    return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, dir + ": no left/right image pairs of equal count");
  if (!folder.timestamps_ns.empty() && folder.timestamps_ns.size() != folder.left.size())
    return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, dir + ": the timestamps do not match the images");
  folder.poses.resize(folder.left.size(), Eigen::Matrix4d::Identity());
  folder.has_pose.resize(folder.left.size(), 0);
  return ERROR_CODE::SUCCESS;
}

void selectFrames(StereoFolder& f, int every, int first) {
  every = std::max(1, every);
  const size_t n = f.size();
  size_t kept = 0;
  for (size_t i = 0; i < n; i += size_t(every)) {
    if (first > 0 && kept == size_t(first)) break;
    f.left[kept] = f.left[i];
    f.right[kept] = f.right[i];
    if (!f.timestamps_ns.empty()) f.timestamps_ns[kept] = f.timestamps_ns[i];
    if (i < f.poses.size()) {
      f.poses[kept] = f.poses[i];
      f.has_pose[kept] = f.has_pose[i];
    }
    ++kept;
  }
  f.left.resize(kept);
  f.right.resize(kept);
  if (!f.timestamps_ns.empty()) f.timestamps_ns.resize(kept);
  f.poses.resize(std::min(kept, f.poses.size()));
  f.has_pose.resize(std::min(kept, f.has_pose.size()));
}

void fillMissingTimestamps(StereoFolder& f, double fps) {
  if (!f.timestamps_ns.empty()) return;
  const double rate = fps > 0 ? fps : f.nominal_fps > 0 ? f.nominal_fps : 30.0;
  for (size_t i = 0; i < f.size(); ++i) f.timestamps_ns.push_back(std::llround(double(i) * 1e9 / rate));
  f.nominal_fps = rate;
}

double frameRate(const StereoFolder& f) {
  std::vector<int64_t> steps;
  for (size_t i = 1; i < f.timestamps_ns.size(); ++i)
    if (f.timestamps_ns[i] > f.timestamps_ns[i - 1]) steps.push_back(f.timestamps_ns[i] - f.timestamps_ns[i - 1]);
  if (steps.empty()) return f.nominal_fps > 0 ? f.nominal_fps : 30.0;
  std::nth_element(steps.begin(), steps.begin() + long(steps.size() / 2), steps.end());
  // Milli-hertz: clocks a few microseconds off their nominal step still read 20 Hz.
  return std::round(1e12 / double(steps[steps.size() / 2])) / 1000.0;
}

bool interpolatePose(const std::vector<double>& times_s, const std::vector<Eigen::Matrix4d>& poses, double t_s,
                     double max_gap_s, Eigen::Matrix4d& pose) {
  if (times_s.empty() || times_s.size() != poses.size()) return false;
  const size_t hi = size_t(std::lower_bound(times_s.begin(), times_s.end(), t_s) - times_s.begin());
  constexpr double kSame = 1e-3;
  if (hi < times_s.size() && times_s[hi] - t_s < kSame) {
    pose = poses[hi];
    return true;
  }
  if (hi > 0 && t_s - times_s[hi - 1] < kSame) {
    pose = poses[hi - 1];
    return true;
  }
  if (hi == 0 || hi == times_s.size() || times_s[hi] - times_s[hi - 1] > max_gap_s) return false;
  const double a = (t_s - times_s[hi - 1]) / (times_s[hi] - times_s[hi - 1]);
  const Eigen::Quaterniond q0(Eigen::Matrix3d(poses[hi - 1].topLeftCorner<3, 3>()));
  const Eigen::Quaterniond q1(Eigen::Matrix3d(poses[hi].topLeftCorner<3, 3>()));
  pose = Eigen::Matrix4d::Identity();
  pose.topLeftCorner<3, 3>() = q0.slerp(a, q1).normalized().toRotationMatrix();
  pose.topRightCorner<3, 1>() = (1 - a) * poses[hi - 1].topRightCorner<3, 1>() + a * poses[hi].topRightCorner<3, 1>();
  return true;
}

std::vector<Eigen::Matrix4d> rectifiedGroundTruth(const StereoFolder& f, const Eigen::Matrix3d& left_rectification) {
  Eigen::Matrix4d raw_from_rect = Eigen::Matrix4d::Identity();
  raw_from_rect.topLeftCorner<3, 3>() = left_rectification.transpose();
  std::vector<Eigen::Matrix4d> out(f.poses.size());
  for (size_t i = 0; i < f.poses.size(); ++i) out[i] = f.poses[i] * raw_from_rect;
  return out;
}

}  // namespace pv::internal
