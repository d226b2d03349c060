// Live stereo cameras through V4L2: a capture thread keeps only the newest side-by-side frame,
// grab takes the next one not yet returned. Gain and exposure map to the V4L2 controls.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <thread>

#include "core/internal/error.h"
#include "input/internal/frame_source.h"
#include "input/internal/live_camera.h"

namespace pv::internal {

namespace {

int xioctl(int fd, unsigned long request, void* arg) {
  int r;
  do r = ioctl(fd, request, arg);
  while (r == -1 && errno == EINTR);
  return r;
}

// A node counts as a stereo camera when it captures video in a side-by-side size
// (width at least 3.5 times the height, e.g. 2560x720).
bool deliversSideBySide(int fd) {
  v4l2_capability cap{};
  if (xioctl(fd, VIDIOC_QUERYCAP, &cap) < 0) return false;
  const uint32_t caps = (cap.capabilities & V4L2_CAP_DEVICE_CAPS) ? cap.device_caps : cap.capabilities;
  if (!(caps & V4L2_CAP_VIDEO_CAPTURE) || !(caps & V4L2_CAP_STREAMING)) return false;
  for (uint32_t f = 0; f < 16; ++f) {
    v4l2_fmtdesc desc{};
    desc.index = f;
    desc.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (xioctl(fd, VIDIOC_ENUM_FMT, &desc) < 0) break;
    for (uint32_t s = 0; s < 32; ++s) {
      v4l2_frmsizeenum size{};
      size.index = s;
      size.pixel_format = desc.pixelformat;
      if (xioctl(fd, VIDIOC_ENUM_FRAMESIZES, &size) < 0) break;
      if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE && size.discrete.width * 2 >= size.discrete.height * 7) return true;
    }
  }
  return false;
}

uint32_t controlId(VIDEO_SETTINGS s) {
  switch (s) {
    case VIDEO_SETTINGS::BRIGHTNESS: return V4L2_CID_BRIGHTNESS;
    case VIDEO_SETTINGS::CONTRAST: return V4L2_CID_CONTRAST;
    case VIDEO_SETTINGS::HUE: return V4L2_CID_HUE;
    case VIDEO_SETTINGS::SATURATION: return V4L2_CID_SATURATION;
    case VIDEO_SETTINGS::SHARPNESS: return V4L2_CID_SHARPNESS;
    case VIDEO_SETTINGS::GAMMA: return V4L2_CID_GAMMA;
    case VIDEO_SETTINGS::GAIN: return V4L2_CID_GAIN;
    case VIDEO_SETTINGS::EXPOSURE: return V4L2_CID_EXPOSURE_ABSOLUTE;
    default: return 0;
  }
}

class V4l2Source : public FrameSource {
 public:
  ~V4l2Source() override { stop(); }

