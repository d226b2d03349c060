#include "stereo_sequence.h"

#include <opencv2/imgcodecs.hpp>

#include "io/internal/ktr_side_files.h"
#include "pv/camera.h"

namespace mapura::bench {

bool StereoSequence::read(size_t i, cv::Mat& left, cv::Mat& right) {
  if (i >= size()) return false;
  cv::Mat left_bgr;
  if (recording) {
    cv::Mat side_by_side;
    int64_t ts = 0;
    int index = -1;
    recording->seek(int(i));
    if (recording->read(side_by_side, ts, index) != pv::ERROR_CODE::SUCCESS) return false;
    rectifier.apply(side_by_side, left_bgr, left, right);
    return true;
  }
  const cv::Mat l = cv::imread(folder.left[i], cv::IMREAD_COLOR), r = cv::imread(folder.right[i], cv::IMREAD_COLOR);
  if (l.empty() || r.empty() || l.size() != calibration.size || r.size() != calibration.size) return false;
  cv::Mat side_by_side;
  cv::hconcat(l, r, side_by_side);
  rectifier.apply(side_by_side, left_bgr, left, right);
  return true;
}

namespace {

// Every frame's time, and the ground truth of <name>.gt.txt (right-handed y-up) in IMAGE axes.
bool loadRecording(const std::string& path, StereoSequence& s, std::string& error) {
  using namespace pv::internal;
  s.recording = std::make_unique<KtrReader>();
  if (s.recording->open(path) != pv::ERROR_CODE::SUCCESS ||
      s.rectifier.init(s.recording->metadata().calibration) != pv::ERROR_CODE::SUCCESS) {
    error = pv::lastErrorDetail().c_str();
    return false;
  }
  s.calibration = s.rectifier.rectified();
  cv::Mat frame;
  int64_t ts = 0, first_ts = 0;
  int index = -1;
  s.t_s.clear();
  for (int i = 0; i < s.recording->frameCount(); ++i) {
    if (s.recording->read(frame, ts, index) != pv::ERROR_CODE::SUCCESS) break;
    if (i == 0) first_ts = ts;
    s.t_s.push_back(double(ts - first_ts) * 1e-9);
  }
  Trajectory truth;
  if (!readTumTrajectory(sideFileStem(path) + ".gt.txt", truth, error)) return false;
  const Eigen::Isometry3d flip(Eigen::Vector4d(1, -1, -1, 1).asDiagonal());
  const double origin = double(first_ts) * 1e-9;
  s.ground_truth.clear();
  for (const StampedPose& p : truth) s.ground_truth.push_back({p.t_s - origin, flip * p.T_world_camera * flip});
  return true;
}

}  // namespace

bool loadSequence(const std::string& format, const std::string& dir, int every, int first, StereoSequence& s,
                  std::string& error) {
  using namespace pv::internal;
  if (format == "ktr") return loadRecording(dir, s, error);
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
  for (size_t i = 0; i < s.folder.size(); ++i) {
    s.t_s.push_back(double(s.folder.timestamps_ns[i] - s.folder.timestamps_ns[0]) * 1e-9);
    if (s.folder.has_pose[i]) s.ground_truth.push_back({s.t_s.back(), Eigen::Isometry3d(truth[i])});
  }
  return true;
}

}  // namespace mapura::bench
