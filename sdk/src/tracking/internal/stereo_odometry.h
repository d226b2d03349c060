// Stereo visual odometry on rectified pairs: features on the left image matched into the right
// one, tracked frame to frame (pyramidal Lucas-Kanade from where the motion model expects them,
// else from where they were), pose from PnP with RANSAC refined by a motion-only
// Levenberg-Marquardt step, keyframes, and a sliding-window bundle adjustment. The frames'
// timestamps drive the motion model. Works on plain images; pv::Camera drives it through the
// tracking module.
#pragma once

#include <deque>
#include <opencv2/core.hpp>
#include <vector>

#include "core/internal/frame_depth.h"
#include "tracking/internal/map_data.h"
#include "tracking/internal/motion_model.h"
#include "tracking/internal/optimisation.h"
#include "tracking/internal/sparse_alignment.h"
#include "tracking/internal/stereo_features.h"

namespace pv::internal {

struct OdometryParameters {
  FeatureParameters features;
  int klt_window_px = 15;
  int klt_levels = 3;
  double klt_check_px = 0.7;           ///< forward-backward tracking disagreement allowed
  int min_inliers = 15;                ///< fewer PnP inliers than this: lost
  double ransac_px = 2.0;              ///< PnP RANSAC reprojection threshold
  int keyframe_min_inliers = 60;       ///< a keyframe is taken when inliers fall below this ...
  double keyframe_inlier_ratio = 0.5;  ///< ... or below this share of the last keyframe's landmarks
  int keyframe_max_frames = 15;        ///< ... or after this many frames
  double keyframe_distance_m = 0.20;   ///< ... or after moving this far
  double keyframe_angle_rad = 0.20;    ///< ... or turning this much
  int window_keyframes = 5;            ///< keyframes in the sliding-window bundle adjustment
  double min_depth_m = 0.2, max_depth_m = 40.0;
  double good_inlier_ratio = 0.5;        ///< a flow estimate keeping this share of the tracks needs no second try
  int descriptor_fallback_inliers = 50;  ///< fewer flow inliers than this: match descriptors against the local map
  int descriptor_cells = 1000;           ///< features looked for in a frame matched by descriptors
  int descriptor_octaves = 3;            ///< scales each of them is described at
  int descriptor_keyframes = 15;         ///< latest keyframes whose landmarks the descriptors are matched to
  double nominal_interval_s = 1.0 / 30;  ///< frame interval assumed when timestamps do not grow
  bool narrow_stereo_search = false;     ///< search new features only over the tracked disparities
  bool keep_keyframes = true;            ///< keep keyframes that leave the window (area memory)
  BundleAdjustmentParameters bundle;
  SparseAlignmentParameters sparse_alignment;
  int sparse_alignment_points = 250;  ///< tracks the sparse alignment uses at most
};

/// What one frame gave.
struct OdometryOutput {
  bool ok = false;
  Eigen::Isometry3d T_world_camera = Eigen::Isometry3d::Identity();
  int inliers = 0;
  int confidence = 0;  ///< 0..100
  /// The best guess of a frame that could not be tracked: where its tracks' patches put it, else
  /// where the motion model does (standing still while the camera shakes).
  Eigen::Isometry3d T_world_guess = Eigen::Isometry3d::Identity();
  int new_keyframe_id = -1;                 ///< the keyframe this frame became, -1 when none
  int reference_keyframe_id = -1;           ///< the latest keyframe (its pose anchors this frame)
  std::vector<cv::Point2f> used, rejected;  ///< left pixels used by the pose and those refused
};

class StereoOdometry {
 public:
  StereoOdometry(const RectifiedCalibration& calibration, MapData& map,
                 const OdometryParameters& parameters = OdometryParameters());

  /// Processes one rectified grey pair captured at `t_s` seconds. `depth` may be empty; when given
  /// it guides the stereo matching of a new keyframe (the only time it is asked for).
  OdometryOutput track(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index, double t_s);

  /// Forgets the tracks; the next frame starts afresh at `T_world_camera`.
  void restart(const Eigen::Isometry3d& T_world_camera);
  /// Starts at `T_world_camera` with this frame (used after a relocalisation).
  OdometryOutput startAt(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index,
                         double t_s, const Eigen::Isometry3d& T_world_camera);

