// Stereo depth behind pv::Camera. Not in this build yet: measures are unavailable.
#include "core/internal/camera_state.h"
#include "core/internal/error.h"
#include "pv/camera.h"

namespace pv {

using internal::fail;

ERROR_CODE Camera::retrieveMeasure(Mat&, MEASURE, MEM, Resolution) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "depth is not available in this build");
}

namespace internal {
ERROR_CODE depthView(const CameraState&, VIEW, cv::Mat&) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "depth is not available in this build");
}
ERROR_CODE depthStep(CameraState& state, const RuntimeParameters&) {
  state.depth.valid = false;
  return ERROR_CODE::SUCCESS;
}
}  // namespace internal

}  // namespace pv
