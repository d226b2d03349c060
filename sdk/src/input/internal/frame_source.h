// Where the raw frames of an open camera come from: a recording, the virtual camera or a live
// V4L2 camera. Camera::grab takes raw side-by-side frames from one of these and rectifies them.
#pragma once

#include <atomic>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "io/internal/ktr_file.h"
#include "pv/types.h"

namespace pv::internal {

/// What an input tells about itself once open.
struct SourceInfo {
  unsigned int serial_number = 0;
  MODEL model = MODEL::PAVO;
  INPUT_TYPE input_type = INPUT_TYPE::KTR;
  int width = 0, height = 0;  ///< one eye
  double fps = 0;
  StereoCalibration calibration;  ///< raw, at width x height
};

/// Camera controls kept as numbers 0..100 or -1 (automatic); safe to use from any thread.
class VideoSettings {
 public:
  VideoSettings();
  int get(VIDEO_SETTINGS setting) const;
  void set(VIDEO_SETTINGS setting, int value);
  /// Brightness factor of gain and exposure for a camera that simulates them (1 at automatic).
  double brightnessFactor() const;

 private:
  std::atomic<int> values_[int(VIDEO_SETTINGS::LAST)];
};

class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual const SourceInfo& info() const = 0;
  /// Next raw side-by-side frame, CV_8UC3 BGR or CV_8UC4 BGRA. Live sources block until a frame
  /// arrives.
  [[nodiscard]] virtual ERROR_CODE next(cv::Mat& side_by_side, uint64_t& timestamp_ns, int& index) = 0;
  /// Frame count of a recording; -1 for live sources.
  virtual int frameCount() const { return -1; }
  virtual void seek(int /*index*/) {}
  virtual int position() const { return 0; }
  /// Live controls; FAILURE where a source has none.
  [[nodiscard]] virtual ERROR_CODE setSetting(VIDEO_SETTINGS setting, int value);
  virtual int getSetting(VIDEO_SETTINGS setting) const;
};

/// A KTR recording, read as fast as it decodes or paced to its timestamps.
std::unique_ptr<FrameSource> openRecordingSource(const std::string& path, bool real_time, ERROR_CODE& err);

/// Options of the virtual camera (PAVO_VIRTUAL_CAMERA_OPTIONS: "disconnect_after=N,fps=F").
struct VirtualCameraOptions {
  int disconnect_after = -1;  ///< from this frame on grab reports CAMERA_NOT_DETECTED; -1 never
  double fps = 0;             ///< 0: the recording's rate
};
/// Parses the option text; false (and a reason) on a malformed option.
bool parseVirtualCameraOptions(const std::string& text, VirtualCameraOptions& options, std::string& why);

/// The virtual camera: a recording played as a live camera in real time, rewinding at its end.
std::unique_ptr<FrameSource> openVirtualSource(const std::string& path, const VirtualCameraOptions& options,
                                               ERROR_CODE& err);

/// The recording the virtual camera plays ($PAVO_VIRTUAL_CAMERA), empty when not set.
std::string virtualCameraPath();

/// A live camera found on the system (V4L2 node or the virtual camera).
struct LiveDevice {
  std::string path;  ///< /dev/videoN, or the recording of the virtual camera
  unsigned int serial_number = 0;
  bool is_virtual = false;
};
/// Every live camera now connected: V4L2 stereo cameras first, then the virtual camera.
std::vector<LiveDevice> listLiveDevices();

/// A V4L2 stereo camera delivering left|right side by side, with its calibration.
std::unique_ptr<FrameSource> openV4l2Source(const LiveDevice& device, int width, int height, int fps, ERROR_CODE& err);

}  // namespace pv::internal
