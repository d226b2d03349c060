// Stereo rectification of raw side-by-side frames, from a factory calibration.
#pragma once

#include <opencv2/core.hpp>

#include "core/internal/camera_state.h"
#include "io/internal/ktr_metadata.h"

namespace pv::internal {

/// The calibration for images of `width` x `height` (one eye): intrinsics scaled when the
/// calibration was made at another resolution of the same aspect.
StereoCalibration scaleCalibration(const StereoCalibration& calibration, int width, int height);

/// Undistorts and rectifies both eyes. The maps are computed once, by init.
class Rectifier {
 public:
  /// Computes the maps; INVALID_CALIBRATION_FILE when the calibration cannot be rectified.
  [[nodiscard]] ERROR_CODE init(const StereoCalibration& calibration);
  /// Intrinsics and baseline shared by both rectified eyes.
  const RectifiedCalibration& rectified() const { return rectified_; }
  /// Rotation from the raw left camera to the rectified left camera (3x3, CV_64F).
  const cv::Mat& leftRotation() const { return R1_; }
  /// Splits a raw side-by-side frame (CV_8UC3 BGR or CV_8UC4 BGRA) and rectifies both halves
  /// into CV_8UC3 BGR and CV_8UC1 grey images.
  void apply(const cv::Mat& side_by_side, cv::Mat& left, cv::Mat& right, cv::Mat& left_gray, cv::Mat& right_gray);

 private:
  RectifiedCalibration rectified_;
  cv::Mat map_left_[2], map_right_[2], R1_;
  cv::Mat scratch_[2];
};

/// The public description of a calibration (raw, with distortion) and of the rectified pair.
CalibrationParameters toCalibrationParameters(const StereoCalibration& calibration);
CalibrationParameters toCalibrationParameters(const RectifiedCalibration& rectified);

}  // namespace pv::internal
