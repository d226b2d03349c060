// Positional tracking without a camera: visual odometry, area memory (loops, relocalisation),
// tracking states and the per-frame trajectory. The camera's tracking module and the tools
// feed it rectified pairs.
//
// A frame the odometry cannot follow is looked for in the map (relocalisation); when it is not
// found there, tracking resumes with that very frame as the start of a new local map, placed
// where the motion model expects the camera, and loop closure joins that map to the others as
// soon as one of its keyframes recognises a place. Only the local map tracking started in (and
// those joined to it) is measured: a frame placed in another one is reported SEARCHING with its
// best guess as the pose, and so is a frame with nothing to match in stereo (a blank or covered
// image).
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <vector>

#include "core/internal/frame_depth.h"
#include "pv/defines.h"
#include "tracking/internal/area_memory.h"
#include "tracking/internal/stereo_odometry.h"
#include "tracking/internal/trajectory_store.h"

namespace pv::internal {

struct TrackingEngineParameters {
  OdometryParameters odometry;
  AreaMemoryParameters area;
  bool area_memory = true;        ///< keep keyframes, close loops, relocalise in the whole map
  double max_frame_gap_s = 0.25;  ///< a longer gap between frames reports FPS_TOO_LOW
  int final_iterations = 15;      ///< global bundle adjustment iterations in finalise()
  int join_attempt_frames = 10;   ///< a new local map looks for the others on this many frames, then on keyframes
  /// Keep each frame's pose for a second pass over the same recording (live input has none).
  bool keep_trajectory = true;
};

struct EngineOutput {
  POSITIONAL_TRACKING_STATE state = POSITIONAL_TRACKING_STATE::SEARCHING;
  Eigen::Isometry3d T_world_camera = Eigen::Isometry3d::Identity();  ///< held while searching
  int confidence = 0;
  std::vector<cv::Point2f> used, rejected;
};

class TrackingEngine {
 public:
  TrackingEngine(const RectifiedCalibration& calibration, const TrackingEngineParameters& parameters,
                 const Eigen::Isometry3d& T_world_start = Eigen::Isometry3d::Identity());

  /// Tracks one rectified grey pair (`depth` may be empty). `t_s` is its capture time.
  EngineOutput process(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index, double t_s);

  /// Takes a saved area as the map: tracking then searches until the camera is relocalised in
  /// its world frame.
  void adoptArea(MapData area);
  /// Final global optimisation (pose graph with the loops, then bundle adjustment of every
  /// keyframe) and re-anchoring of the stored trajectory, which becomes final. Does nothing when
  /// the trajectory is final already (no frame was tracked since).
  void finalise();
  /// Forgets the tracks: the next frame starts afresh at `T_world_camera`.
  void restartAt(const Eigen::Isometry3d& T_world_camera);

  const MapData& map() const { return map_; }
  const TrajectoryStore& trajectory() const { return *trajectory_; }
  /// The trajectory, shared so that it can outlive the engine (two-pass mapping).
  std::shared_ptr<TrajectoryStore> sharedTrajectory() const { return trajectory_; }
  const RectifiedCalibration& calibration() const { return calibration_; }
  int loopCount() const { return area_.loopCount(); }
  /// Local maps started at a guessed pose after a loss.
  int restarts() const { return next_segment_ - 1; }
  /// The local map tracking started in, with every map joined to it since; -1 without area
  /// memory, where every local map counts as measured.
  int measuredSegment() const;

 private:
  /// True when a frame placed in local map `segment` is measured, not guessed.
  bool isMeasured(int segment) const;
  /// The frame among the latest landmarks of the measured map by the odometry's descriptor
  /// matching, confirmed in stereo; not found when the current map is the measured one.
  PlaceMatch locateInMeasuredMap(const cv::Mat& left, const cv::Mat& right) const;
  EngineOutput tryRelocalise(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index,
                             double t_s);
  EngineOutput startNewMap(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index,
                           double t_s, const Eigen::Isometry3d* T_world_guess);
  /// Records a frame the odometry placed; loop closure on a new keyframe.
  EngineOutput accept(const OdometryOutput& o, const cv::Mat& left, int frame_index, double t_s, int confidence);
  void afterKeyframe(int id, const cv::Mat& left);
  /// Removes the keyframes that have left the odometry's window and add no viewpoint to the map.
  void cullRedundantKeyframes();
  void record(int frame_index, int keyframe_id, const Eigen::Isometry3d& T_world_camera);
  /// A frame of a local map started at a guess: when it is recognised in another map, the new map
  /// moves there and becomes part of it.
  void joinBack(const cv::Mat& left, const cv::Mat& right, const OdometryOutput& o, EngineOutput& out);
  /// What the caller is told: SEARCHING while the pose is only placed by a guess, FPS_TOO_LOW when
  /// the frame came `slow`ly.
  EngineOutput reported(EngineOutput out, bool slow) const;

  RectifiedCalibration calibration_;
  TrackingEngineParameters parameters_;
  MapData map_;
  StereoOdometry odometry_;
  AreaMemory area_;
  std::shared_ptr<TrajectoryStore> trajectory_ = std::make_shared<TrajectoryStore>();
  Eigen::Isometry3d T_world_last_;
  double last_t_s_ = -1;
  Eigen::Isometry3d T_world_measured_;  ///< the last pose measured (tracked or relocalised), not guessed
  double measured_t_s_ = -1;
  bool last_guessed_ = false;  ///< the last frame started a local map at a guess
  MotionModel motion_;         ///< as the last frame tracked left it, to place a new local map
  int next_segment_ = 1;
  int unjoined_frames_ = 0;        ///< frames since the current local map was entered (join attempts)
  int root_keyframe_ = -1;         ///< the first keyframe of the map tracking started in
  int root_segment_ = 0;           ///< its segment when it was taken (kept without area memory)
  bool waiting_for_area_ = false;  ///< an adopted area: no pose until relocalised in it
  bool ever_tracked_ = false;
  int culling_checked_ = -1;  ///< keyframes up to this id have been judged by the culling
};

}  // namespace pv::internal