  ERROR_CODE open(const LiveDevice& device, int width, int height, int fps) {
    info_.serial_number = device.serial_number;
    info_.model = MODEL::PAVO;
    info_.input_type = INPUT_TYPE::USB;
    ERROR_CODE err = loadCameraCalibration(device.serial_number, info_.calibration);
    if (err != ERROR_CODE::SUCCESS) return err;
    fd_ = ::open(device.path.c_str(), O_RDWR | O_NONBLOCK);
    if (fd_ < 0)
      return fail(ERROR_CODE::CAMERA_NOT_DETECTED, "cannot open " + device.path + ": " + std::strerror(errno));
    v4l2_format fmt{};
    fmt.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    fmt.fmt.pix.width = uint32_t(2 * width);
    fmt.fmt.pix.height = uint32_t(height);
    fmt.fmt.pix.field = V4L2_FIELD_NONE;
    bool format_set = false;
    for (uint32_t pixel : {uint32_t(V4L2_PIX_FMT_YUYV), uint32_t(V4L2_PIX_FMT_MJPEG)}) {
      fmt.fmt.pix.pixelformat = pixel;
      if (xioctl(fd_, VIDIOC_S_FMT, &fmt) == 0 && fmt.fmt.pix.pixelformat == pixel &&
          fmt.fmt.pix.width == uint32_t(2 * width) && fmt.fmt.pix.height == uint32_t(height)) {
        format_set = true;
        break;
      }
    }
    if (!format_set)
      return fail(ERROR_CODE::INVALID_RESOLUTION, device.path + " cannot deliver " + std::to_string(2 * width) + "x" +
                                                      std::to_string(height) + " side by side");
    pixel_format_ = fmt.fmt.pix.pixelformat;
    v4l2_streamparm parm{};
    parm.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parm.parm.capture.timeperframe.numerator = 1;
    parm.parm.capture.timeperframe.denominator = uint32_t(fps);
    xioctl(fd_, VIDIOC_S_PARM, &parm);
    const v4l2_fract tpf = parm.parm.capture.timeperframe;
    info_.fps = tpf.numerator > 0 ? double(tpf.denominator) / tpf.numerator : fps;
    info_.width = width;
    info_.height = height;
    if (info_.calibration.width != width || info_.calibration.height != height) {
      // Factory calibrations are made at one resolution and scaled to the others (same aspect).
      if (std::abs(double(info_.calibration.width) / info_.calibration.height - double(width) / height) > 0.02)
        return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the calibration was made for another image shape");
    }

    v4l2_requestbuffers req{};
    req.count = 4;
    req.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    req.memory = V4L2_MEMORY_MMAP;
    if (xioctl(fd_, VIDIOC_REQBUFS, &req) < 0 || req.count < 2)
      return fail(ERROR_CODE::CAMERA_NOT_DETECTED, device.path + ": cannot get capture buffers");
    for (uint32_t i = 0; i < req.count; ++i) {
      v4l2_buffer buf{};
      buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
      buf.memory = V4L2_MEMORY_MMAP;
      buf.index = i;
      if (xioctl(fd_, VIDIOC_QUERYBUF, &buf) < 0) return fail(ERROR_CODE::CAMERA_NOT_DETECTED, "cannot map buffers");
      void* p = mmap(nullptr, buf.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, buf.m.offset);
      if (p == MAP_FAILED) return fail(ERROR_CODE::CAMERA_NOT_DETECTED, "cannot map buffers");
      buffers_.push_back({p, buf.length});
      if (xioctl(fd_, VIDIOC_QBUF, &buf) < 0) return fail(ERROR_CODE::CAMERA_NOT_DETECTED, "cannot queue buffers");
    }
    v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (xioctl(fd_, VIDIOC_STREAMON, &type) < 0)
      return fail(ERROR_CODE::CAMERA_NOT_DETECTED, device.path + ": cannot start streaming");
    streaming_ = true;
    running_ = true;
    thread_ = std::thread([this] { captureLoop(); });
    return ERROR_CODE::SUCCESS;
  }

  const SourceInfo& info() const override { return info_; }

  ERROR_CODE next(cv::Mat& frame, uint64_t& timestamp_ns, int& index) override {
    std::unique_lock<std::mutex> lock(mutex_);
    const bool got = ready_.wait_for(lock, std::chrono::seconds(2), [&] { return sequence_ > returned_ || lost_; });
    if (lost_ || !got) return fail(ERROR_CODE::CAMERA_NOT_DETECTED, "the camera stopped delivering frames");
    std::swap(frame, newest_);
    timestamp_ns = newest_ts_;
    returned_ = sequence_;
    index = delivered_++;
    return ERROR_CODE::SUCCESS;
  }

  ERROR_CODE setSetting(VIDEO_SETTINGS setting, int value) override {
    if (value < -1 || value > 100)
      return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "a camera setting is -1 (automatic) or 0..100");
    const uint32_t id = controlId(setting);
    std::lock_guard<std::mutex> lock(control_mutex_);
    if (setting == VIDEO_SETTINGS::EXPOSURE)
      setControl(V4L2_CID_EXPOSURE_AUTO, value < 0 ? V4L2_EXPOSURE_APERTURE_PRIORITY : V4L2_EXPOSURE_MANUAL);
    if (setting == VIDEO_SETTINGS::GAIN) setControl(V4L2_CID_AUTOGAIN, value < 0 ? 1 : 0);
    v4l2_queryctrl q{};
    q.id = id;
    if (xioctl(fd_, VIDIOC_QUERYCTRL, &q) < 0 || (q.flags & V4L2_CTRL_FLAG_DISABLED))
      return fail(ERROR_CODE::FAILURE, "the camera has no such control");
    const int v = value < 0 ? q.default_value : percentToControl(value, q.minimum, q.maximum, q.step);
    if (!setControl(id, v))
      return fail(ERROR_CODE::FAILURE, std::string("cannot set the control: ") + std::strerror(errno));
    settings_.set(setting, value);
    return ERROR_CODE::SUCCESS;
  }

