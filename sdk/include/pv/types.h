// PAVO SDK: parameter and value structs of the camera interface. Plain values.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "pv/defines.h"
#include "pv/math.h"

namespace pv {

class Camera;

/// A live camera found by Camera::getDeviceList.
struct DeviceProperties {
  int id = -1;  ///< index to give InputType::setFromCameraID
  String path;  ///< V4L2 device node, or the recording a virtual camera plays
  unsigned int serial_number = 0;
  MODEL camera_model = MODEL::PAVO;
  CAMERA_STATE camera_state = CAMERA_STATE::NOT_AVAILABLE;
};

/// Which input Camera::open opens.
class InputType {
 public:
  InputType() = default;
  void setFromCameraID(int id);
  void setFromSerialNumber(unsigned int serial_number);
  void setFromKTRFile(const String& path);
  INPUT_TYPE getType() const { return type_; }
  int getCameraID() const { return camera_id_; }
  unsigned int getSerialNumber() const { return serial_number_; }
  String getKTRFile() const { return ktr_file_; }
  /// True when the input names a live camera (by id or serial), false for a recording.
  bool isLive() const { return type_ != INPUT_TYPE::KTR; }

 private:
  INPUT_TYPE type_ = INPUT_TYPE::USB;
  int camera_id_ = 0;
  unsigned int serial_number_ = 0;
  bool by_serial_ = false;
  String ktr_file_;
};

/// Parameters of Camera::open. Distances are in coordinate_units.
struct InitParameters {
  RESOLUTION camera_resolution = RESOLUTION::HD720;
  int camera_fps = 0;  ///< 0: the resolution's default rate
  InputType input;
  DEPTH_MODE depth_mode = DEPTH_MODE::PERFORMANCE;
  float depth_minimum_distance = 0.3f;  ///< metres unless coordinate_units says otherwise
  float depth_maximum_distance = 15.0f;
  UNIT coordinate_units = UNIT::METER;
  COORDINATE_SYSTEM coordinate_system = COORDINATE_SYSTEM::IMAGE;
  int sdk_gpu_id = -1;              ///< -1: first usable device
  bool ktr_real_time_mode = false;  ///< false: a recording is read as fast as it decodes
  int sdk_verbose = 0;
};

/// Parameters of each Camera::grab.
struct RuntimeParameters {
  SENSING_MODE sensing_mode = SENSING_MODE::STANDARD;
  bool enable_depth = true;
  int confidence_threshold = 100;          ///< 1..100; 100 keeps everything
  int texture_confidence_threshold = 100;  ///< 1..100; 100 keeps everything
  REFERENCE_FRAME measure3D_reference_frame = REFERENCE_FRAME::CAMERA;
  bool remove_saturated_areas = true;

