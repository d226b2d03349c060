// pv::Camera: opening inputs, grabbing (capture or decode, rectify, then the depth, tracking and
// mapping steps), images, recording and camera settings. Depth, tracking and mapping calls live
// in their modules (depth/, tracking/, mapping/).
#include "pv/camera.h"

#include <tbb/task_group.h>
#include <algorithm>
#include <chrono>
#include <opencv2/imgproc.hpp>
#include <string>

#include "core/internal/camera_state.h"
#include "core/internal/coordinates.h"
#include "core/internal/error.h"
#include "core/internal/gpu_memory.h"
#include "core/internal/heap_policy.h"
#include "core/internal/thread_limit.h"
#include "input/internal/input_state.h"

namespace pv {

using internal::fail;

namespace {

internal::InputState* inputOf(const internal::CameraState& state) {
  return static_cast<internal::InputState*>(state.input.get());
}

double metresPerUnit(UNIT unit) {
  switch (unit) {
    case UNIT::MILLIMETER: return 0.001;
    case UNIT::CENTIMETER: return 0.01;
    default: return 1.0;
  }
}

ERROR_CODE validate(const InitParameters& p) {
  if (p.depth_mode == DEPTH_MODE::NEURAL)
    return fail(ERROR_CODE::AI_MODEL_NOT_AVAILABLE, "no neural depth model is installed");
  if (int(p.depth_mode) < 0 || int(p.depth_mode) >= int(DEPTH_MODE::LAST))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown depth mode");
  if (int(p.camera_resolution) < 0 || int(p.camera_resolution) >= int(RESOLUTION::LAST))
    return fail(ERROR_CODE::INVALID_RESOLUTION, "unknown camera resolution");
  if (int(p.coordinate_units) < 0 || int(p.coordinate_units) >= int(UNIT::LAST))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown coordinate unit");
  if (int(p.coordinate_system) < 0 || int(p.coordinate_system) >= int(COORDINATE_SYSTEM::LAST))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown coordinate system");
  if (p.camera_fps < 0 || p.camera_fps > 200)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "camera_fps must be 0 (default) to 200");
  const double unit = metresPerUnit(p.coordinate_units);
  const double min_m = p.depth_minimum_distance * unit, max_m = p.depth_maximum_distance * unit;
  if (!(min_m >= 0 && max_m > min_m && max_m <= 100))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS,
                "depth distances must satisfy 0 <= minimum < maximum <= 100 m");
  return ERROR_CODE::SUCCESS;
}

int defaultFps(RESOLUTION resolution) {
  return resolution == RESOLUTION::HD720 || resolution == RESOLUTION::VGA ? 60 : 30;
}

std::unique_ptr<internal::FrameSource> openLive(const InitParameters& p, ERROR_CODE& err) {
  const std::vector<internal::LiveDevice> devices = internal::listLiveDevices();
  const internal::LiveDevice* device = nullptr;
  const bool by_serial = p.input.getType() == INPUT_TYPE::USB && p.input.getSerialNumber() != 0;
  for (size_t i = 0; i < devices.size() && !device; ++i) {
    if (by_serial ? devices[i].serial_number == p.input.getSerialNumber() : int(i) == p.input.getCameraID())
      device = &devices[i];
  }
  if (!device) {
    err = fail(ERROR_CODE::CAMERA_NOT_DETECTED,
               devices.empty() ? "no camera is connected" : "no connected camera matches the requested id or serial");
    return nullptr;
  }
  if (device->is_virtual) {
    internal::VirtualCameraOptions options;
    std::string why;
    const char* text = std::getenv("PAVO_VIRTUAL_CAMERA_OPTIONS");
    if (text && !internal::parseVirtualCameraOptions(text, options, why)) {
      err = fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "PAVO_VIRTUAL_CAMERA_OPTIONS: " + why);
      return nullptr;
    }
    return internal::openVirtualSource(device->path, options, err);
  }
  const Resolution size = getResolution(p.camera_resolution);
  const int fps = p.camera_fps > 0 ? p.camera_fps : defaultFps(p.camera_resolution);
  return internal::openV4l2Source(*device, int(size.width), int(size.height), fps, err);
}

