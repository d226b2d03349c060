// Private state behind pv::Camera, shared by the modules that make up a grab:
// input (core/camera.cpp, input/), depth (depth/), tracking (tracking/), mapping (mapping/).
// Everything here is in the IMAGE frame (x right, y down, z forward) and metres; conversion to
// the application's coordinate system and unit happens at the public interface.
#pragma once

#include <Eigen/Core>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <opencv2/core.hpp>

#include "core/internal/frame_depth.h"
#include "pv/camera.h"

namespace pv::internal {

/// Intrinsics of the rectified pair (both eyes share them), pixels and metres.
struct RectifiedCalibration {
  double fx = 0, fy = 0, cx = 0, cy = 0;
  double baseline_m = 0;
  cv::Size size;  ///< one eye
};

/// The frame of the last successful grab.
struct FrameData {
  cv::Mat left_bgr;               ///< rectified, CV_8UC3
  cv::Mat left_gray, right_gray;  ///< rectified, CV_8UC1
  cv::Mat raw;                    ///< the raw side-by-side frame (the right colour image is made from it on request)
  uint64_t timestamp_ns = 0;
  int index = -1;  ///< frame index in a recording, running count for live input
  bool valid = false;
};

/// Depth of the last grab at the left image's full resolution (filled by the depth module).
struct DepthData {
  cv::Mat depth_m;       ///< CV_32F, NaN where invalid
  cv::Mat confidence;    ///< CV_32F, 1 (sure) .. 100 (unsure); NaN where invalid
  cv::Mat disparity_px;  ///< CV_32F, full-resolution pixels; NaN where invalid
  bool valid = false;
};

/// Tracking result of the last grab (filled by the tracking module).
struct TrackingData {
  POSITIONAL_TRACKING_STATE state = POSITIONAL_TRACKING_STATE::OFF;
  Eigen::Matrix4f T_world_camera = Eigen::Matrix4f::Identity();  ///< IMAGE axes, metres
  Eigen::Matrix4f T_prev_camera = Eigen::Matrix4f::Identity();   ///< motion since the previous frame
  int confidence = 0;
};

// Modules keep their own state behind these (declared in their own internal headers).
class DepthModule;
class TrackingModule;
class MappingModule;

struct CameraState {
  bool opened = false;
  InitParameters init_parameters;
  CameraInformation information;
  RectifiedCalibration calibration;
  RuntimeParameters runtime;  ///< of the last grab

  FrameData frame;
  DepthData depth;
  TrackingData tracking;

  // Module state; shared_ptr so that this header needs no module header.
  std::shared_ptr<DepthModule> depth_module;
  std::shared_ptr<TrackingModule> tracking_module;
  std::shared_ptr<MappingModule> mapping_module;

  /// Optimised pose (IMAGE axes, metres) of a recording's frame by index, kept by a tracking pass
  /// over it; set by the tracking module, read by mapping for the two-pass map types. Empty when
  /// no such pass was made.
  std::function<bool(int frame_index, Eigen::Matrix4f& T_world_camera)> refined_pose;

  /// Input behind the camera (recording, virtual or live); owned by core/camera.cpp.
  std::shared_ptr<void> input;
};

// Steps of a grab after the frame is decoded and rectified, each defined by its module and
// called by Camera::grab: depth (after its parameters are checked) beside tracking, then mapping.
// Each returns SUCCESS or the code grab should return.
ERROR_CODE checkDepthParameters(const CameraState& state, const RuntimeParameters& runtime);
/// Writes state.depth and nothing that tracking reads.
ERROR_CODE depthStep(CameraState& state, const RuntimeParameters& runtime);
/// Reads this frame's depth only through `depth`.
ERROR_CODE trackingStep(CameraState& state, const FrameDepth& depth);
ERROR_CODE mappingStep(CameraState& state);
/// Draws DEPTH or DEPTH_COLOR of the last grab as CV_8UC4 (BGRA) at native resolution (depth/).
ERROR_CODE depthView(const CameraState& state, VIEW view, cv::Mat& bgra);
/// Draws the TRACKING view of the last grab as CV_8UC4 (BGRA) at native resolution (tracking/).
ERROR_CODE trackingView(const CameraState& state, cv::Mat& bgra);
/// Called by Camera::close so modules release their state.
void closeModules(CameraState& state);

}  // namespace pv::internal