  /// Finds a grey left image among the landmarks of the latest keyframes of local map `segment` by
  /// their descriptors, without a prior: its pose and the (landmark, pixel) pairs that agree with
  /// it. Leaves the tracks as they are.
  bool locate(const cv::Mat& left, int segment, Eigen::Isometry3d& T_world_camera,
              std::vector<std::pair<int, cv::Point2f>>& inliers) const;

  /// Moves the odometry's world frame: poses become T_correction * pose (after a loop closure).
  void applyCorrection(const Eigen::Isometry3d& T_correction);
  /// Renames landmarks followed by the tracks (merged into older ones after a loop closure).
  void remapLandmarks(const std::map<int, int>& old_to_new);

  bool started() const { return started_; }
  /// The motion model as the last frame tracked left it.
  const MotionModel& motion() const { return motion_; }
  /// Carries a motion model over a restart (tracking resumed after a loss).
  void setMotion(const MotionModel& motion) { motion_ = motion; }
  /// Capture time of the last frame processed (-1 before the first).
  double lastTime() const { return last_t_s_; }
  const Eigen::Isometry3d& pose() const { return T_world_camera_; }
  const OdometryParameters& parameters() const { return parameters_; }
  /// Keyframe ids in the sliding window, oldest first.
  const std::deque<int>& window() const { return window_; }
  /// Removes keyframe `id` (one that has left the window) from the map, with the landmarks no
  /// other keyframe observes and no track follows.
  void dropKeyframe(int id);

 private:
  struct Track {
    int landmark;
    cv::Point2f px;
  };
  /// A pose of the current frame and the tracks that agree with it.
  struct Estimate {
    bool ok = false;
    Eigen::Isometry3d T_world_camera = Eigen::Isometry3d::Identity();
    std::vector<Track> inliers;
    std::vector<cv::Point2f> rejected;
  };
  /// Follows the tracks by optical flow from where they land at `T_prior`, then PnP.
  Estimate followTracks(const std::vector<cv::Mat>& pyramid, const cv::Size& image,
                        const Eigen::Isometry3d& T_prior) const;
  /// T_previous_current by sparse image alignment of the tracks' patches from `T_prior`.
  bool alignSparse(const std::vector<cv::Mat>& levels, const Eigen::Isometry3d& prior,
                   Eigen::Isometry3d& T_previous_current) const;
  /// Finds the landmarks of the latest keyframes of local map `segment` in the frame by their
  /// descriptors, then PnP without a prior.
  Estimate matchDescriptors(const cv::Mat& left, int segment) const;
  OdometryOutput initialise(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index);
  bool estimatePose(const std::vector<cv::Point3f>& points_world, const std::vector<cv::Point2f>& pixels,
                    Eigen::Isometry3d& T_world_camera, std::vector<char>& inlier) const;
  /// Motion-only refinement of `T_world_camera` on the `consensus` of a PnP RANSAC, then on every
  /// correspondence that agrees with it.
  bool refinePose(const std::vector<cv::Point3f>& points_world, const std::vector<cv::Point2f>& pixels,
                  std::vector<int> consensus, Eigen::Isometry3d& T_world_camera, std::vector<char>& inlier) const;
  int makeKeyframe(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index);
  void slideWindow();
  std::vector<float> disparityGuess(const cv::Mat& depth_m, const std::vector<cv::Point2f>& points) const;

  RectifiedCalibration calibration_;
  MapData& map_;
  OdometryParameters parameters_;
  cv::Mat K_;
  cv::Ptr<cv::ORB> orb_;
  SparseAlignment sparse_;
  std::vector<Track> tracks_;
  std::vector<cv::Mat> previous_pyramid_, previous_levels_;
  Eigen::Isometry3d T_world_camera_ = Eigen::Isometry3d::Identity();
  MotionModel motion_;
  double last_t_s_ = -1;
  Eigen::Isometry3d T_world_keyframe_ = Eigen::Isometry3d::Identity();
  std::deque<int> window_;
  int frames_since_keyframe_ = 0;
  int keyframe_landmarks_ = 0;
  bool started_ = false;
};

}  // namespace pv::internal
