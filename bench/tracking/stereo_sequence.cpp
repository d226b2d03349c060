#include "stereo_sequence.h"

#include <opencv2/imgcodecs.hpp>

#include "pv/camera.h"

namespace mapura::bench {

bool StereoSequence::read(size_t i, cv::Mat& left, cv::Mat& right) {
  if (i >= size()) return false;
  const cv::Mat l = cv::imread(folder.left[i], cv::IMREAD_COLOR), r = cv::imread(folder.right[i], cv::IMREAD_COLOR);
  if (l.empty() || r.empty() || l.size() != calibration.size || r.size() != calibration.size) return false;
  cv::Mat side_by_side, left_bgr;
  cv::hconcat(l, r, side_by_side);
  rectifier.apply(side_by_side, left_bgr, left, right);
  return true;
}

bool loadSequence(const std::string& format, const std::string& dir, int every, int first, StereoSequence& s,
                  std::string& error) {
  using namespace pv::internal;
  const ImportFormat f = format == "euroc"   ? ImportFormat::EUROC
                         : format == "kitti" ? ImportFormat::KITTI
                                             : ImportFormat::PAIRS;
  if (loadStereoFolder(dir, f, s.folder) != pv::ERROR_CODE::SUCCESS) {
    error = pv::lastErrorDetail().c_str();
    return false;
  }
  fillMissingTimestamps(s.folder, 0);
  selectFrames(s.folder, every, first);
  const cv::Mat first_image = cv::imread(s.folder.left[0], cv::IMREAD_UNCHANGED);
  if (first_image.empty()) {
    error = "cannot read " + s.folder.left[0];
    return false;
  }
  if (s.folder.calibration.width == 0) {
    s.folder.calibration.width = first_image.cols;
    s.folder.calibration.height = first_image.rows;
  }
  if (s.rectifier.init(s.folder.calibration) != pv::ERROR_CODE::SUCCESS) {
    error = pv::lastErrorDetail().c_str();
    return false;
  }
  s.calibration = s.rectifier.rectified();
  Eigen::Matrix3d R1;
  for (int i = 0; i < 9; ++i) R1(i / 3, i % 3) = s.rectifier.leftRotation().at<double>(i);
  const std::vector<Eigen::Matrix4d> truth = rectifiedGroundTruth(s.folder, R1);
  s.t_s.clear();
  s.ground_truth.clear();
  for (size_t i = 0; i < s.size(); ++i) {
    s.t_s.push_back(double(s.folder.timestamps_ns[i] - s.folder.timestamps_ns[0]) * 1e-9);
    if (s.folder.has_pose[i]) s.ground_truth.push_back({s.t_s.back(), Eigen::Isometry3d(truth[i])});
  }
  return true;
}

}  // namespace mapura::bench
