// Stereo image folders with ground truth, read without a camera through the importer's readers
// (EuRoC/ASL, KITTI, pairs: the same files `pavo import` reads) and rectified as a recording of
// them would be.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/internal/camera_state.h"
#include "input/internal/rectifier.h"
#include "io/internal/stereo_folder.h"
#include "tracking/internal/trajectory_eval.h"

namespace mapura::bench {

struct StereoSequence {
  pv::internal::StereoFolder folder;
  pv::internal::Rectifier rectifier;
  pv::internal::RectifiedCalibration calibration;
  std::vector<double> t_s;                ///< capture time of each frame, seconds
  pv::internal::Trajectory ground_truth;  ///< rectified left camera in the world, IMAGE axes

  size_t size() const { return folder.size(); }
  /// Reads pair `i` as rectified grey images; false when unreadable.
  bool read(size_t i, cv::Mat& left, cv::Mat& right);
};

/// Reads `dir` in `format` ("euroc", "kitti" or "pairs"), keeping every `every`-th frame and then
/// the first `first` of those (0: all), as `pavo import --every --first` would.
bool loadSequence(const std::string& format, const std::string& dir, int every, int first, StereoSequence& sequence,
                  std::string& error);

}  // namespace mapura::bench
