#include "tracking/internal/tracking_engine.h"

#include <Eigen/Geometry>
#include <set>

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
      T_world_last_(T_world_start),
      T_world_measured_(T_world_start) {
  odometry_.restart(T_world_start);
}

void TrackingEngine::adoptArea(MapData area) {
  map_ = std::move(area);
  waiting_for_area_ = !map_.keyframes.empty();
  root_keyframe_ = waiting_for_area_ ? map_.keyframes.begin()->first : -1;
  root_segment_ = waiting_for_area_ ? map_.keyframes.begin()->second.segment : map_.segment;
}

int TrackingEngine::measuredSegment() const {
  // Without area memory a local map started after a loss can never be joined back: each one is
  // the best there is, so all of them count as measured.
  if (!parameters_.area_memory) return -1;
  const auto root = map_.keyframes.find(root_keyframe_);
  return root != map_.keyframes.end() ? root->second.segment : root_segment_;
}

void TrackingEngine::afterKeyframe(int id, const cv::Mat& left) {
  if (!parameters_.area_memory) return;
  area_.describeKeyframe(id, left);
  std::map<int, int> merged;
  const Eigen::Isometry3d before = map_.keyframes[id].T_world_camera;
  if (area_.closeLoop(id, merged)) {
    odometry_.remapLandmarks(merged);
    odometry_.applyCorrection(map_.keyframes[id].T_world_camera * before.inverse());
    trajectory_->refine(map_, measuredSegment());
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
      if (entry.second.segment != kf.segment) continue;  // a map not joined yet may sit anywhere
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
  if (!parameters_.keep_trajectory) return;
  const Keyframe& kf = map_.keyframes[keyframe_id];
  trajectory_->record(frame_index, keyframe_id, kf.T_world_camera, T_world_camera, isMeasured(kf.segment));
}

EngineOutput TrackingEngine::accept(const OdometryOutput& o, const cv::Mat& left, int frame_index, double t_s,
                                    int confidence) {
  EngineOutput out;
  ever_tracked_ = true;
  waiting_for_area_ = false;
  if (root_keyframe_ < 0 && o.new_keyframe_id >= 0) {
    // The map tracking started in: every other one is placed by a guess until joined to it.
    root_keyframe_ = o.new_keyframe_id;
    root_segment_ = map_.segment;
  }
  if (o.new_keyframe_id >= 0) afterKeyframe(o.new_keyframe_id, left);
  const Eigen::Isometry3d T = odometry_.pose();  // after a loop closure's correction
  record(frame_index, o.reference_keyframe_id, T);
  T_world_last_ = T;
  T_world_measured_ = T;
  measured_t_s_ = t_s;
  last_guessed_ = false;
  motion_ = odometry_.motion();
  out.state = POSITIONAL_TRACKING_STATE::OK;
  out.T_world_camera = T;
  out.confidence = confidence;
  out.used = o.used;
  out.rejected = o.rejected;
  return out;
}

PlaceMatch TrackingEngine::locateInMeasuredMap(const cv::Mat& left, const cv::Mat& right) const {
  PlaceMatch match;
  const int measured = measuredSegment();
  if (!parameters_.area_memory || map_.segment == measured) return match;
  std::vector<std::pair<int, cv::Point2f>> inliers;
  if (!odometry_.locate(left, measured, match.T_world_camera, inliers)) return match;
  for (auto kf = map_.keyframes.rbegin(); kf != map_.keyframes.rend() && match.keyframe_id < 0; ++kf)
    if (kf->second.segment == measured) match.keyframe_id = kf->first;
  for (const auto& [landmark, px] : inliers) {
    match.landmark_pairs.emplace_back(int(match.query_pixels.size()), landmark);
    match.query_pixels.push_back(px);
  }
  match.inliers = int(inliers.size());
  match.found = match.keyframe_id >= 0;
  if (!area_.confirmWithStereo(match, left, right)) match.found = false;
  return match;
}

EngineOutput TrackingEngine::tryRelocalise(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                           int frame_index, double t_s) {
  EngineOutput out;
  out.T_world_camera = T_world_last_;
  if (!parameters_.area_memory || map_.keyframes.empty()) return out;
  // Lost while tracking: look near the last pose first, then anywhere in the map.
  const Eigen::Vector3d last = T_world_last_.translation();
  PlaceMatch match = ever_tracked_ ? area_.relocalise(left, &last) : PlaceMatch();
  if (!area_.confirmWithStereo(match, left, right)) match = area_.relocalise(left);
  // Lost in a local map placed by a guess: the measured map's latest landmarks, matched as the
  // odometry matches its own, which asks for fewer of them than a place does.
  if (!area_.confirmWithStereo(match, left, right)) match = locateInMeasuredMap(left, right);
  if (!match.found) return out;
  // Back in the keyframe's local map.
  map_.segment = map_.keyframes[match.keyframe_id].segment;
  const OdometryOutput o = odometry_.startAt(left, right, depth, frame_index, t_s, match.T_world_camera);
  if (!o.ok) return out;
  unjoined_frames_ = 0;
  return accept(o, left, frame_index, t_s, std::min(100, match.inliers));
}

EngineOutput TrackingEngine::startNewMap(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                         int frame_index, double t_s, const Eigen::Isometry3d* T_world_guess) {
  // Where the odometry last looked for the camera when it looked from a measured pose, else where
  // the motion model puts it from the last measured pose (a guess is never built on a guess), the
  // start pose before any tracking.
  const Eigen::Isometry3d T_guess = T_world_guess && !last_guessed_ ? *T_world_guess
                                    : ever_tracked_
                                        ? T_world_measured_ * (motion_.steady() ? motion_.predict(t_s - measured_t_s_)
                                                                                : Eigen::Isometry3d::Identity())
                                        : T_world_last_;
  const int previous_segment = map_.segment;
  if (ever_tracked_) map_.segment = next_segment_++;
  const OdometryOutput o = odometry_.startAt(left, right, depth, frame_index, t_s, T_guess);
  EngineOutput out;
  out.T_world_camera = T_world_last_;
  if (!o.ok) {
    map_.segment = previous_segment;
    return out;  // nothing to match in this frame: still searching
  }
  odometry_.setMotion(motion_);
  unjoined_frames_ = 0;
  const bool guessed = ever_tracked_;
  EngineOutput started = accept(o, left, frame_index, t_s, 100);
  last_guessed_ = guessed;
  return started;
}

void TrackingEngine::joinBack(const cv::Mat& left, const cv::Mat& right, const OdometryOutput& o, EngineOutput& out) {
  const int unjoined = map_.segment;
  if (!parameters_.area_memory || unjoined == measuredSegment()) return;
  // Every frame at first, then keyframes: the place this local map started from is most likely
  // seen again soon.
  if (unjoined_frames_++ >= parameters_.join_attempt_frames && o.new_keyframe_id < 0) return;
  const Eigen::Vector3d last = T_world_last_.translation();
  PlaceMatch match = area_.relocalise(left, &last, unjoined);
  if (!area_.confirmWithStereo(match, left, right)) match = locateInMeasuredMap(left, right);
  if (!match.found) return;
  const Eigen::Isometry3d correction = match.T_world_camera * odometry_.pose().inverse();
  area_.joinSegments(unjoined, match.keyframe_id, o.reference_keyframe_id, correction);
  odometry_.applyCorrection(correction);
  trajectory_->refine(map_, measuredSegment());
  T_world_last_ = T_world_measured_ = odometry_.pose();
  out.T_world_camera = T_world_last_;
}

EngineOutput TrackingEngine::process(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                     int frame_index, double t_s) {
  const bool slow = last_t_s_ >= 0 && t_s - last_t_s_ > parameters_.max_frame_gap_s;
  last_t_s_ = t_s;
  if (waiting_for_area_) return reported(tryRelocalise(left, right, depth, frame_index, t_s), false);

  EngineOutput out;
  out.T_world_camera = T_world_last_;
  bool guessed = false;
  Eigen::Isometry3d T_world_guess;
  if (odometry_.started()) {
    const OdometryOutput o = odometry_.track(left, right, depth, frame_index, t_s);
    if (o.ok) {
      out = accept(o, left, frame_index, t_s, o.confidence);
      joinBack(left, right, o, out);
    } else {
      out.rejected = o.rejected;
      guessed = true;
      T_world_guess = o.T_world_guess;
    }
  }
  if (out.state != POSITIONAL_TRACKING_STATE::OK) {
    // Lost: the place in the map, else a new local map where the camera should be, from this very
    // frame when it can be matched in stereo.
    EngineOutput found = ever_tracked_ ? tryRelocalise(left, right, depth, frame_index, t_s) : EngineOutput();
    if (found.state != POSITIONAL_TRACKING_STATE::OK)
      found = startNewMap(left, right, depth, frame_index, t_s, guessed ? &T_world_guess : nullptr);
    if (found.state != POSITIONAL_TRACKING_STATE::OK) {
      found.T_world_camera = T_world_last_;
      found.rejected = out.rejected;
      odometry_.restart(T_world_last_);
    }
    out = found;
  }
  return reported(std::move(out), slow);
}

bool TrackingEngine::isMeasured(int segment) const {
  const int measured = measuredSegment();
  return measured < 0 || segment == measured;
}

EngineOutput TrackingEngine::reported(EngineOutput out, bool slow) const {
  if (out.state != POSITIONAL_TRACKING_STATE::OK) return out;
  if (last_guessed_ || !isMeasured(map_.segment)) {
    // The frame that starts a local map where the camera was guessed to be, or a frame tracked in
    // such a map: the pose is only a guess until that map is joined to the measured one (without
    // area memory, only the frame that starts it).
    out.state = POSITIONAL_TRACKING_STATE::SEARCHING;
    out.confidence = 0;
  } else if (slow) {
    out.state = POSITIONAL_TRACKING_STATE::FPS_TOO_LOW;
  }
  return out;
}

void TrackingEngine::restartAt(const Eigen::Isometry3d& T_world_camera) {
  odometry_.restart(T_world_camera);
  T_world_last_ = T_world_measured_ = T_world_camera;
  motion_.reset();
  last_guessed_ = false;
}

void TrackingEngine::finalise() {
  if (trajectory_->isFinal()) return;
  if (map_.keyframes.size() >= 2) {
    // Local maps still apart (left behind by a relocalisation): one more try to join each.
    if (parameters_.area_memory) {
      std::vector<int> ids;
      for (const auto& [id, kf] : map_.keyframes)
        if (kf.segment != map_.keyframes.begin()->second.segment) ids.push_back(id);
      std::map<int, int> merged;
      for (int id : ids)
        if (map_.keyframes.count(id) && map_.keyframes[id].segment != map_.keyframes.begin()->second.segment)
          (void)area_.closeLoop(id, merged);
    }
    if (area_.loopCount() > 0) area_.optimise();
    // The first keyframe of every local map holds still: maps never joined share nothing that
    // would fix one against another.
    std::vector<int> ids, firsts;
    std::set<int> segments;
    for (const auto& [id, kf] : map_.keyframes) (segments.insert(kf.segment).second ? firsts : ids).push_back(id);
    ids.insert(ids.begin(), firsts.begin(), firsts.end());
    BundleAdjustmentParameters p = parameters_.odometry.bundle;
    p.max_iterations = parameters_.final_iterations;
    // One thread: Ceres sums the parts of the normal equations in the order its threads finish
    // them, so more threads would change the poses' last bits from run to run.
    p.threads = 1;
    bundleAdjust(map_, calibration_, ids, int(firsts.size()), p);
    trajectory_->refine(map_, measuredSegment());
  }
  trajectory_->setFinal(true);
}

}  // namespace pv::internal