// Copies a BGRA picture into the caller's Mat, in the memory asked for, resizing when needed.
ERROR_CODE copyOut(const cv::Mat& bgra, Mat& mat, MEM mem, Resolution resolution) {
  cv::Mat sized = bgra;
  if (resolution.width > 0 && resolution.height > 0 &&
      (int(resolution.width) != bgra.cols || int(resolution.height) != bgra.rows)) {
    if (resolution.width > 8192 || resolution.height > 8192)
      return fail(ERROR_CODE::INVALID_RESOLUTION, "requested image resolution is too large");
    const bool shrink = int(resolution.width) < bgra.cols;
    cv::resize(bgra, sized, cv::Size(int(resolution.width), int(resolution.height)), 0, 0,
               shrink ? cv::INTER_AREA : cv::INTER_LINEAR);
  }
  Mat source(Resolution(size_t(sized.cols), size_t(sized.rows)), MAT_TYPE::U8_C4, sized.data, sized.step, MEM::CPU);
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  if (mem == MEM::CPU || mem == MEM::BOTH) err = mat.setFrom(source, COPY_TYPE::CPU_CPU);
  if (err == ERROR_CODE::SUCCESS && (mem == MEM::GPU || mem == MEM::BOTH))
    err = mat.setFrom(source, COPY_TYPE::CPU_GPU);
  return err;
}

}  // namespace

Camera::Camera() : state_(std::make_unique<internal::CameraState>()) {}
Camera::~Camera() { close(); }

std::vector<DeviceProperties> Camera::getDeviceList() {
  std::vector<DeviceProperties> list;
  for (const internal::LiveDevice& d : internal::listLiveDevices()) {
    DeviceProperties p;
    p.id = int(list.size());
    p.path = d.path;
    p.serial_number = d.serial_number;
    p.camera_model = d.is_virtual ? MODEL::PAVO_VIRTUAL : MODEL::PAVO;
    p.camera_state = CAMERA_STATE::AVAILABLE;
    list.push_back(p);
  }
  return list;
}

AI_Model_status Camera::checkAIModelStatus(AI_MODELS, int) { return AI_Model_status{}; }

ERROR_CODE Camera::open(InitParameters init_parameters) {
  close();
  internal::CameraState& s = *state_;
  s.init_parameters = init_parameters;
  s.information = CameraInformation();
  s.calibration = internal::RectifiedCalibration();
  s.frame = internal::FrameData();
  ERROR_CODE err = validate(init_parameters);
  if (err != ERROR_CODE::SUCCESS) return err;
  internal::keepFrameBuffersInHeap();

  auto input = std::make_shared<internal::InputState>();
  if (init_parameters.input.isLive())
    input->source = openLive(init_parameters, err);
  else
    input->source = internal::openRecordingSource(init_parameters.input.getKTRFile().str(),
                                                  init_parameters.ktr_real_time_mode, err);
  if (!input->source) return err == ERROR_CODE::SUCCESS ? fail(ERROR_CODE::FAILURE, "the input cannot be opened") : err;

  const internal::SourceInfo& info = input->source->info();
  const internal::StereoCalibration raw = internal::scaleCalibration(info.calibration, info.width, info.height);
  err = input->rectifier.init(raw);
  if (err != ERROR_CODE::SUCCESS) return err;

  s.calibration = input->rectifier.rectified();
  s.information.serial_number = info.serial_number;
  s.information.camera_model = info.model;
  s.information.input_type = info.input_type;
  s.information.camera_configuration.resolution = Resolution(size_t(info.width), size_t(info.height));
  s.information.camera_configuration.fps = float(info.fps);
  s.information.camera_configuration.calibration_parameters = internal::toCalibrationParameters(s.calibration);
  s.information.camera_configuration.calibration_parameters_raw = internal::toCalibrationParameters(raw);
  s.input = input;
  s.opened = true;
  return ERROR_CODE::SUCCESS;
}

void Camera::close() {
  internal::closeModules(*state_);
  disableRecording();
  state_->input.reset();
  state_->opened = false;
}
bool Camera::isOpened() const { return state_->opened; }

