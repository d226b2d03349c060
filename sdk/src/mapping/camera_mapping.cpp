// Spatial mapping behind pv::Camera: parameter checks, the per-grab hand-over of depth, colour
// and pose to the mapping module, and the map calls.
#include <cmath>

#include "core/internal/camera_state.h"
#include "core/internal/error.h"
#include "mapping/internal/mapping_module.h"
#include "pv/camera.h"
#include "tracking/internal/trajectory_store.h"

namespace pv {

using internal::fail;
using internal::MappingModule;

namespace {

bool isOfflineType(SPATIAL_MAP_TYPE type) {
  return type == SPATIAL_MAP_TYPE::MESH_OFFLINE || type == SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD_OFFLINE;
}

std::shared_ptr<MappingModule> moduleOf(internal::CameraState& state) {
  return std::atomic_load(&state.mapping_module);
}

// Points the two-pass pose lookup at the trajectory a finished tracking pass over this recording
// refined, when there is one and no other source (such as ground truth) was set.
void useRefinedTrajectory(internal::CameraState& s) {
  if (s.refined_pose) return;
  const internal::TrajectoryStore* store = internal::finalTrajectory(s);
  if (!store || !store->isFinal()) return;
  internal::CameraState* state = &s;
  s.refined_pose = [state](int frame_index, Eigen::Matrix4f& T_world_camera) {
    const internal::TrajectoryStore* poses = internal::trajectoryStore(*state);
    Eigen::Isometry3d refined;
    if (!poses || !poses->isFinal() || !poses->refinedPose(frame_index, refined)) return false;
    T_world_camera = refined.matrix().cast<float>();
    return true;
  };
}

bool within(float value, const std::pair<float, float>& bounds) {
  constexpr float kSlack = 1e-6f;
  return std::isfinite(value) && value >= bounds.first - kSlack && value <= bounds.second + kSlack;
}

}  // namespace

ERROR_CODE Camera::enableSpatialMapping(SpatialMappingParameters parameters) {
  internal::CameraState& s = *state_;
  if (!s.opened) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "enableSpatialMapping on a closed camera");
  if (moduleOf(s)) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "spatial mapping is already enabled");
  if (!within(parameters.resolution_meter, SpatialMappingParameters::allowed_resolution))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "resolution_meter outside 0.01 .. 0.20 m");
  if (parameters.range_meter <= 0.f)
    parameters.range_meter = SpatialMappingParameters::getRecommendedRange(parameters.resolution_meter, *this);
  if (!within(parameters.range_meter, SpatialMappingParameters::allowed_range))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "range_meter outside 1 .. 20 m");
  if (parameters.max_memory_usage <= 0)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "max_memory_usage must be a positive number of MB");
  const SPATIAL_MAP_TYPE type = parameters.map_type;
  if (type != SPATIAL_MAP_TYPE::MESH && type != SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD && !isOfflineType(type))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown map_type");
  // The live types fuse at the tracked pose of each grab; the two-pass types at the poses a
  // tracking pass over the recording refined (tracking may be off again by then).
  if (isOfflineType(type)) useRefinedTrajectory(s);
  if (isOfflineType(type) && !s.refined_pose)
    return fail(ERROR_CODE::MODULE_NOT_ENABLED,
                "map types 5 and 6 need the refined poses of a tracking pass over this recording");
  if (!isOfflineType(type) && !isPositionalTrackingEnabled())
    return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping needs positional tracking: enable it first");

  internal::MappingConfig config;
  config.voxel_m = parameters.resolution_meter;
  config.range_m = parameters.range_meter;
  config.max_memory_bytes = size_t(parameters.max_memory_usage) << 20;
  config.save_texture = parameters.save_texture;
  config.use_chunk_only = parameters.use_chunk_only;
  config.coordinate_system = s.init_parameters.coordinate_system;
  config.coordinate_units = s.init_parameters.coordinate_units;
  // A recording read as fast as it decodes waits for fusion rather than drop frames: its map is
  // then the same however fast the machine is, and however many threads it uses.
  config.wait_for_room = !s.init_parameters.input.isLive() && !s.init_parameters.ktr_real_time_mode;
  config.parameters = parameters;
  std::atomic_store(&s.mapping_module, std::make_shared<MappingModule>(config));
  return ERROR_CODE::SUCCESS;
}

