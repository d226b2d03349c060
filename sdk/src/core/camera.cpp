// pv::Camera. Inputs, depth, tracking and mapping are not in this build yet: open fails with a
// reason and every call on a closed camera reports CAMERA_NOT_INITIALIZED.
#include "pv/camera.h"

#include "core/internal/camera_state.h"
#include "core/internal/coordinates.h"
#include "core/internal/error.h"
#include "core/internal/gpu_memory.h"

namespace pv {

using internal::fail;

Camera::Camera() : state_(std::make_unique<internal::CameraState>()) {}
Camera::~Camera() { close(); }

std::vector<DeviceProperties> Camera::getDeviceList() { return {}; }

AI_Model_status Camera::checkAIModelStatus(AI_MODELS, int) { return AI_Model_status{}; }

ERROR_CODE Camera::open(InitParameters init_parameters) {
  close();
  state_->init_parameters = init_parameters;
  if (init_parameters.depth_mode == DEPTH_MODE::NEURAL)
    return fail(ERROR_CODE::AI_MODEL_NOT_AVAILABLE, "no neural depth model is installed");
  if (init_parameters.input.isLive()) return fail(ERROR_CODE::CAMERA_NOT_DETECTED, "no live camera support yet");
  return fail(ERROR_CODE::INVALID_KTR_FILE, "recordings cannot be read by this build yet");
}

void Camera::close() {
  internal::closeModules(*state_);
  state_->opened = false;
}
bool Camera::isOpened() const { return state_->opened; }

ERROR_CODE Camera::grab(RuntimeParameters) {
  return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "grab on a closed camera");
}
ERROR_CODE Camera::retrieveImage(Mat&, VIEW, MEM, Resolution) {
  return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "retrieveImage on a closed camera");
}
CameraInformation Camera::getCameraInformation(Resolution) const { return state_->information; }
InitParameters Camera::getInitParameters() const { return state_->init_parameters; }
uint64_t Camera::getTimestamp() const { return 0; }
float Camera::getCurrentFPS() const { return 0.f; }
int Camera::getKTRNumberOfFrames() const { return -1; }
void Camera::setKTRPosition(int) {}
int Camera::getKTRPosition() const { return 0; }
ERROR_CODE Camera::setCameraSettings(VIDEO_SETTINGS, int) {
  return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "setCameraSettings on a closed camera");
}
int Camera::getCameraSettings(VIDEO_SETTINGS) const { return -1; }
CUcontext Camera::getCUDAContext() const { return internal::cudaPrimaryContext(); }

ERROR_CODE Camera::enableRecording(RecordingParameters) {
  return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "enableRecording on a closed camera");
}
void Camera::disableRecording() {}

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
