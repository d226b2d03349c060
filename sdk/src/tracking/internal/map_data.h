// Keyframes and landmarks that visual odometry builds and that the area memory keeps: the
// sparse map behind tracking. IMAGE axes (x right, y down, z forward), metres.
#pragma once

#include <Eigen/Geometry>
#include <map>
#include <opencv2/core.hpp>
#include <vector>

#include "core/internal/camera_state.h"

namespace pv::internal {

/// A 3D point seen from several keyframes.
struct Landmark {
  Eigen::Vector3d p_world = Eigen::Vector3d::Zero();
  int observations = 0;
};

/// One keyframe's measurement of a landmark: left pixel and the right image's column of the
/// same point (NaN when it was not matched in the right image).
struct Observation {
  int landmark = -1;
  float u = 0, v = 0;
  float u_right = 0;
};

struct Keyframe {
  int id = -1;
  int frame_index = -1;  ///< frame of the recording it came from (-1 unknown)
  Eigen::Isometry3d T_world_camera = Eigen::Isometry3d::Identity();
  std::vector<Observation> observations;
  cv::Mat descriptors;  ///< ORB, one row per observation (CV_8U, 32 bytes); may be empty
  /// The local map it belongs to: tracking that resumes after a loss starts a new one, joined
  /// to the others (and renumbered) once a loop or a relocalisation links them.
  int segment = 0;
};

/// Keyframes by id (ids increase with time) and landmarks by id.
struct MapData {
  std::map<int, Keyframe> keyframes;
  std::map<int, Landmark> landmarks;
  int next_keyframe_id = 0;
  int next_landmark_id = 0;
  int segment = 0;  ///< the segment new keyframes belong to
};

/// Pinhole projection of a camera-frame point; false behind the camera.
inline bool projectPoint(const RectifiedCalibration& c, const Eigen::Vector3d& p_camera, double& u, double& v) {
  if (p_camera.z() <= 1e-6) return false;
  u = c.fx * p_camera.x() / p_camera.z() + c.cx;
  v = c.fy * p_camera.y() / p_camera.z() + c.cy;
  return true;
}

/// Back-projection of a left pixel with its disparity (> 0) into the camera frame.
inline Eigen::Vector3d backProject(const RectifiedCalibration& c, double u, double v, double disparity_px) {
  const double z = c.fx * c.baseline_m / disparity_px;
  return {(u - c.cx) * z / c.fx, (v - c.cy) * z / c.fy, z};
}

}  // namespace pv::internal