void Camera::disableSpatialMapping() { std::atomic_store(&state_->mapping_module, std::shared_ptr<MappingModule>()); }

SPATIAL_MAPPING_STATE Camera::getSpatialMappingState() {
  const auto module = moduleOf(*state_);
  return module ? module->state() : SPATIAL_MAPPING_STATE::NOT_ENABLED;
}

void Camera::requestSpatialMapAsync() {
  if (const auto module = moduleOf(*state_)) module->requestMap();
}

ERROR_CODE Camera::getSpatialMapRequestStatusAsync() {
  const auto module = moduleOf(*state_);
  if (!module) return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
  return module->mapReady() ? ERROR_CODE::SUCCESS : ERROR_CODE::MAP_NOT_READY;
}

ERROR_CODE Camera::retrieveSpatialMapAsync(Mesh& mesh) {
  const auto module = moduleOf(*state_);
  if (!module) return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
  return module->retrieve(mesh);
}

ERROR_CODE Camera::retrieveSpatialMapAsync(FusedPointCloud& point_cloud) {
  const auto module = moduleOf(*state_);
  if (!module) return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
  return module->retrieve(point_cloud);
}

ERROR_CODE Camera::extractWholeSpatialMap(Mesh& mesh) {
  const auto module = moduleOf(*state_);
  if (!module) return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
  return module->extractWhole(mesh);
}

ERROR_CODE Camera::extractWholeSpatialMap(FusedPointCloud& point_cloud) {
  const auto module = moduleOf(*state_);
  if (!module) return fail(ERROR_CODE::MODULE_NOT_ENABLED, "spatial mapping is not enabled");
  return module->extractWhole(point_cloud);
}

SpatialMappingParameters Camera::getSpatialMappingParameters() const {
  const auto module = std::atomic_load(&state_->mapping_module);
  return module ? module->config().parameters : SpatialMappingParameters();
}

namespace internal {

ERROR_CODE mappingStep(CameraState& state) {
  const auto module = std::atomic_load(&state.mapping_module);
  if (!module || !state.depth.valid || state.depth.depth_m.empty() || !state.frame.valid) return ERROR_CODE::SUCCESS;
  DepthFrame frame;
  // The two-pass types fuse at the refined pose of a frame; a frame the first pass never reached
  // (it was stopped early) at the pose tracking gives it now, as the live types do.
  const bool refined = isOfflineType(module->config().parameters.map_type) && state.refined_pose &&
                       state.refined_pose(state.frame.index, frame.T_world_camera);
  if (!refined) {
    if (state.tracking.state != POSITIONAL_TRACKING_STATE::OK) return ERROR_CODE::SUCCESS;
    frame.T_world_camera = state.tracking.T_world_camera;
  }
  // Intrinsics of the depth image (the depth module may hand out a scaled image).
  const RectifiedCalibration& cal = state.calibration;
  const double sx = cal.size.width > 0 ? double(state.depth.depth_m.cols) / cal.size.width : 1.0;
  const double sy = cal.size.height > 0 ? double(state.depth.depth_m.rows) / cal.size.height : 1.0;
  frame.fx = cal.fx * sx;
  frame.fy = cal.fy * sy;
  frame.cx = (cal.cx + 0.5) * sx - 0.5;
  frame.cy = (cal.cy + 0.5) * sy - 0.5;
  frame.timestamp_ns = state.frame.timestamp_ns;
  frame.depth_m = state.depth.depth_m;
  frame.confidence = state.depth.confidence;
  if (state.frame.left_bgr.size() == state.depth.depth_m.size()) frame.bgr = state.frame.left_bgr;
  module->offerKeyframe(state.frame.left_bgr, frame);
  module->submit(std::move(frame));
  return ERROR_CODE::SUCCESS;
}

}  // namespace internal

}  // namespace pv