  int getSetting(VIDEO_SETTINGS setting) const override {
    if (settings_.get(setting) < 0) return -1;
    std::lock_guard<std::mutex> lock(control_mutex_);
    v4l2_queryctrl q{};
    q.id = controlId(setting);
    v4l2_control c{};
    c.id = q.id;
    if (xioctl(fd_, VIDIOC_QUERYCTRL, &q) < 0 || xioctl(fd_, VIDIOC_G_CTRL, &c) < 0) return -1;
    return controlToPercent(c.value, q.minimum, q.maximum);
  }

 private:
  struct Buffer {
    void* data;
    size_t length;
  };

  bool setControl(uint32_t id, int value) {
    v4l2_control c{};
    c.id = id;
    c.value = value;
    return xioctl(fd_, VIDIOC_S_CTRL, &c) == 0;
  }

  void captureLoop() {
    cv::Mat decoded;
    while (running_) {
      pollfd p{fd_, POLLIN, 0};
      const int r = poll(&p, 1, 200);
      if (r < 0 && errno == EINTR) continue;
      if (r < 0 || (p.revents & (POLLERR | POLLHUP | POLLNVAL))) break;
      if (r == 0) continue;
      v4l2_buffer buf{};
      buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
      buf.memory = V4L2_MEMORY_MMAP;
      if (xioctl(fd_, VIDIOC_DQBUF, &buf) < 0) {
        if (errno == EAGAIN) continue;
        break;
      }
      const Buffer& b = buffers_[buf.index];
      const int w = 2 * info_.width, h = info_.height;
      bool ok = true;
      if (pixel_format_ == V4L2_PIX_FMT_YUYV && buf.bytesused >= uint32_t(w * h * 2)) {
        cv::cvtColor(cv::Mat(h, w, CV_8UC2, b.data), decoded, cv::COLOR_YUV2BGR_YUYV);
      } else if (pixel_format_ == V4L2_PIX_FMT_MJPEG) {
        decoded = cv::imdecode(cv::Mat(1, int(buf.bytesused), CV_8U, b.data), cv::IMREAD_COLOR);
        ok = decoded.cols == w && decoded.rows == h;
      } else {
        ok = false;
      }
      xioctl(fd_, VIDIOC_QBUF, &buf);
      if (!ok) continue;
      const uint64_t ts = uint64_t(
          std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
              .count());
      {
        std::lock_guard<std::mutex> lock(mutex_);
        std::swap(newest_, decoded);  // only the newest frame is kept
        newest_ts_ = ts;
        ++sequence_;
      }
      ready_.notify_one();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (running_) lost_ = true;
    ready_.notify_all();
  }

  void stop() {
    running_ = false;
    if (thread_.joinable()) thread_.join();
    if (streaming_) {
      v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
      xioctl(fd_, VIDIOC_STREAMOFF, &type);
    }
    for (const Buffer& b : buffers_) munmap(b.data, b.length);
    buffers_.clear();
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  SourceInfo info_;
  int fd_ = -1;
  uint32_t pixel_format_ = 0;
  std::vector<Buffer> buffers_;
  bool streaming_ = false;
  std::atomic<bool> running_{false};
  std::thread thread_;
  std::mutex mutex_;
  mutable std::mutex control_mutex_;
  std::condition_variable ready_;
  cv::Mat newest_;
  uint64_t newest_ts_ = 0;
  uint64_t sequence_ = 0, returned_ = 0;
  bool lost_ = false;
  int delivered_ = 0;
  VideoSettings settings_;
};

}  // namespace

std::vector<LiveDevice> listV4l2Devices() {
  std::vector<LiveDevice> devices;
  std::error_code ec;
  std::vector<std::string> nodes;
  for (const auto& entry : std::filesystem::directory_iterator("/dev", ec)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("video", 0) == 0) nodes.push_back(name);
  }
  std::sort(nodes.begin(), nodes.end());
  for (const std::string& name : nodes) {
    const std::string path = "/dev/" + name;
    const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK);
    if (fd < 0) continue;
    const bool stereo = deliversSideBySide(fd);
    ::close(fd);
    if (!stereo) continue;
    LiveDevice d;
    d.path = path;
    d.serial_number = usbSerialNumber("/sys/class/video4linux", name);
    devices.push_back(d);
  }
  return devices;
}

std::unique_ptr<FrameSource> openV4l2Source(const LiveDevice& device, int width, int height, int fps, ERROR_CODE& err) {
  auto source = std::make_unique<V4l2Source>();
  err = source->open(device, width, height, fps);
  if (err != ERROR_CODE::SUCCESS) return nullptr;
  return source;
}

}  // namespace pv::internal
