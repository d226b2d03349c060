#include "pv/types.h"

#include <algorithm>
#include <cmath>

#include "pv/camera.h"

namespace pv {

void InputType::setFromCameraID(int id) {
  type_ = INPUT_TYPE::USB;
  camera_id_ = id;
  by_serial_ = false;
}

void InputType::setFromSerialNumber(unsigned int serial_number) {
  type_ = INPUT_TYPE::USB;
  serial_number_ = serial_number;
  by_serial_ = true;
}

void InputType::setFromKTRFile(const String& path) {
  type_ = INPUT_TYPE::KTR;
  ktr_file_ = path;
}

const std::pair<float, float> SpatialMappingParameters::allowed_resolution(0.01f, 0.20f);
const std::pair<float, float> SpatialMappingParameters::allowed_range(1.0f, 20.0f);

SpatialMappingParameters::SpatialMappingParameters(MAPPING_RESOLUTION resolution, MAPPING_RANGE range,
                                                   bool save_texture_, bool use_chunk_only_, int max_memory_usage_,
                                                   SPATIAL_MAP_TYPE map_type_)
    : save_texture(save_texture_),
      use_chunk_only(use_chunk_only_),
      max_memory_usage(max_memory_usage_),
      map_type(map_type_) {
  set(resolution);
  set(range);
}

void SpatialMappingParameters::set(MAPPING_RESOLUTION resolution) { resolution_meter = get(resolution); }
void SpatialMappingParameters::set(MAPPING_RANGE range) { range_meter = get(range); }

float SpatialMappingParameters::get(MAPPING_RESOLUTION resolution) {
  switch (resolution) {
    case MAPPING_RESOLUTION::HIGH: return 0.02f;
    case MAPPING_RESOLUTION::MEDIUM: return 0.05f;
    case MAPPING_RESOLUTION::LOW: return 0.08f;
    default: break;
  }
  return 0.05f;
}

float SpatialMappingParameters::get(MAPPING_RANGE range) {
  switch (range) {
    case MAPPING_RANGE::SHORT: return 3.5f;
    case MAPPING_RANGE::MEDIUM: return 5.0f;
    case MAPPING_RANGE::LONG: return 8.0f;
    case MAPPING_RANGE::AUTO: return -1.f;
    default: break;
  }
  return 5.0f;
}

float SpatialMappingParameters::getRecommendedRange(float resolution_m, Camera& camera) {
  const CalibrationParameters calib = camera.getCameraInformation().camera_configuration.calibration_parameters;
  const float fx = calib.left_cam.fx;
  const float baseline = calib.baseline_m;
  if (!camera.isOpened() || fx <= 0.f || baseline <= 0.f || resolution_m <= 0.f) return get(MAPPING_RANGE::MEDIUM);
  // Depth noise of a stereo pair at distance z, for a quarter-pixel disparity error:
  // z^2 * 0.25 / (fx * B). The range is where it reaches half a voxel.
  const float z = std::sqrt(0.5f * resolution_m * fx * baseline / 0.25f);
  return std::clamp(z, allowed_range.first, allowed_range.second);
}

float SpatialMappingParameters::getRecommendedRange(MAPPING_RESOLUTION resolution, Camera& camera) {
  return getRecommendedRange(get(resolution), camera);
}

}  // namespace pv
