#include "tracking/internal/tracking_engine.h"

#include <Eigen/Geometry>

namespace pv::internal {

TrackingEngine::TrackingEngine(const RectifiedCalibration& calibration, const TrackingEngineParameters& parameters,
                               const Eigen::Isometry3d& T_world_start)
    : calibration_(calibration),
      parameters_(parameters),
      odometry_(calibration, map_,
                [&] {
                  OdometryParameters p = parameters.odometry;
                  p.keep_keyframes = parameters.area_memory;
                  return p;
                }()),
      area_(calibration, map_, parameters.area),
      T_world_last_(T_world_start) {
  odometry_.restart(T_world_start);
}

void TrackingEngine::adoptArea(MapData area) {
  map_ = std::move(area);
  waiting_for_area_ = !map_.keyframes.empty();
}

void TrackingEngine::afterKeyframe(int id, const cv::Mat& left) {
  if (!parameters_.area_memory) return;
  area_.describeKeyframe(id, left);
  std::map<int, int> merged;
  const Eigen::Isometry3d before = map_.keyframes[id].T_world_camera;
  if (area_.closeLoop(id, merged)) {
    odometry_.remapLandmarks(merged);
    odometry_.applyCorrection(map_.keyframes[id].T_world_camera * before.inverse());
    trajectory_->refine(map_);
  }
  cullRedundantKeyframes();
}

// A keyframe adds no viewpoint when an older one sits within a keyframe step of it (the distance
// and the turn after which the odometry takes a new keyframe). Once it has left the window such a
// keyframe goes: going over the same place again leaves the map as it was, so that a long scan of
// one room keeps a map (and a pose graph, and a time per keyframe) of bounded size.
void TrackingEngine::cullRedundantKeyframes() {
  if (odometry_.window().empty()) return;
  const int window_start = odometry_.window().front();
  const OdometryParameters& step = odometry_.parameters();
  std::vector<std::pair<int, int>> redundant;  // (keyframe, the older one at its viewpoint)
  for (const auto& [id, kf] : map_.keyframes) {
    if (id >= window_start) break;
    if (id <= culling_checked_) continue;
    culling_checked_ = id;
    int twin = -1;
    double nearest = step.keyframe_distance_m;
    for (const auto& entry : map_.keyframes) {
      const int older_id = entry.first;
      if (older_id >= id) break;
      const Eigen::Isometry3d between = entry.second.T_world_camera.inverse() * kf.T_world_camera;
      const double d = between.translation().norm();
      if (d < nearest && Eigen::AngleAxisd(between.linear()).angle() < step.keyframe_angle_rad &&
          std::find_if(redundant.begin(), redundant.end(), [older_id](const auto& r) { return r.first == older_id; }) ==
              redundant.end()) {
        nearest = d;
        twin = older_id;
      }
    }
    if (twin >= 0) redundant.emplace_back(id, twin);
  }
  for (const auto& [id, twin] : redundant) {
    area_.forgetKeyframe(id);
    trajectory_->reanchor(id, twin, map_.keyframes[twin].T_world_camera);
    odometry_.dropKeyframe(id);
  }
}

void TrackingEngine::record(int frame_index, int keyframe_id, const Eigen::Isometry3d& T_world_camera) {
  if (parameters_.keep_trajectory)
    trajectory_->record(frame_index, keyframe_id, map_.keyframes[keyframe_id].T_world_camera, T_world_camera);
}

EngineOutput TrackingEngine::tryRelocalise(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                           int frame_index) {
  EngineOutput out;
  out.T_world_camera = T_world_last_;
  if (parameters_.area_memory && !map_.keyframes.empty()) {
    // Lost while tracking: look near the last pose first, then anywhere in the map.
    const Eigen::Vector3d last = T_world_last_.translation();
    PlaceMatch match = ever_tracked_ ? area_.relocalise(left, &last) : PlaceMatch();
    if (!area_.confirmWithStereo(match, left, right)) match = area_.relocalise(left);
    if (area_.confirmWithStereo(match, left, right)) {
      const OdometryOutput o = odometry_.startAt(left, right, depth, frame_index, match.T_world_camera);
      if (o.ok) {
        waiting_for_area_ = false;
        lost_frames_ = 0;
        out.state = POSITIONAL_TRACKING_STATE::OK;
        out.T_world_camera = o.T_world_camera;
        out.confidence = std::min(100, match.inliers);
        out.used = o.used;
        if (o.new_keyframe_id >= 0) afterKeyframe(o.new_keyframe_id, left);
        record(frame_index, o.reference_keyframe_id, o.T_world_camera);
        T_world_last_ = o.T_world_camera;
        return out;
      }
    }
  }
  return out;
}

EngineOutput TrackingEngine::process(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                     int frame_index, double t_s) {
  const bool slow = last_t_s_ >= 0 && t_s - last_t_s_ > parameters_.max_frame_gap_s;
  last_t_s_ = t_s;
  EngineOutput out;
  out.T_world_camera = T_world_last_;

  if (waiting_for_area_) return tryRelocalise(left, right, depth, frame_index);
  if (!odometry_.started() && ever_tracked_) {
    // Lost: look for the place in the map, else start afresh from the last pose after a while.
    out = tryRelocalise(left, right, depth, frame_index);
    if (out.state == POSITIONAL_TRACKING_STATE::OK) return out;
    if (++lost_frames_ < parameters_.lost_frames_before_restart) return out;
  }
  const OdometryOutput o = odometry_.track(left, right, depth, frame_index);
  out.used = o.used;
  out.rejected = o.rejected;
  if (!o.ok) {
    if (odometry_.started()) odometry_.restart(T_world_last_);
    return out;
  }
  ever_tracked_ = true;
  lost_frames_ = 0;
  if (o.new_keyframe_id >= 0) afterKeyframe(o.new_keyframe_id, left);
  const Eigen::Isometry3d T = odometry_.pose();
  record(frame_index, o.reference_keyframe_id, T);
  T_world_last_ = T;
  out.T_world_camera = T;
  out.confidence = o.confidence;
  out.state = slow ? POSITIONAL_TRACKING_STATE::FPS_TOO_LOW : POSITIONAL_TRACKING_STATE::OK;
  return out;
}

void TrackingEngine::restartAt(const Eigen::Isometry3d& T_world_camera) {
  odometry_.restart(T_world_camera);
  T_world_last_ = T_world_camera;
  lost_frames_ = 0;
}

void TrackingEngine::finalise() {
  if (trajectory_->isFinal()) return;
  if (map_.keyframes.size() >= 2) {
    if (area_.loopCount() > 0) area_.optimise();
    std::vector<int> ids;
    for (const auto& [id, kf] : map_.keyframes) ids.push_back(id);
    BundleAdjustmentParameters p = parameters_.odometry.bundle;
    p.max_iterations = parameters_.final_iterations;
    // One thread: Ceres sums the parts of the normal equations in the order its threads finish
    // them, so more threads would change the poses' last bits from run to run.
    p.threads = 1;
    bundleAdjust(map_, calibration_, ids, 1, p);
    trajectory_->refine(map_);
  }
  trajectory_->setFinal(true);
}

}  // namespace pv::internal
