// Folders of rectified or raw pairs: left/ and right/ image folders, or the single pair im0.png /
// im1.png of the Middlebury 2014 and ETH3D two-view sets; the calibration in an OpenCV YAML file
// or in their calib.txt ("cam0=[fx 0 cx; 0 fy cy; 0 0 1]", "baseline=" in millimetres, spaces
// anywhere around the names and values).
#include <Eigen/Dense>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "core/internal/error.h"
#include "io/internal/ktr_side_files.h"
#include "io/internal/stereo_folder.h"

namespace pv::internal {

namespace {

namespace fs = std::filesystem;

std::string trimmed(const std::string& s) {
  const size_t a = s.find_first_not_of(" \t\r\n");
  if (a == std::string::npos) return std::string();
  return s.substr(a, s.find_last_not_of(" \t\r\n") - a + 1);
}

std::vector<double> numbers(std::string text) {
  for (char& c : text)
    if (c == '[' || c == ']' || c == ';' || c == ',') c = ' ';
  std::istringstream in(text);
  std::vector<double> out;
  for (double v; in >> v;) out.push_back(v);
  if (!in.eof()) out.clear();  // something that is not a number
  return out;
}

ERROR_CODE readMiddleburyCalib(const fs::path& path, StereoCalibration& c) {
  std::ifstream in(path);
  if (!in) return fail(ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE, "cannot read " + path.string());
  std::map<std::string, std::vector<double>> values;
  std::string line;
  while (std::getline(in, line)) {
    const size_t eq = line.find('=');
    if (eq != std::string::npos) values[trimmed(line.substr(0, eq))] = numbers(line.substr(eq + 1));
  }
  const std::vector<double>&K0 = values["cam0"], &K1 = values["cam1"], &baseline = values["baseline"];
  if (K0.size() != 9 || K1.size() != 9 || baseline.size() != 1)
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE,
                path.string() + " needs cam0=[3x3], cam1=[3x3] and baseline= (millimetres)");
  c = StereoCalibration();
  c.left = {K0[0], K0[4], K0[2], K0[5], {}};
  c.right = {K1[0], K1[4], K1[2], K1[5], {}};
  c.T = {-baseline[0] / 1000.0, 0, 0};
  if (values["width"].size() == 1 && values["height"].size() == 1) {
    c.width = int(values["width"][0]);
    c.height = int(values["height"][0]);
  }
  if (!(c.left.fx > 0 && c.left.fy > 0 && c.right.fx > 0 && c.right.fy > 0 && baseline[0] > 0))
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, path.string() + " does not describe a stereo camera");
  return ERROR_CODE::SUCCESS;
}

}  // namespace

ERROR_CODE loadPairFolder(const std::string& dir_text, StereoFolder& f) {
  const fs::path dir(dir_text);
  std::error_code ec;
  if (fs::is_directory(dir / "left", ec)) {
    f.left = sortedImageFiles((dir / "left").string());
    f.right = sortedImageFiles((dir / "right").string());
  } else {
    for (const auto& [l, r] : {std::pair<const char*, const char*>{"im0.png", "im1.png"}, {"imL.png", "imR.png"}})
      if (f.left.empty() && fs::is_regular_file(dir / l, ec) && fs::is_regular_file(dir / r, ec)) {
        f.left = {(dir / l).string()};
        f.right = {(dir / r).string()};
      }
  }
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  if (fs::exists(dir / "calibration.yml", ec))
    err = readCalibrationYaml((dir / "calibration.yml").string(), f.calibration);
  else if (fs::exists(dir / "calib.txt", ec))
    err = readMiddleburyCalib(dir / "calib.txt", f.calibration);
  else
    err = fail(ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE, dir_text + " has neither calibration.yml nor calib.txt");
  if (err != ERROR_CODE::SUCCESS) return err;

  if (fs::exists(dir / "gt.txt", ec)) {
    std::vector<double> t;
    std::vector<Eigen::Matrix4d> poses;
    if (!readTumTrajectory((dir / "gt.txt").string(), t, poses))
      return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "gt.txt is not a TUM trajectory");
    // One pose per pair, in order; TUM side files are right-handed y-up.
    const Eigen::Matrix4d flip = Eigen::Vector4d(1, -1, -1, 1).asDiagonal();
    for (size_t i = 0; i < f.left.size(); ++i) {
      f.poses.push_back(i < poses.size() ? Eigen::Matrix4d(flip * poses[i] * flip) : Eigen::Matrix4d::Identity());
      f.has_pose.push_back(i < poses.size());
    }
  }
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal
