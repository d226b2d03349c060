#include "tracking/internal/trajectory_store.h"

#include <algorithm>

namespace pv::internal {

void TrajectoryStore::record(int frame_index, int keyframe_id, const Eigen::Isometry3d& T_world_keyframe,
                             const Eigen::Isometry3d& T_world_camera, bool measured) {
  std::lock_guard<std::mutex> lock(mutex_);
  Entry& e = frames_[frame_index];
  e.keyframe_id = keyframe_id;
  e.T_keyframe_camera = T_world_keyframe.inverse() * T_world_camera;
  e.T_world_camera = T_world_camera;
  e.measured = measured;
  final_ = false;
}

void TrajectoryStore::refine(const MapData& map, int measured_segment) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto& [index, e] : frames_) {
    auto kf = map.keyframes.find(e.keyframe_id);
    if (kf == map.keyframes.end()) continue;
    e.T_world_camera = kf->second.T_world_camera * e.T_keyframe_camera;
    e.measured = measured_segment < 0 || kf->second.segment == measured_segment;
  }
}

void TrajectoryStore::reanchor(int from, int to, const Eigen::Isometry3d& T_world_to) {
  std::lock_guard<std::mutex> lock(mutex_);
  const Eigen::Isometry3d T_to_world = T_world_to.inverse();
  for (auto& [index, e] : frames_) {
    if (e.keyframe_id != from) continue;
    e.keyframe_id = to;
    e.T_keyframe_camera = T_to_world * e.T_world_camera;
  }
}

bool TrajectoryStore::refinedPose(int frame_index, Eigen::Isometry3d& T_world_camera) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = frames_.find(frame_index);
  if (it == frames_.end() || !it->second.measured) return false;
  T_world_camera = it->second.T_world_camera;
  return true;
}

int TrajectoryStore::lastFrame() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return frames_.empty() ? -1 : frames_.rbegin()->first;
}

bool TrajectoryStore::isFinal() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return final_;
}

void TrajectoryStore::setFinal(bool final_poses) {
  std::lock_guard<std::mutex> lock(mutex_);
  final_ = final_poses;
}

size_t TrajectoryStore::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return frames_.size();
}

size_t TrajectoryStore::measuredCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return size_t(std::count_if(frames_.begin(), frames_.end(), [](const auto& f) { return f.second.measured; }));
}

void TrajectoryStore::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  frames_.clear();
  final_ = false;
}

}  // namespace pv::internal
