// The tracking module's state inside a camera (CameraState::tracking_module).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/internal/camera_state.h"
#include "tracking/internal/tracking_engine.h"

namespace pv::internal {

class TrackingModule {
 public:
  bool enabled = false;
  PositionalTrackingParameters parameters;
  std::unique_ptr<TrackingEngine> engine;
  /// Identifies the input the trajectory belongs to (recording path; empty for live input).
  std::string input_key;
  /// Final trajectory of an earlier tracking run on the same recording (two-pass mapping).
  std::shared_ptr<TrajectoryStore> previous_pass;
  /// Last frame's feature points for the TRACKING view.
  std::vector<cv::Point2f> used, rejected;
  uint64_t timestamp_ns = 0;
};

}  // namespace pv::internal
