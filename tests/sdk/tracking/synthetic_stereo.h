// A textured box room rendered as a rectified stereo pair from any camera pose, with exact
// ground truth: for tracking tests and benchmarks.
#pragma once

#include <Eigen/Geometry>
#include <array>
#include <opencv2/core.hpp>
#include <vector>

#include "core/internal/camera_state.h"

namespace mapura::test {

class SyntheticRoom {
 public:
  /// A room of `half_extent_m` (x, y, z half sizes) around the origin; `seed` picks the texture.
  SyntheticRoom(const Eigen::Vector3d& half_extent_m, unsigned seed);

  /// Renders the left and right grey images of a camera at `T_world_camera` (IMAGE axes).
  void render(const pv::internal::RectifiedCalibration& calibration, const Eigen::Isometry3d& T_world_camera,
              cv::Mat& left, cv::Mat& right) const;

 private:
  void renderEye(const pv::internal::RectifiedCalibration& c, const Eigen::Isometry3d& T_world_eye, cv::Mat& out) const;
  Eigen::Vector3d half_;
  std::array<cv::Mat, 6> textures_;  ///< CV_8U, one per wall (-x, +x, -y, +y, -z, +z)
};

/// Calibration of a rectified pair: `width` x `height`, focal length, 12 cm baseline.
pv::internal::RectifiedCalibration syntheticCalibration(int width, int height, double fx);

/// A closed path inside the room: the camera circles at `radius_m`, looking outwards with a slow
/// up-and-down swing; `t` in [0, 1] runs once round.
Eigen::Isometry3d circlePose(double t, double radius_m);

}  // namespace mapura::test