  RuntimeParameters(SENSING_MODE sensing_mode_ = SENSING_MODE::STANDARD, bool enable_depth_ = true,
                    int confidence_threshold_ = 100, int texture_confidence_threshold_ = 100,
                    REFERENCE_FRAME reference_frame_ = REFERENCE_FRAME::CAMERA, bool remove_saturated_areas_ = true)
      : sensing_mode(sensing_mode_),
        enable_depth(enable_depth_),
        confidence_threshold(confidence_threshold_),
        texture_confidence_threshold(texture_confidence_threshold_),
        measure3D_reference_frame(reference_frame_),
        remove_saturated_areas(remove_saturated_areas_) {}
};

/// Pinhole intrinsics of one eye, in pixels; disto = k1, k2, p1, p2, k3 (OpenCV order).
struct CameraParameters {
  float fx = 0, fy = 0, cx = 0, cy = 0;
  double disto[5] = {0, 0, 0, 0, 0};
  float v_fov = 0, h_fov = 0, d_fov = 0;  ///< degrees
  Resolution image_size;
};

/// Stereo calibration. For the rectified images of a running camera the distortions are zero.
struct CalibrationParameters {
  CameraParameters left_cam;
  CameraParameters right_cam;
  float baseline_m = 0;            ///< distance between the optical centres, metres
  Rotation stereo_rotation;        ///< right camera orientation in the left frame
  Translation stereo_translation;  ///< right camera position in the left frame, metres
};

struct CameraConfiguration {
  Resolution resolution;  ///< one eye
  float fps = 0;
  CalibrationParameters calibration_parameters;      ///< rectified
  CalibrationParameters calibration_parameters_raw;  ///< as recorded (with distortion)
};

/// What Camera::getCameraInformation reports.
struct CameraInformation {
  unsigned int serial_number = 0;
  MODEL camera_model = MODEL::PAVO;
  INPUT_TYPE input_type = INPUT_TYPE::USB;
  CameraConfiguration camera_configuration;
};

/// Status of a neural model.
struct AI_Model_status {
  bool downloaded = false;
  bool optimized = false;
};

/// Parameters of Camera::enablePositionalTracking.
struct PositionalTrackingParameters {
  Transform initial_world_transform;  ///< identity
  bool enable_area_memory = true;
  String area_file_path;  ///< when set, the area is loaded and the camera relocalised in it
  bool set_as_static = false;
};

/// A camera pose: camera-to-world (WORLD) or motion since the previous frame (CAMERA).
struct Pose {
  Transform pose_data;
  uint64_t timestamp_ns = 0;
  bool valid = false;
  int pose_confidence = 0;  ///< 0..100
  Translation getTranslation() const { return pose_data.getTranslation(); }
  Orientation getOrientation() const { return pose_data.getOrientation(); }
  Rotation getRotationMatrix() const { return pose_data.getRotation(); }
};

/// Parameters of Camera::enableSpatialMapping.
struct SpatialMappingParameters {
  float resolution_meter = 0.05f;  ///< voxel size
  float range_meter = 5.0f;        ///< depth beyond this is not fused
  bool save_texture = false;       ///< keep keyframe images for Mesh::applyTexture
  bool use_chunk_only = false;     ///< retrievals fill only the chunks, not the whole-map arrays
  int max_memory_usage = 2048;     ///< megabytes: blocks, meshes and keyframes together
  SPATIAL_MAP_TYPE map_type = SPATIAL_MAP_TYPE::MESH;

  static const std::pair<float, float> allowed_resolution;  ///< (0.01, 0.20) m
  static const std::pair<float, float> allowed_range;       ///< (1.0, 20.0) m

  SpatialMappingParameters() = default;
  SpatialMappingParameters(MAPPING_RESOLUTION resolution, MAPPING_RANGE range, bool save_texture_ = false,
                           bool use_chunk_only_ = false, int max_memory_usage_ = 2048,
                           SPATIAL_MAP_TYPE map_type_ = SPATIAL_MAP_TYPE::MESH);
  void set(MAPPING_RESOLUTION resolution);
  void set(MAPPING_RANGE range);
  /// Preset voxel size in metres: 0.02, 0.05, 0.08.
  static float get(MAPPING_RESOLUTION resolution);
  /// Preset range in metres: 3.5, 5.0, 8.0; AUTO gives -1.
  static float get(MAPPING_RANGE range);
  /// Distance (metres) at which the stereo depth noise z^2 * 0.25 px / (fx * baseline) reaches
  /// half a voxel, clamped to allowed_range. Needs an open camera (else the preset MEDIUM range).
  static float getRecommendedRange(float resolution_m, Camera& camera);
  static float getRecommendedRange(MAPPING_RESOLUTION resolution, Camera& camera);
};

/// Parameters of Camera::enableRecording.
struct RecordingParameters {
  String video_filename;
  KTR_COMPRESSION_MODE compression_mode = KTR_COMPRESSION_MODE::H264;
  RecordingParameters() = default;
  RecordingParameters(const String& filename, KTR_COMPRESSION_MODE mode = KTR_COMPRESSION_MODE::H264)
      : video_filename(filename), compression_mode(mode) {}
};

}  // namespace pv
