#include "ground_truth.h"

#include <cstdio>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "core/internal/coordinates.h"
#include "io/internal/ktr_side_files.h"

namespace pavo {

bool GroundTruth::read(const std::string& path) {
  std::vector<Eigen::Matrix4d> poses;
  if (!pv::internal::readTumTrajectory(path, t_s, poses) || poses.empty()) return false;
  const Eigen::Matrix4f C = [] {
    Eigen::Matrix4f m = Eigen::Matrix4f::Identity();
    m.topLeftCorner<3, 3>() = pv::internal::basisFromImage(pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP);
    return m;
  }();
  T_world_camera_image.clear();
  for (const Eigen::Matrix4d& T : poses) T_world_camera_image.push_back(C.transpose() * T.cast<float>() * C);
  return true;
}

bool GroundTruth::pose(uint64_t timestamp_ns, int index, Eigen::Matrix4f& T) const {
  const double t = double(timestamp_ns) * 1e-9;
  size_t best = 0;
  for (size_t i = 1; i < t_s.size(); ++i)
    if (std::abs(t_s[i] - t) < std::abs(t_s[best] - t)) best = i;
  if (!t_s.empty() && std::abs(t_s[best] - t) < 0.005) {
    T = T_world_camera_image[best];
    return true;
  }
  if (index < 0 || size_t(index) >= t_s.size()) return false;
  T = T_world_camera_image[size_t(index)];
  return true;
}

std::string recordingStem(const std::string& ktr) {
  return ktr.size() > 4 && ktr.compare(ktr.size() - 4, 4, ".ktr") == 0 ? ktr.substr(0, ktr.size() - 4) : ktr;
}

bool readTrueDepthFrames(const std::string& stem, const GroundTruth& truth, double fx, double fy, double cx, double cy,
                         int stride, std::vector<pv::internal::DepthFrame>& frames, std::string& why) {
  frames.clear();
  for (size_t index = 0; index < truth.T_world_camera_image.size(); index += size_t(std::max(stride, 1))) {
    char name[32];
    std::snprintf(name, sizeof(name), "/%06zu.png", index);
    const std::string path = stem + ".gt-depth" + name;
    const cv::Mat mm = cv::imread(path, cv::IMREAD_UNCHANGED);
    if (mm.empty() || mm.type() != CV_16UC1) {
      why = "missing or unreadable true depth " + path + " (synthesize with --gt-depth)";
      return false;
    }
    cv::Mat half;
    cv::resize(mm, half, cv::Size(mm.cols / 2, mm.rows / 2), 0, 0, cv::INTER_NEAREST);
    pv::internal::DepthFrame f;
    half.convertTo(f.depth_m, CV_32F, 1e-3);
    f.T_world_camera = truth.T_world_camera_image[index];
    // Pixel centres of the half-size image: (u + 0.5) / 2 - 0.5.
    f.fx = fx / 2;
    f.fy = fy / 2;
    f.cx = (cx + 0.5) / 2 - 0.5;
    f.cy = (cy + 0.5) / 2 - 0.5;
    frames.push_back(std::move(f));
  }
  if (frames.empty()) why = "the trajectory holds no poses";
  return !frames.empty();
}

}  // namespace pavo
