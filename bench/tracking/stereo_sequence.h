// Stereo image folders with ground truth, read without a camera: KITTI odometry (rectified
// pairs, 3x4 pose lines) and EuRoC/ASL (raw pairs rectified here from the sensor.yaml files).
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/internal/camera_state.h"
#include "tracking/internal/trajectory_eval.h"

namespace mapura::bench {

struct StereoSequence {
  pv::internal::RectifiedCalibration calibration;
  std::vector<std::string> left_files, right_files;
  std::vector<double> t_s;
  pv::internal::Trajectory ground_truth;                     ///< rectified left camera in the world, IMAGE axes
  cv::Mat map_left_x, map_left_y, map_right_x, map_right_y;  ///< empty when already rectified

  size_t size() const { return left_files.size(); }
  /// Reads pair `i` as rectified grey images; false when unreadable.
  bool read(size_t i, cv::Mat& left, cv::Mat& right) const;
};

bool loadKittiSequence(const std::string& dir, StereoSequence& sequence, std::string& error);
/// `dir` holds mav0/; `ground_truth_tum` is the body trajectory (TUM, seconds).
bool loadEurocSequence(const std::string& dir, const std::string& ground_truth_tum, StereoSequence& sequence,
                       std::string& error);

}  // namespace mapura::bench
