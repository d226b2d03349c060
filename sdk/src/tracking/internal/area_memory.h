// Area memory over the sparse map: ORB descriptors of keyframe observations, loop detection
// with landmark merging and pose-graph optimisation, and relocalisation of a frame in the map.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <vector>

#include "tracking/internal/map_data.h"
#include "tracking/internal/optimisation.h"
#include "tracking/internal/stereo_features.h"

namespace pv::internal {

struct AreaMemoryParameters {
  int min_inliers = 30;        ///< PnP inliers a loop or a relocalisation needs
  int loop_min_inliers = 50;   ///< landmarks a loop must agree on after refinement
  int min_keyframe_gap = 15;   ///< loops only with keyframes this much older
  double loop_radius_m = 3.0;  ///< loop candidates lie this close to the current keyframe
  double ransac_px = 2.5;
  float ratio = 0.8f;         ///< descriptor ratio test
  double loop_weight = 10.0;  ///< weight of loop edges against odometry edges
};

/// A found place: the pose of the frame in the map and the keyframe it matched.
struct PlaceMatch {
  bool found = false;
  int keyframe_id = -1;
  Eigen::Isometry3d T_world_camera = Eigen::Isometry3d::Identity();
  int inliers = 0;
  std::vector<std::pair<int, int>> landmark_pairs;  ///< (observation index in the query, map landmark)
  std::vector<cv::Point2f> query_pixels;            ///< the query's feature pixels
};

class AreaMemory {
 public:
  AreaMemory(const RectifiedCalibration& calibration, MapData& map,
             const AreaMemoryParameters& parameters = AreaMemoryParameters());

  /// Computes the ORB descriptors of keyframe `id`'s observations on its left image.
  void describeKeyframe(int id, const cv::Mat& left);
  /// Looks for a loop between keyframe `id` and older keyframes near it, or any keyframe of
  /// another local map (segment) near it; on success merges the matched landmarks (reported in
  /// `merged`, old id -> kept id), adds a loop edge, makes the two segments one and optimises the
  /// pose graph. Returns true when a loop was closed.
  bool closeLoop(int id, std::map<int, int>& merged);
  /// Finds the pose of a grey left image in the map by descriptor matching and PnP. `near`
  /// (optional) restricts the search to keyframes within loop_radius_m of that position; the
  /// keyframes of `exclude_segment` are not searched.
  PlaceMatch relocalise(const cv::Mat& left, const Eigen::Vector3d* near = nullptr, int exclude_segment = -1);
  /// Joins a local map to another one: moves the keyframes and landmarks of `from_segment` by
  /// `T_correction` into the frame of keyframe `into_keyframe`'s map, makes them one segment and
  /// links `into_keyframe` with `from_keyframe` for later optimisations.
  void joinSegments(int from_segment, int into_keyframe, int from_keyframe, const Eigen::Isometry3d& T_correction);
  /// Checks a relocalisation with the right image: the matched landmarks must lie at the depth
  /// the stereo pair measures at their pixels, for most of them.
  bool confirmWithStereo(const PlaceMatch& match, const cv::Mat& left, const cv::Mat& right) const;
  /// Pose-graph optimisation over every keyframe with the loop edges found so far.
  void optimise();
  /// Drops the loop edges of a keyframe that leaves the map.
  void forgetKeyframe(int id);

  int loopCount() const { return int(loops_.size()); }
  const std::vector<PoseEdge>& loops() const { return loops_; }

 private:
  PlaceMatch matchAgainst(const std::vector<cv::Point2f>& pixels, const cv::Mat& descriptors,
                          const std::vector<int>& candidates, int exclude_from_id);
  /// Improves a found pose with every nearby landmark that projects close to a query feature
  /// with a similar descriptor, from the keyframes `usable` accepts.
  void refineByProjection(const std::vector<cv::Point2f>& pixels, const cv::Mat& descriptors, PlaceMatch& match,
                          const std::function<bool(const Keyframe&)>& usable);
  /// True when most matched landmarks lie at the depth the keyframe measured in stereo for them.
  bool stereoAgrees(const PlaceMatch& match, const Keyframe& keyframe) const;
  /// Iteratively re-weighted (by inlier selection) Levenberg-Marquardt pose refinement.
  bool refinePose(const std::vector<cv::Point3f>& object, const std::vector<cv::Point2f>& image,
                  Eigen::Isometry3d& T_world_camera, std::vector<char>& inlier) const;

  RectifiedCalibration calibration_;
  MapData& map_;
  AreaMemoryParameters parameters_;
  cv::Ptr<cv::ORB> orb_;
  cv::Mat K_;
  std::vector<PoseEdge> loops_;
};

}  // namespace pv::internal
