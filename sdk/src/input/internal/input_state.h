// What pv::Camera keeps about its open input (CameraState::input points at one of these).
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>

#include "input/internal/frame_source.h"
#include "input/internal/rectifier.h"
#include "io/internal/ktr_file.h"

namespace pv::internal {

struct InputState {
  std::unique_ptr<FrameSource> source;
  Rectifier rectifier;
  cv::Mat raw;                        ///< last raw side-by-side frame (BGR or BGRA)
  cv::Mat raw_bgr;                    ///< its BGR copy when a BGRA frame is recorded
  std::atomic<int> pending_seek{-1};  ///< set by setKTRPosition, applied by the next grab
  std::atomic<int> position{0};       ///< next frame to grab
  std::atomic<float> fps{0};          ///< measured grab rate
  std::chrono::steady_clock::time_point last_grab;
  double mean_interval_s = 0;

  std::mutex recording_mutex;
  std::unique_ptr<KtrWriter> recorder;
};

}  // namespace pv::internal