ERROR_CODE Camera::grab(RuntimeParameters runtime) {
  internal::CameraState& s = *state_;
  internal::InputState* in = inputOf(s);
  if (!s.opened || !in) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "grab on a closed camera");
  s.runtime = runtime;
  const int seek = in->pending_seek.exchange(-1);
  if (seek >= 0) in->source->seek(seek);
  uint64_t timestamp_ns = 0;
  int index = -1;
  // A fresh buffer for each frame: the last frame's stays with it (its right colour image is
  // rectified from it on request) until this grab succeeds.
  in->raw = cv::Mat();
  ERROR_CODE err = in->source->next(in->raw, timestamp_ns, index);
  in->position = in->source->position();
  if (err != ERROR_CODE::SUCCESS) return err;

  {
    std::lock_guard<std::mutex> lock(in->recording_mutex);
    if (in->recorder && in->raw.channels() == 4) cv::cvtColor(in->raw, in->raw_bgr, cv::COLOR_BGRA2BGR);
    const cv::Mat& raw_bgr = in->raw.channels() == 4 ? in->raw_bgr : in->raw;
    if (in->recorder && in->recorder->write(raw_bgr, int64_t(timestamp_ns)) != ERROR_CODE::SUCCESS) {
      const std::string why = lastErrorDetail().str();
      in->recorder->close();
      in->recorder.reset();
      internal::setLastError("recording stopped: " + why);
    }
  }

  internal::FrameData& f = s.frame;
  in->rectifier.apply(in->raw, f.left_bgr, f.left_gray, f.right_gray);
  f.raw = in->raw;
  f.timestamp_ns = timestamp_ns;
  f.index = index;
  f.valid = true;

  const auto now = std::chrono::steady_clock::now();
  if (in->last_grab != std::chrono::steady_clock::time_point()) {
    const double dt = std::chrono::duration<double>(now - in->last_grab).count();
    // Smoothed frame interval; its inverse is the rate.
    in->mean_interval_s = in->mean_interval_s > 0 ? 0.9 * in->mean_interval_s + 0.1 * dt : dt;
    if (in->mean_interval_s > 0) in->fps = float(1.0 / in->mean_interval_s);
  }
  in->last_grab = now;

  // Tracking and mapping read the depth of this frame: never leave the previous one there.
  s.depth = internal::DepthData();
  err = internal::checkDepthParameters(s, runtime);
  if (err != ERROR_CODE::SUCCESS) return err;
  if (!runtime.enable_depth || s.init_parameters.depth_mode == DEPTH_MODE::NONE) {
    err = internal::trackingStep(s, internal::FrameDepth());
    return err != ERROR_CODE::SUCCESS ? err : internal::mappingStep(s);
  }
  // Depth is computed beside tracking, which needs it only for a new keyframe and waits there;
  // before it when the SDK may use one thread only. It runs as a task on TBB's threads, which live
  // as long as the process: a thread made for each frame would leave the per-thread buffers of
  // OpenCV's parallel loops behind, a little more memory for every frame of a long scan.
  ERROR_CODE depth_err = ERROR_CODE::SUCCESS;
  std::string depth_why;
  const auto compute_depth = [&] {
    depth_err = internal::depthStep(s, runtime);
    if (depth_err != ERROR_CODE::SUCCESS) depth_why = lastErrorDetail().str();
  };
  tbb::task_group depth;
  const bool serial = internal::serialGrab();
  if (serial)
    compute_depth();
  else
    depth.run(compute_depth);
  const internal::FrameDepth frame_depth([&] {
    if (!serial) depth.wait();
    return s.depth.valid ? s.depth.depth_m : cv::Mat();
  });
  err = internal::trackingStep(s, frame_depth);
  if (!serial) depth.wait();
  if (depth_err != ERROR_CODE::SUCCESS) return fail(depth_err, depth_why);
  if (err != ERROR_CODE::SUCCESS) return err;
  return internal::mappingStep(s);
}

ERROR_CODE Camera::retrieveImage(Mat& mat, VIEW view, MEM mem, Resolution resolution) {
  const internal::CameraState& s = *state_;
  if (!s.opened) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "retrieveImage on a closed camera");
  if (!s.frame.valid) return fail(ERROR_CODE::NOT_A_NEW_FRAME, "retrieveImage before the first successful grab");
  if (mem != MEM::CPU && mem != MEM::GPU && mem != MEM::BOTH)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown memory type");
  cv::Mat bgra, right_bgr;
  const internal::InputState* in = inputOf(s);
  if (view == VIEW::RIGHT || view == VIEW::SIDE_BY_SIDE) {
    if (!in || s.frame.raw.empty()) return fail(ERROR_CODE::FAILURE, "no raw frame to make the right image from");
    in->rectifier.rectifyRightColour(s.frame.raw, right_bgr);
  }
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  switch (view) {
    case VIEW::LEFT: cv::cvtColor(s.frame.left_bgr, bgra, cv::COLOR_BGR2BGRA); break;
    case VIEW::RIGHT: cv::cvtColor(right_bgr, bgra, cv::COLOR_BGR2BGRA); break;
    case VIEW::LEFT_GRAY: cv::cvtColor(s.frame.left_gray, bgra, cv::COLOR_GRAY2BGRA); break;
    case VIEW::RIGHT_GRAY: cv::cvtColor(s.frame.right_gray, bgra, cv::COLOR_GRAY2BGRA); break;
    case VIEW::SIDE_BY_SIDE: {
      cv::Mat both;
      cv::hconcat(s.frame.left_bgr, right_bgr, both);
      cv::cvtColor(both, bgra, cv::COLOR_BGR2BGRA);
      break;
    }
    case VIEW::DEPTH:
    case VIEW::DEPTH_COLOR: err = internal::depthView(s, view, bgra); break;
    case VIEW::TRACKING: err = internal::trackingView(s, bgra); break;
    default: return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown view");
  }
  if (err != ERROR_CODE::SUCCESS) return err;
  if (bgra.empty() || bgra.type() != CV_8UC4) return fail(ERROR_CODE::FAILURE, "the view produced no picture");
  return copyOut(bgra, mat, mem, resolution);
}

