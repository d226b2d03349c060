// Stereo sequences with ground truth, read without a camera: image folders through the importer's
// readers (EuRoC/ASL, KITTI, pairs: the same files `pavo import` reads), rectified as a recording
// of them would be, or a recording (.ktr with its .gt.txt) decoded frame by frame.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/internal/camera_state.h"
#include "input/internal/rectifier.h"
#include "io/internal/ktr_file.h"
#include "io/internal/stereo_folder.h"
#include "tracking/internal/trajectory_eval.h"

namespace mapura::bench {

struct StereoSequence {
  pv::internal::StereoFolder folder;                   ///< an image folder's frames
  std::unique_ptr<pv::internal::KtrReader> recording;  ///< or a recording's
  pv::internal::Rectifier rectifier;
  pv::internal::RectifiedCalibration calibration;
  std::vector<double> t_s;                ///< capture time of each frame, seconds from the first
  pv::internal::Trajectory ground_truth;  ///< rectified left camera in the world, IMAGE axes

  size_t size() const { return t_s.size(); }
  /// Reads pair `i` as rectified grey images; false when unreadable.
  bool read(size_t i, cv::Mat& left, cv::Mat& right);
};

/// Reads `dir` in `format` ("euroc", "kitti" or "pairs"), keeping every `every`-th frame and then
/// the first `first` of those (0: all), as `pavo import --every --first` would; format "ktr" reads
/// the recording `dir` and its <name>.gt.txt (every frame, `every` and `first` ignored).
bool loadSequence(const std::string& format, const std::string& dir, int every, int first, StereoSequence& sequence,
                  std::string& error);

}  // namespace mapura::bench
