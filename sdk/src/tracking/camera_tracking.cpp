// Positional tracking behind pv::Camera. Not in this build yet: enabling it fails with a reason.
#include "core/internal/camera_state.h"
#include "core/internal/error.h"
#include "pv/camera.h"

namespace pv {

using internal::fail;

ERROR_CODE Camera::enablePositionalTracking(PositionalTrackingParameters) {
  return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "enablePositionalTracking on a closed camera");
}
POSITIONAL_TRACKING_STATE Camera::getPosition(Pose& pose, REFERENCE_FRAME) {
  pose = Pose();
  return POSITIONAL_TRACKING_STATE::OFF;
}
ERROR_CODE Camera::saveAreaMap(const String&) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "positional tracking is not enabled");
}
void Camera::disablePositionalTracking(const String&) {}
bool Camera::isPositionalTrackingEnabled() const { return false; }

namespace internal {
ERROR_CODE trackingView(const CameraState&, cv::Mat&) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "tracking is not available in this build");
}
ERROR_CODE trackingStep(CameraState&) { return ERROR_CODE::SUCCESS; }
}  // namespace internal

}  // namespace pv
