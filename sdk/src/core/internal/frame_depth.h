// The depth of the frame being tracked, which may still be in the making on another thread.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <utility>

namespace pv::internal {

/// CV_32F metres, NaN where unknown, or empty. Tracking asks for it only when it makes a keyframe,
/// so a grab computes depth beside tracking and get() waits for it (once) where it is needed.
/// Used from one thread.
class FrameDepth {
 public:
  FrameDepth(const cv::Mat& depth_m = cv::Mat()) : depth_(depth_m), ready_(true) {}  // NOLINT: a ready depth
  explicit FrameDepth(std::function<cv::Mat()> wait) : wait_(std::move(wait)) {}

  const cv::Mat& get() const {
    if (!ready_) {
      depth_ = wait_();
      ready_ = true;
    }
    return depth_;
  }

 private:
  std::function<cv::Mat()> wait_;
  mutable cv::Mat depth_;
  mutable bool ready_ = false;
};

}  // namespace pv::internal
