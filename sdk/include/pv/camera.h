// PAVO SDK: the camera, live or recorded, with depth, tracking, mapping and recording.
#pragma once

#include <memory>
#include <vector>

#include "pv/defines.h"
#include "pv/mat.h"
#include "pv/mesh.h"
#include "pv/types.h"

// The CUDA driver's context handle, declared without CUDA headers.
struct CUctx_st;
typedef struct CUctx_st* CUcontext;

namespace pv {

namespace internal {
struct CameraState;
}

/// One input: a live stereo camera, the virtual camera or a KTR recording.
///
/// Threads: one thread grabs and makes every call not marked otherwise. retrieveSpatialMapAsync
/// may run on another thread while grabs go on; setKTRPosition, getKTRPosition and
/// get/setCameraSettings may be called from another thread. No exception crosses this interface.
class Camera {
 public:
  Camera();
  ~Camera();  ///< closes
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;

  /// Live cameras now connected, the virtual camera included. Thread safe.
  static std::vector<DeviceProperties> getDeviceList();
  /// Status of a neural model; no model ships, so both flags are false. Thread safe.
  static AI_Model_status checkAIModelStatus(AI_MODELS model, int gpu_id = 0);

  /// Opens a live camera or a recording; validates every parameter. On failure nothing stays open.
  [[nodiscard]] ERROR_CODE open(InitParameters init_parameters = InitParameters());
  /// Idempotent.
  void close();
  bool isOpened() const;

  /// Next frame: capture or decode, rectify, depth, tracking, hand-over to mapping (never waits
  /// for fusion). END_OF_KTR_FILE_REACHED after the last frame of a recording, until a seek.
  [[nodiscard]] ERROR_CODE grab(RuntimeParameters runtime_parameters = RuntimeParameters());
  /// Writes `view` of the last grabbed frame into `mat` when it already has the right size and
  /// type (also a non-owning Mat), else allocates. Resolution(0, 0) means native.
  [[nodiscard]] ERROR_CODE retrieveImage(Mat& mat, VIEW view = VIEW::LEFT, MEM mem = MEM::CPU,
                                         Resolution resolution = Resolution(0, 0));
  /// DEPTH (F32_C1, coordinate_units), CONFIDENCE (F32_C1), XYZRGBA (F32_C4), DISPARITY.
  [[nodiscard]] ERROR_CODE retrieveMeasure(Mat& mat, MEASURE measure = MEASURE::DEPTH, MEM mem = MEM::CPU,
                                           Resolution resolution = Resolution(0, 0));
  /// Readable after a failed open too (default values then).
  CameraInformation getCameraInformation(Resolution resolution = Resolution(0, 0)) const;
  InitParameters getInitParameters() const;
  /// Timestamp of the last grabbed frame, nanoseconds.
  uint64_t getTimestamp() const;
  /// Frames per second of the input.
  float getCurrentFPS() const;

  /// Frame count of a recording; -1 for a live camera or when nothing is open. Thread safe.
  int getKTRNumberOfFrames() const;
  /// The next grab returns frame `frame`. Thread safe against grab.
  void setKTRPosition(int frame);
  /// Index of the next frame to be grabbed. Thread safe.
  int getKTRPosition() const;

  /// Live cameras; -1 = automatic. Thread safe against grab.
  ERROR_CODE setCameraSettings(VIDEO_SETTINGS setting, int value = -1);
  int getCameraSettings(VIDEO_SETTINGS setting) const;

  /// The SDK's CUDA context, or null when no CUDA device is used.
  CUcontext getCUDAContext() const;

  // Positional tracking.
  [[nodiscard]] ERROR_CODE enablePositionalTracking(
      PositionalTrackingParameters parameters = PositionalTrackingParameters());
  /// Pose of the last frame; returns the tracking state (OFF when not enabled). While SEARCHING
  /// the pose is only a guess: the last pose held, or one tracked in a local map placed where the
  /// camera was guessed to be after a loss, until that map is joined to the measured one.
  POSITIONAL_TRACKING_STATE getPosition(Pose& pose, REFERENCE_FRAME reference = REFERENCE_FRAME::WORLD);
  [[nodiscard]] ERROR_CODE saveAreaMap(const String& area_file_path);
  /// Saves the area first when a path is given.
  void disablePositionalTracking(const String& area_file_path = String());
  bool isPositionalTrackingEnabled() const;

  // Spatial mapping (needs positional tracking).
  [[nodiscard]] ERROR_CODE enableSpatialMapping(SpatialMappingParameters parameters = SpatialMappingParameters());
  void disableSpatialMapping();
  SPATIAL_MAPPING_STATE getSpatialMappingState();
  /// Starts meshing the chunks changed since the previous request.
  void requestSpatialMapAsync();
  /// SUCCESS once the requested map is ready, MAP_NOT_READY before.
  ERROR_CODE getSpatialMapRequestStatusAsync();
  /// Copies the ready map into the caller's object (may run on another thread than grab).
  ERROR_CODE retrieveSpatialMapAsync(Mesh& mesh);
  ERROR_CODE retrieveSpatialMapAsync(FusedPointCloud& point_cloud);
  /// Meshes everything synchronously, fills the whole-map arrays, flags every chunk.
  ERROR_CODE extractWholeSpatialMap(Mesh& mesh);
  ERROR_CODE extractWholeSpatialMap(FusedPointCloud& point_cloud);
  SpatialMappingParameters getSpatialMappingParameters() const;

  // Recording of a live camera into a KTR file.
  [[nodiscard]] ERROR_CODE enableRecording(RecordingParameters parameters);
  void disableRecording();

  /// Internal state; not for applications.
  internal::CameraState* state() { return state_.get(); }

 private:
  std::unique_ptr<internal::CameraState> state_;
};

}  // namespace pv
