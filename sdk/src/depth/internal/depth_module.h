// The depth module behind pv::Camera: runs the stereo engine on each grab, applies the runtime
// thresholds and distance limits, and keeps the result in CameraState::depth.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "core/internal/camera_state.h"
#include "depth/internal/stereo_engine.h"

namespace pv::internal {

/// What rejects or fills pixels after matching (depth_filtering.cpp).
struct DepthFilterParameters {
  float min_depth_m = 0.3f;                ///< nearer pixels are dropped
  float max_depth_m = 15.f;                ///< farther pixels are dropped
  int confidence_threshold = 100;          ///< keep confidence <= this (100 keeps all)
  int texture_confidence_threshold = 100;  ///< keep texture confidence <= this (100 keeps all)
  bool remove_saturated_areas = true;      ///< drop pixels where the left image is saturated
  bool fill = false;                       ///< fill the holes (SENSING_MODE::FILL)
};

/// Turns the engine's output into depth: thresholds, saturation, distance limits in disparity,
/// then FILL, then depth = fx * baseline / disparity. `left_gray` is the rectified left image.
/// Filled pixels get confidence 100. The engine's disparity and confidence become the result's:
/// they are filtered in place unless another header still shares them. A half-size result
/// (StereoParameters::half_size_output) is doubled here, one row at a time before its filtering.
DepthData filterToDepth(StereoOutput&& stereo, const cv::Mat& left_gray, double fx_px, double baseline_m,
                        const DepthFilterParameters& params);

/// Search range that covers depths from `min_depth_m` for the rectified camera, capped to keep the
/// frame rate: at most a quarter of the image width and 192 pixels.
int disparityRangeFor(const RectifiedCalibration& calibration, float min_depth_m);

/// State kept between grabs.
class DepthModule {
 public:
  explicit DepthModule(DEPTH_MODE mode) : mode_(mode) {}
  DEPTH_MODE mode() const { return mode_; }
  /// Runs the engine and the filters on the state's frame; fills state.depth.
  ERROR_CODE step(CameraState& state, const RuntimeParameters& runtime);
  double lastElapsedMs() const { return last_elapsed_ms_; }
  /// True when the depth in the state was computed for `frame` (a grab with depth disabled
  /// leaves the previous frame's depth behind, which must not be handed out).
  bool computedFor(const FrameData& frame) const {
    return frame.valid && frame.index == frame_index_ && frame.timestamp_ns == frame_timestamp_ns_;
  }

 private:
  DEPTH_MODE mode_;
  double last_elapsed_ms_ = 0;
  int frame_index_ = -2;
  uint64_t frame_timestamp_ns_ = 0;
};

/// Draws DEPTH (grey, near bright) or DEPTH_COLOR (colour map from near to far, invalid black) of
/// `depth_m` as CV_8UC4 between the frame's nearest and farthest valid depths (depth_view.cpp).
cv::Mat drawDepth(const cv::Mat& depth_m, bool colour);

}  // namespace pv::internal
