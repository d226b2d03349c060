// Positional tracking behind pv::Camera: enable/disable, the per-grab step, poses in the
// application's coordinate system and unit, area files and the TRACKING view.
#include <opencv2/imgproc.hpp>

#include "core/internal/camera_state.h"
#include "core/internal/coordinates.h"
#include "core/internal/error.h"
#include "io/internal/area_file.h"
#include "pv/camera.h"
#include "tracking/internal/tracking_module.h"

namespace pv {

using internal::fail;
using internal::TrackingModule;

namespace {

std::string inputKey(const internal::CameraState& s) {
  const InputType& input = s.init_parameters.input;
  return input.isLive() ? std::string() : std::string(input.getKTRFile().c_str());
}

Eigen::Matrix4f toMatrix4f(const Eigen::Isometry3d& T) { return T.matrix().cast<float>(); }

TrackingModule* activeModule(internal::CameraState& s) {
  auto* m = s.tracking_module.get();
  return m && m->enabled && m->engine ? m : nullptr;
}

}  // namespace

ERROR_CODE Camera::enablePositionalTracking(PositionalTrackingParameters parameters) {
  internal::CameraState& s = *state_;
  if (!s.opened) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "enablePositionalTracking on a closed camera");
  if (s.calibration.fx <= 0 || s.calibration.baseline_m <= 0)
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the camera has no usable rectified calibration");

  internal::MapData area;
  const std::string area_path = parameters.area_file_path.c_str();
  if (!area_path.empty()) {
    internal::RectifiedCalibration area_calibration;
    const ERROR_CODE read = internal::readAreaFile(area_path, area, area_calibration);
    if (read != ERROR_CODE::SUCCESS)
      return fail(ERROR_CODE::INVALID_AREA_FILE,
                  "cannot load area file " + area_path + ": " + lastErrorDetail().c_str());
    if (area_calibration.size != s.calibration.size)
      return fail(ERROR_CODE::INVALID_AREA_FILE, "area file " + area_path + " was made at another resolution");
  }

  if (!s.tracking_module) s.tracking_module = std::make_shared<TrackingModule>();
  TrackingModule& m = *s.tracking_module;
  const std::string key = inputKey(s);
  // A finished run on the same recording stays available for a second pass, after its final
  // optimisation (run here rather than at disable, which a live stop would wait for in vain). An
  // area file asks for relocalisation in the saved area instead.
  if (!area_path.empty() || key != m.input_key) {
    m.previous_pass.reset();
  } else if (m.engine && !m.enabled && !key.empty()) {
    m.engine->finalise();
    m.previous_pass = m.engine->sharedTrajectory();
  }
  m.input_key = key;
  m.parameters = parameters;

  internal::TrackingEngineParameters p;
  p.area_memory = parameters.enable_area_memory || !area_path.empty();
  p.keep_trajectory = !key.empty();  // a second pass is made over recordings only
  const Eigen::Matrix4f start = internal::transformFromUser(
      parameters.initial_world_transform, s.init_parameters.coordinate_system, s.init_parameters.coordinate_units);
  m.engine = std::make_unique<internal::TrackingEngine>(s.calibration, p, Eigen::Isometry3d(start.cast<double>()));
  if (!area.keyframes.empty()) m.engine->adoptArea(std::move(area));
  m.enabled = true;
  s.tracking = internal::TrackingData();
  s.tracking.state = POSITIONAL_TRACKING_STATE::SEARCHING;
  s.tracking.T_world_camera = start;
  return ERROR_CODE::SUCCESS;
}

POSITIONAL_TRACKING_STATE Camera::getPosition(Pose& pose, REFERENCE_FRAME reference) {
  pose = Pose();
  internal::CameraState& s = *state_;
  TrackingModule* m = activeModule(s);
  if (!m) return POSITIONAL_TRACKING_STATE::OFF;
  const Eigen::Matrix4f& T =
      reference == REFERENCE_FRAME::CAMERA ? s.tracking.T_prev_camera : s.tracking.T_world_camera;
  pose.pose_data =
      internal::transformToUser(T, s.init_parameters.coordinate_system, s.init_parameters.coordinate_units);
  pose.timestamp_ns = m->timestamp_ns;
  pose.valid =
      s.tracking.state == POSITIONAL_TRACKING_STATE::OK || s.tracking.state == POSITIONAL_TRACKING_STATE::FPS_TOO_LOW;
  pose.pose_confidence = s.tracking.confidence;
  return s.tracking.state;
}

