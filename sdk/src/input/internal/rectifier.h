// Stereo rectification of raw side-by-side frames, from a factory calibration.
#pragma once

#include <opencv2/core.hpp>

#include "core/internal/camera_state.h"
#include "input/internal/remap_table.h"
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
  /// Splits a raw side-by-side frame (CV_8UC3 BGR or CV_8UC4 BGRA) and rectifies the left half
  /// into CV_8UC3 BGR and CV_8UC1 grey, the right half into grey only: depth and tracking need no
  /// more, and rectifyRightColour makes the right colour image when one is asked for.
  void apply(const cv::Mat& side_by_side, cv::Mat& left, cv::Mat& left_gray, cv::Mat& right_gray);
  /// The right half of a raw side-by-side frame rectified into CV_8UC3 BGR.
  void rectifyRightColour(const cv::Mat& side_by_side, cv::Mat& right) const;

 private:
  cv::Mat eye(const cv::Mat& side_by_side, int eye) const;

  RectifiedCalibration rectified_;
  cv::Mat map_left_[2], map_right_[2], R1_;
  RemapTable left_table_, right_table_;
  cv::Mat raw_gray_;
};

/// The public description of a calibration (raw, with distortion) and of the rectified pair.
CalibrationParameters toCalibrationParameters(const StereoCalibration& calibration);
CalibrationParameters toCalibrationParameters(const RectifiedCalibration& rectified);

}  // namespace pv::internal