CameraInformation Camera::getCameraInformation(Resolution resolution) const {
  CameraInformation info = state_->information;
  CameraConfiguration& c = info.camera_configuration;
  if (resolution.width == 0 || resolution.height == 0 || c.resolution.width == 0 || resolution == c.resolution)
    return info;
  const float sx = float(resolution.width) / float(c.resolution.width);
  const float sy = float(resolution.height) / float(c.resolution.height);
  for (CalibrationParameters* p : {&c.calibration_parameters, &c.calibration_parameters_raw}) {
    for (CameraParameters* e : {&p->left_cam, &p->right_cam}) {
      e->fx *= sx;
      e->cx = (e->cx + 0.5f) * sx - 0.5f;
      e->fy *= sy;
      e->cy = (e->cy + 0.5f) * sy - 0.5f;
      e->image_size = resolution;
    }
  }
  c.resolution = resolution;
  return info;
}

InitParameters Camera::getInitParameters() const { return state_->init_parameters; }
uint64_t Camera::getTimestamp() const { return state_->frame.valid ? state_->frame.timestamp_ns : 0; }
float Camera::getCurrentFPS() const {
  const internal::InputState* in = inputOf(*state_);
  return in ? in->fps.load() : 0.f;
}

int Camera::getKTRNumberOfFrames() const {
  const internal::InputState* in = inputOf(*state_);
  return in && in->source ? in->source->frameCount() : -1;
}
void Camera::setKTRPosition(int frame) {
  internal::InputState* in = inputOf(*state_);
  if (!in || in->source->frameCount() < 0) return;
  const int clamped = std::clamp(frame, 0, in->source->frameCount());
  in->pending_seek = clamped;
  in->position = clamped;
}
int Camera::getKTRPosition() const {
  const internal::InputState* in = inputOf(*state_);
  return in ? in->position.load() : 0;
}

ERROR_CODE Camera::setCameraSettings(VIDEO_SETTINGS setting, int value) {
  internal::InputState* in = inputOf(*state_);
  if (!in) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "setCameraSettings on a closed camera");
  if (int(setting) < 0 || int(setting) >= int(VIDEO_SETTINGS::LAST))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown camera setting");
  return in->source->setSetting(setting, value);
}
int Camera::getCameraSettings(VIDEO_SETTINGS setting) const {
  const internal::InputState* in = inputOf(*state_);
  return in ? in->source->getSetting(setting) : -1;
}
CUcontext Camera::getCUDAContext() const { return internal::cudaPrimaryContext(); }

ERROR_CODE Camera::enableRecording(RecordingParameters parameters) {
  internal::CameraState& s = *state_;
  internal::InputState* in = inputOf(s);
  if (!s.opened || !in) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "enableRecording on a closed camera");
  if (parameters.video_filename.empty())
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "the recording needs a file name");
  const internal::SourceInfo& info = in->source->info();
  internal::KtrMetadata m;
  m.serial_number = info.serial_number;
  m.width = info.width;
  m.height = info.height;
  m.fps = info.fps;
  m.calibration = internal::scaleCalibration(info.calibration, info.width, info.height);
  m.time_origin_ns =
      s.frame.valid
          ? int64_t(s.frame.timestamp_ns)
          : std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
                .count();
  auto writer = std::make_unique<internal::KtrWriter>();
  ERROR_CODE err = writer->open(parameters.video_filename.str(), m, parameters.compression_mode);
  if (err != ERROR_CODE::SUCCESS) return err;
  std::lock_guard<std::mutex> lock(in->recording_mutex);
  if (in->recorder) in->recorder->close();
  in->recorder = std::move(writer);
  return ERROR_CODE::SUCCESS;
}

void Camera::disableRecording() {
  internal::InputState* in = inputOf(*state_);
  if (!in) return;
  std::lock_guard<std::mutex> lock(in->recording_mutex);
  if (in->recorder) in->recorder->close();
  in->recorder.reset();
}

namespace internal {
void closeModules(CameraState& state) {
  state.depth_module.reset();
  state.tracking_module.reset();
  state.mapping_module.reset();
  state.depth = DepthData();
  state.tracking = TrackingData();
}
}  // namespace internal

}  // namespace pv