ERROR_CODE Camera::saveAreaMap(const String& area_file_path) {
  internal::CameraState& s = *state_;
  TrackingModule* m = activeModule(s);
  if (!m) return fail(ERROR_CODE::MODULE_NOT_ENABLED, "positional tracking is not enabled");
  m->engine->finalise();
  return internal::writeAreaFile(area_file_path.c_str(), m->engine->map(), s.calibration);
}

void Camera::disablePositionalTracking(const String& area_file_path) {
  internal::CameraState& s = *state_;
  TrackingModule* m = activeModule(s);
  if (!m) return;
  // The final optimisation runs only for what uses it: the area file here, a second pass later.
  if (!std::string(area_file_path.c_str()).empty()) (void)saveAreaMap(area_file_path);
  m->enabled = false;
  s.tracking = internal::TrackingData();
}

bool Camera::isPositionalTrackingEnabled() const {
  const auto* m = state_->tracking_module.get();
  return m && m->enabled;
}

namespace internal {

const TrajectoryStore* trajectoryStore(const CameraState& state) {
  const TrackingModule* m = state.tracking_module.get();
  if (!m) return nullptr;
  if (m->previous_pass) return m->previous_pass.get();
  return m->engine ? &m->engine->trajectory() : nullptr;
}

const TrajectoryStore* finalTrajectory(CameraState& state) {
  TrackingModule* m = state.tracking_module.get();
  if (m && !m->previous_pass && m->engine && !m->enabled) m->engine->finalise();
  return trajectoryStore(state);
}

ERROR_CODE trackingStep(CameraState& state, const FrameDepth& depth) {
  TrackingModule* m = activeModule(state);
  if (!m) {
    state.tracking.state = POSITIONAL_TRACKING_STATE::OFF;
    return ERROR_CODE::SUCCESS;
  }
  const FrameData& f = state.frame;
  if (!f.valid || f.left_gray.empty() || f.right_gray.empty()) return ERROR_CODE::SUCCESS;
  const Eigen::Matrix4f previous = state.tracking.T_world_camera;
  m->timestamp_ns = f.timestamp_ns;

  Eigen::Isometry3d refined;
  const TrajectoryStore* first_pass = m->previous_pass.get();
  const int first_pass_end = first_pass && first_pass->isFinal() ? first_pass->lastFrame() : -1;
  if (f.index <= first_pass_end) {
    // Second pass over a recording: the globally optimised pose of each frame; a frame the first
    // pass could not track holds the last pose, as while searching.
    const bool known = first_pass->refinedPose(f.index, refined);
    state.tracking.state = known ? POSITIONAL_TRACKING_STATE::OK : POSITIONAL_TRACKING_STATE::SEARCHING;
    if (known) state.tracking.T_world_camera = toMatrix4f(refined);
    state.tracking.confidence = known ? 100 : 0;
    m->used.clear();
    m->rejected.clear();
    // A first pass cut short ends here: tracking takes over from its last pose for the frames after.
    if (known && f.index == first_pass_end) {
      m->engine->restartAt(refined);
      (void)m->engine->process(f.left_gray, f.right_gray, depth, f.index, double(f.timestamp_ns) * 1e-9);
    }
  } else {
    const EngineOutput out =
        m->engine->process(f.left_gray, f.right_gray, depth, f.index, double(f.timestamp_ns) * 1e-9);
    state.tracking.state = out.state;
    state.tracking.T_world_camera = toMatrix4f(out.T_world_camera);
    state.tracking.confidence = out.confidence;
    m->used = out.used;
    m->rejected = out.rejected;
  }
  const Eigen::Isometry3d prev(previous.cast<double>()), cur(state.tracking.T_world_camera.cast<double>());
  state.tracking.T_prev_camera = toMatrix4f(prev.inverse() * cur);
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE trackingView(const CameraState& state, cv::Mat& bgra) {
  const TrackingModule* m = state.tracking_module.get();
  if (!m || !m->enabled) return fail(ERROR_CODE::MODULE_NOT_ENABLED, "positional tracking is not enabled");
  const cv::Mat& left = state.frame.left_bgr;
  if (left.empty()) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "no frame grabbed yet");
  cv::cvtColor(left, bgra, cv::COLOR_BGR2BGRA);
  const int radius = std::max(2, left.cols / 320);
  for (const cv::Point2f& p : m->rejected) cv::circle(bgra, p, radius, cv::Scalar(0, 0, 255, 255), 1, cv::LINE_AA);
  for (const cv::Point2f& p : m->used) cv::circle(bgra, p, radius, cv::Scalar(0, 255, 0, 255), -1, cv::LINE_AA);
  return ERROR_CODE::SUCCESS;
}

}  // namespace internal

}  // namespace pv
