// The ground truth a synthesized or imported recording carries beside it: the trajectory
// (<name>.gt.txt) and, when rendered, the true depth of each frame (<name>.gt-depth/).
#pragma once

#include <Eigen/Geometry>
#include <string>
#include <vector>

#include "mapping/internal/tsdf_volume.h"

namespace pavo {

/// Ground-truth trajectory (TUM: t tx ty tz qx qy qz qw, camera to world, right-handed y-up).
struct GroundTruth {
  std::vector<double> t_s;
  std::vector<Eigen::Matrix4f> T_world_camera_image;  // converted to IMAGE axes

  bool read(const std::string& path);

  /// Pose of a frame: by timestamp (within 5 ms), else by its index.
  bool pose(uint64_t timestamp_ns, int index, Eigen::Matrix4f& T) const;
};

/// The recording's path without ".ktr".
std::string recordingStem(const std::string& ktr);

/// Every `stride`-th frame of `<stem>.gt-depth/` (uint16 millimetres, 0 unknown) at half size, in
/// metres, posed in IMAGE axes from `truth` (by index), with the rectified left camera `fx, fy, cx,
/// cy` of the full-size image. False with `why` set when the folder or a pose is missing.
bool readTrueDepthFrames(const std::string& stem, const GroundTruth& truth, double fx, double fy, double cx, double cy,
                         int stride, std::vector<pv::internal::DepthFrame>& frames, std::string& why);

}  // namespace pavo
