// The motion between two frames from small patches around the previous frame's tracked points,
// whose depth is known: the current image is searched for the pose under which those patches
// look the same (photometric Gauss-Newton over the six degrees of freedom, inverse
// compositional, coarse to fine on image pyramids). Close surfaces and far ones move as they
// should, it needs no feature in the current frame and the coarse levels see through motion
// blur: the frame-to-frame estimate that needs no good prior.
#pragma once

#include <Eigen/Geometry>
#include <opencv2/core.hpp>
#include <vector>

#include "core/internal/camera_state.h"

namespace pv::internal {

struct SparseAlignmentParameters {
  int top_level = 6;                ///< the coarsest pyramid level searched (halving each level) ...
  int bottom_level = 2;             ///< ... down to this one (the flow refines at full resolution)
  int min_top_width_px = 20;        ///< the coarsest level is never narrower than this
  int iterations = 12;              ///< Gauss-Newton steps per level
  int turn_only_levels = 2;         ///< the coarsest levels estimate the turn alone
  double huber_grey = 8.0;          ///< robust loss scale of the grey difference
  int min_points = 20;              ///< fewer points seen in both frames: no answer
  double max_residual_ratio = 0.6;  ///< a mean difference left at the end above this share of the
                                    ///< patches' own contrast: no answer
};

class SparseAlignment {
 public:
  explicit SparseAlignment(const RectifiedCalibration& calibration,
                           const SparseAlignmentParameters& parameters = SparseAlignmentParameters());

  /// The pyramid (CV_32F levels bottom..top; finer ones empty) the alignment reads a grey frame from.
  std::vector<cv::Mat> prepare(const cv::Mat& gray) const;
  /// Refines T_current_previous from its initial value. `points_previous` are 3D points in the
  /// previous camera's frame, seen in the previous image where they project. False when too few
  /// points stay in view or the steps diverge.
  bool align(const std::vector<cv::Mat>& previous, const std::vector<cv::Mat>& current,
             const std::vector<Eigen::Vector3d>& points_previous, Eigen::Isometry3d& T_current_previous) const;

 private:
  RectifiedCalibration calibration_;
  SparseAlignmentParameters parameters_;
};

}  // namespace pv::internal
