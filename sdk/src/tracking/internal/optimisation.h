// Non-linear least squares on the sparse map (Ceres): bundle adjustment of keyframes and
// landmarks with stereo reprojection errors, and pose-graph optimisation of keyframe poses.
#pragma once

#include <vector>

#include "tracking/internal/map_data.h"

namespace pv::internal {

struct BundleAdjustmentParameters {
  int max_iterations = 5;
  double huber_px = 1.5;    ///< robust loss scale
  double outlier_px = 3.0;  ///< observations with a larger error afterwards are dropped
  int threads = 1;
};

/// Optimises the poses of the keyframes `keyframe_ids` (the first `fixed_count` of them held
/// still) and the landmarks they observe, from their observations in those keyframes. Keyframes
/// outside the set that see the same landmarks take part with fixed poses. Drops outlier
/// observations afterwards and returns how many were dropped.
int bundleAdjust(MapData& map, const RectifiedCalibration& calibration, const std::vector<int>& keyframe_ids,
                 int fixed_count, const BundleAdjustmentParameters& parameters);

/// A relative pose measurement between two keyframes: T_from_to = T_world_from^-1 * T_world_to.
struct PoseEdge {
  int from = -1, to = -1;
  Eigen::Isometry3d T_from_to = Eigen::Isometry3d::Identity();
  double weight = 1.0;
};

/// Pose-graph optimisation of every keyframe pose (keyframe `fixed_id` held still); landmarks
/// then follow the keyframe that first observed them.
void optimisePoseGraph(MapData& map, const std::vector<PoseEdge>& edges, int fixed_id);

/// The odometry edges between consecutive keyframes, from the current poses; an edge between two
/// segments (tracking resumed after a loss) weighs almost nothing.
std::vector<PoseEdge> odometryEdges(const MapData& map);

}  // namespace pv::internal
