// Recordings as inputs: plain playback (as fast as it decodes, or paced in real time) and the
// virtual camera (real-time, rewinding, optionally unplugged after N frames).
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <thread>

#include "core/internal/error.h"
#include "input/internal/frame_source.h"

namespace pv::internal {

namespace {

using Clock = std::chrono::steady_clock;

class PlaybackSource : public FrameSource {
 public:
  struct Options {
    bool real_time = false;
    bool live = false;  // virtual camera: rewinds, never ends, has controls
    int disconnect_after = -1;
    double fps = 0;
  };

  ERROR_CODE open(const std::string& path, const Options& options) {
    options_ = options;
    ERROR_CODE err = reader_.open(path);
    if (err != ERROR_CODE::SUCCESS) return err;
    reader_.setBgraOutput(true);  // four channels rectify faster
    const KtrMetadata& m = reader_.metadata();
    info_.serial_number = m.serial_number;
    info_.model = options.live ? MODEL::PAVO_VIRTUAL : MODEL::PAVO;
    info_.input_type = options.live ? INPUT_TYPE::VIRTUAL : INPUT_TYPE::KTR;
    info_.width = m.width;
    info_.height = m.height;
    info_.fps = options.fps > 0 ? options.fps : m.fps;
    info_.calibration = m.calibration;
    return ERROR_CODE::SUCCESS;
  }

  const SourceInfo& info() const override { return info_; }
  int frameCount() const override { return options_.live ? -1 : reader_.frameCount(); }
  int position() const override { return position_.load(); }
  void seek(int index) override {
    if (options_.live) return;
    std::lock_guard<std::mutex> lock(mutex_);
    reader_.seek(index);
    position_ = reader_.position();
    pace_start_ = Clock::time_point();
  }

  ERROR_CODE next(cv::Mat& frame, uint64_t& timestamp_ns, int& index) override {
    if (options_.live && options_.disconnect_after >= 0 && delivered_ >= options_.disconnect_after)
      return fail(ERROR_CODE::CAMERA_NOT_DETECTED, "the virtual camera was unplugged");
    std::lock_guard<std::mutex> lock(mutex_);
    if (options_.live && reader_.position() >= reader_.frameCount()) reader_.seek(0);
    int64_t ts = 0;
    ERROR_CODE err = reader_.read(frame, ts, index);
    position_ = reader_.position();
    if (err != ERROR_CODE::SUCCESS) return err;
    if (options_.live) {
      pace(int64_t(1e9 / info_.fps) * delivered_);
      timestamp_ns = uint64_t(
          std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
              .count());
      index = delivered_;
      const double gain = settings_.brightnessFactor();
      if (std::abs(gain - 1.0) > 1e-3) frame.convertTo(frame, -1, gain);
    } else {
      timestamp_ns = uint64_t(ts);
      if (options_.real_time) pace(ts - reader_.metadata().time_origin_ns);
    }
    ++delivered_;
    return ERROR_CODE::SUCCESS;
  }

  ERROR_CODE setSetting(VIDEO_SETTINGS setting, int value) override {
    if (!options_.live) return FrameSource::setSetting(setting, value);
    if (value < -1 || value > 100)
      return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "a camera setting is -1 (automatic) or 0..100");
    settings_.set(setting, value);
    return ERROR_CODE::SUCCESS;
  }
  int getSetting(VIDEO_SETTINGS setting) const override {
    return options_.live ? settings_.get(setting) : FrameSource::getSetting(setting);
  }

 private:
  // Sleeps until `offset_ns` after the pacing start (set at the first paced frame).
  void pace(int64_t offset_ns) {
    const Clock::time_point now = Clock::now();
    if (pace_start_ == Clock::time_point() || offset_ns < pace_offset_) {
      pace_start_ = now;
      pace_offset_ = offset_ns;
      return;
    }
    const Clock::time_point due = pace_start_ + std::chrono::nanoseconds(offset_ns - pace_offset_);
    if (due > now) std::this_thread::sleep_until(due);
  }

  Options options_;
  SourceInfo info_;
  KtrReader reader_;
  mutable std::mutex mutex_;
  std::atomic<int> position_{0};
  int delivered_ = 0;
  Clock::time_point pace_start_;
  int64_t pace_offset_ = 0;
  VideoSettings settings_;
};

}  // namespace

VideoSettings::VideoSettings() {
  for (auto& v : values_) v = -1;
}
int VideoSettings::get(VIDEO_SETTINGS s) const {
  const int i = int(s);
  return i >= 0 && i < int(VIDEO_SETTINGS::LAST) ? values_[i].load() : -1;
}
void VideoSettings::set(VIDEO_SETTINGS s, int value) {
  const int i = int(s);
  if (i >= 0 && i < int(VIDEO_SETTINGS::LAST)) values_[i] = value;
}
double VideoSettings::brightnessFactor() const {
  // Automatic (-1) and 50 are neutral; 0 halves the light, 100 doubles it, for each control.
  double factor = 1.0;
  for (VIDEO_SETTINGS s : {VIDEO_SETTINGS::GAIN, VIDEO_SETTINGS::EXPOSURE}) {
    const int v = get(s);
    if (v >= 0) factor *= std::pow(2.0, (v - 50) / 50.0);
  }
  return factor;
}

ERROR_CODE FrameSource::setSetting(VIDEO_SETTINGS, int) {
  return fail(ERROR_CODE::FAILURE, "camera settings apply to live cameras only");
}
int FrameSource::getSetting(VIDEO_SETTINGS) const { return -1; }

std::unique_ptr<FrameSource> openRecordingSource(const std::string& path, bool real_time, ERROR_CODE& err) {
  auto source = std::make_unique<PlaybackSource>();
  PlaybackSource::Options options;
  options.real_time = real_time;
  err = source->open(path, options);
  if (err != ERROR_CODE::SUCCESS) return nullptr;
  return source;
}

std::unique_ptr<FrameSource> openVirtualSource(const std::string& path, const VirtualCameraOptions& virt,
                                               ERROR_CODE& err) {
  auto source = std::make_unique<PlaybackSource>();
  PlaybackSource::Options options;
  options.real_time = true;
  options.live = true;
  options.disconnect_after = virt.disconnect_after;
  options.fps = virt.fps;
  err = source->open(path, options);
  if (err != ERROR_CODE::SUCCESS) return nullptr;
  return source;
}

bool parseVirtualCameraOptions(const std::string& text, VirtualCameraOptions& options, std::string& why) {
  VirtualCameraOptions parsed;
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    if (item.empty()) continue;
    const size_t eq = item.find('=');
    const std::string key = item.substr(0, eq);
    const std::string value = eq == std::string::npos ? "" : item.substr(eq + 1);
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (value.empty() || *end != '\0' || !std::isfinite(number)) {
      why = "option '" + item + "' needs a number";
      return false;
    }
    if (key == "disconnect_after" && number >= 0 && number == std::floor(number)) {
      parsed.disconnect_after = int(number);
    } else if (key == "fps" && number > 0 && number <= 1000) {
      parsed.fps = number;
    } else {
      why = "option '" + item + "' is not known or out of range (disconnect_after=N, fps=F)";
      return false;
    }
  }
  options = parsed;
  return true;
}

std::string virtualCameraPath() {
  const char* path = std::getenv("PAVO_VIRTUAL_CAMERA");
  return path ? std::string(path) : std::string();
}

}  // namespace pv::internal
