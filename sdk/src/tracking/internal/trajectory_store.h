// The refined camera pose of every tracked frame of a recording, for mapping in two passes.
//
// For the mapping module: while tracking runs on a recording, each tracked frame index is stored
// against the keyframe it was tracked from. Loop closures and the final global optimisation
// (run by Camera::saveAreaMap, or when a second pass first asks for the poses) move the keyframes,
// and refinedPose then returns the frame's pose after them. A frame of a local map started at a
// guessed pose has no pose to give until that map is joined to the one tracking started in. The store survives
// disablePositionalTracking on the same open recording (it is dropped at close, or when tracking
// is enabled again on a different input) so that a second pass with map type 5 or 6 can fuse at
// these poses: call finalTrajectory(state).
// Poses are T_world_camera in IMAGE axes and metres, like CameraState::tracking.
#pragma once

#include <Eigen/Geometry>
#include <map>
#include <mutex>

#include "tracking/internal/map_data.h"

namespace pv::internal {

class TrajectoryStore {
 public:
  /// Remembers frame `frame_index` at `T_world_camera`, tracked from keyframe `keyframe_id`
  /// whose pose is now `T_world_keyframe`; `measured` is false while that keyframe's local map
  /// sits at a guessed pose. Thread safe.
  void record(int frame_index, int keyframe_id, const Eigen::Isometry3d& T_world_keyframe,
              const Eigen::Isometry3d& T_world_camera, bool measured);
  /// Re-anchors every stored frame on the current pose of its keyframe; the frames whose keyframe
  /// now belongs to local map `measured_segment` become measured (all of them when it is
  /// negative). Thread safe.
  void refine(const MapData& map, int measured_segment);
  /// The frames tracked from keyframe `from` (about to be removed) follow keyframe `to`, now at
  /// `T_world_to`, from here on. Thread safe.
  void reanchor(int from, int to, const Eigen::Isometry3d& T_world_to);
  /// The pose of a stored frame; false when the frame was not tracked, or only placed in a local
  /// map that was never joined to the measured one. Thread safe.
  bool refinedPose(int frame_index, Eigen::Isometry3d& T_world_camera) const;
  /// The highest stored frame index, -1 when none. Thread safe.
  int lastFrame() const;
  /// True once the final global optimisation has run (two-pass poses are ready). Thread safe.
  bool isFinal() const;
  void setFinal(bool final_poses);
  size_t size() const;
  /// The stored frames that are measured, not placed in a local map at a guessed pose.
  size_t measuredCount() const;
  void clear();

 private:
  struct Entry {
    int keyframe_id = -1;
    Eigen::Isometry3d T_keyframe_camera = Eigen::Isometry3d::Identity();
    Eigen::Isometry3d T_world_camera = Eigen::Isometry3d::Identity();
    bool measured = true;
  };
  mutable std::mutex mutex_;
  std::map<int, Entry> frames_;
  bool final_ = false;
};

struct CameraState;
/// The store of the camera's tracking module, or null when tracking never ran since open.
const TrajectoryStore* trajectoryStore(const CameraState& state);
/// As trajectoryStore, after the final global optimisation of a finished (disabled) tracking run,
/// which runs here the first time it is asked for. Call from the grabbing thread.
const TrajectoryStore* finalTrajectory(CameraState& state);

}  // namespace pv::internal
