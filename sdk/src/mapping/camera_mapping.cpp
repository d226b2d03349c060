// Spatial mapping behind pv::Camera. Not in this build yet: enabling it fails with a reason.
#include "core/internal/camera_state.h"
#include "core/internal/error.h"
#include "pv/camera.h"

namespace pv {

using internal::fail;

ERROR_CODE Camera::enableSpatialMapping(SpatialMappingParameters) {
  return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "enableSpatialMapping on a closed camera");
}
void Camera::disableSpatialMapping() {}
SPATIAL_MAPPING_STATE Camera::getSpatialMappingState() { return SPATIAL_MAPPING_STATE::NOT_ENABLED; }
void Camera::requestSpatialMapAsync() {}
ERROR_CODE Camera::getSpatialMapRequestStatusAsync() {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
}
ERROR_CODE Camera::retrieveSpatialMapAsync(Mesh&) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
}
ERROR_CODE Camera::retrieveSpatialMapAsync(FusedPointCloud&) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
}
ERROR_CODE Camera::extractWholeSpatialMap(Mesh&) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
}
ERROR_CODE Camera::extractWholeSpatialMap(FusedPointCloud&) {
  return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
}
SpatialMappingParameters Camera::getSpatialMappingParameters() const { return SpatialMappingParameters(); }

namespace internal {
ERROR_CODE mappingStep(CameraState&) { return ERROR_CODE::SUCCESS; }
}  // namespace internal

}  // namespace pv
