// Trajectories as timestamped camera-to-world poses: TUM text files and error figures
// (absolute trajectory error after a rigid alignment, relative pose error).
#pragma once

#include <Eigen/Geometry>
#include <string>
#include <vector>

namespace pv::internal {

/// One camera pose at a time: camera-to-world, metres, seconds.
struct StampedPose {
  double t_s = 0;
  Eigen::Isometry3d T_world_camera = Eigen::Isometry3d::Identity();
};
using Trajectory = std::vector<StampedPose>;

/// Reads "t tx ty tz qx qy qz qw" lines; '#' comments and blank lines are skipped. False with a
/// reason on a malformed line or an unreadable file.
bool readTumTrajectory(const std::string& path, Trajectory& trajectory, std::string& error);
/// Writes the TUM format (9 decimals for time, metres to 0.1 mm) through a temporary file renamed
/// into place, so a failure never leaves a partial file under `path`.
bool writeTumTrajectory(const std::string& path, const Trajectory& trajectory, std::string& error);

/// Pairs (estimate index, reference index) whose timestamps differ by at most `max_dt_s`, each
/// estimate pose taking the nearest reference pose.
std::vector<std::pair<size_t, size_t>> associateByTime(const Trajectory& estimate, const Trajectory& reference,
                                                       double max_dt_s);

/// The rigid transform (rotation and translation, no scale) that best maps `from` onto `to` in
/// the least-squares sense: to ~ T * from.
Eigen::Isometry3d alignRigid(const std::vector<Eigen::Vector3d>& from, const std::vector<Eigen::Vector3d>& to);

struct TrajectoryErrors {
  size_t matched = 0;        ///< pose pairs compared
  double ate_rmse_m = 0;     ///< RMSE of positions after the rigid alignment
  double path_length_m = 0;  ///< length of the reference path over the matched poses
  double ate_pct = 0;        ///< ate_rmse_m as a percentage of path_length_m
  double rpe_pct = 0;        ///< mean relative translation error over segments, percent of their length
  double rpe_segment_m = 0;  ///< length of those segments
};

/// Compares an estimate with a reference trajectory. RPE uses segments of a tenth of the path
/// (at least 0.1 m): for each start pose, the first later pose at least that far along the
/// reference path. False with a reason when fewer than 3 poses match.
bool evaluateTrajectory(const Trajectory& estimate, const Trajectory& reference, TrajectoryErrors& errors,
                        std::string& error, double max_dt_s = 0.02);

}  // namespace pv::internal
