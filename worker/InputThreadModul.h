// The mapping worker: owns the camera connection and everything produced from it (live image
// buffers, pose, spatial map), and runs capture, tracking, mapping and the end-of-scan export on
// its own thread.
//
// Threads: initPAVO, init, startScan, askSetPosition and destruct are called from the GUI thread;
// work() and every step it runs execute on the worker's thread; retrieveMesh() runs on Qt's
// global thread pool. The map mutex guards the mesh and the fused point cloud. Cross-thread flags
// are atomics written by one side and polled by the other.
#pragma once

#include <QObject>
#include <atomic>
#include <mutex>

#include "pv/camera.h"
#include "pv/mat.h"
#include "pv/mesh.h"
#include "pv/types.h"

class InputThreadModul : public QObject {
  Q_OBJECT

 public:
  /// Run states of the worker loop.
  enum State {
    IDLE = 0,
    PREVIEW = 1,
    START_SCAN = 2,
    OFFLINE_PREPROCESSING = 3,
    RESTART_AFTER_PREPROCESSING = 4,
    SCANNING = 5,
    END_OF_SCAN = 6,
    POST_PROCESSING = 7
  };
  /// Why a scan ended.
  enum EndCode { END_BY_USER = 0, END_OF_RECORDING = 1, MEMORY_FULL = 2, CAMERA_DISCONNECTED = 3 };
  /// Filter level meaning "no filtering".
  static constexpr int kNoFilter = 3;

  InputThreadModul();
  ~InputThreadModul() override;

  /// Opens a live camera (true) or the recording in KTR_FILE_PATH (false). -1 when no live camera
  /// is connected, else the camera's open result as an int (0 = success).
  int initPAVO(bool live);
  /// Fetches the CUDA context and lays out the frame buffer (two views over one double-height
  /// GPU image). Returns 0.
  int init();
  /// Seeks a recording while the preview runs; ignored in every other state.
  void askSetPosition(int frame);
  /// Stops the loop, waits for a map retrieval in flight and for the loop's current step (so that
  /// no grab writes into the frame buffer any more), frees the frame buffer.
  void destruct();
  /// Requests the scan start (range in metres or -1 for automatic, resolution in metres, filter
  /// level 0..3 with 3 = none, map type, memory budget in megabytes).
  void startScan(float range, float resolution, int filterLevel, bool fusedPointCloud, int maxMemory);
  /// Copies the requested map into the worker's mesh or point cloud (pool thread).
  void retrieveMesh();

  // Access for the controller and the views.
  std::atomic<int>& state() { return state_; }
  pv::Mat& frameBuffer() { return frame_buffer_; }
  CUcontext& cudaContext() { return cuda_context_; }
  std::mutex* mapMutex() { return &map_mutex_; }
  /// Guards the pose sendPath points to: written under it by the worker, read under it by the view.
  std::mutex* poseMutex() { return &pose_mutex_; }
  pv::Mesh* mesh() { return &mesh_; }
  pv::FusedPointCloud* fusedPointCloud() { return &fused_point_cloud_; }
  pv::Camera& camera() { return camera_; }
  bool isCameraOpen() const { return camera_.isOpened(); }
  int serialNumber() const { return serial_number_; }
  int ktrFrameCount() const { return ktr_frame_count_; }
  bool isKTR() const { return ktr_input_; }
  int frameCounter() const { return frame_counter_; }
  int endCode() const { return end_code_; }
  int mapRequestState() const { return map_request_state_; }
  const pv::SpatialMappingParameters& mappingParameters() const { return mapping_parameters_; }

 public slots:
  /// The worker loop; runs until destruct().
  void work();

 signals:
  void sendViewImage();
  void sendPath(float* pose);
  void sendTrackStatus(int state);
  void sendIncrementKTRPos();
  void autoEnd();
  void theEnd(int code);
  void sendEnd(bool textured);
  void sendResetNeeded();
  void updatePreProcess(int percent);
  void preprocessEnd();

 private:
  void vizuInit();
  void initScan();
  void process();
  void processOffline();
  void processOfflineRestart();
  void endProcess();
  void postProcess();
  void retrieveViewImages();
  /// Sleeps 1 ms at a time until MAP_REQUEST_ALLOWED is set; false when aborted meanwhile.
  bool waitForMapRequestAllowed();
  bool aborted() const { return abort_post_processing_ || !running_; }

  CUcontext cuda_context_ = nullptr;
  pv::Mat frame_buffer_;
  pv::Mat image_view_;
  pv::Mat second_view_;
  std::atomic<int> state_{IDLE};
  bool ktr_input_ = false;
  int ktr_frame_count_ = 0;
  int serial_number_ = -1;
  pv::Camera camera_;
  std::atomic<bool> running_{true};
  std::atomic<bool> in_loop_{false};  ///< work() is inside its loop
  std::mutex map_mutex_;
  pv::Mesh mesh_;
  pv::FusedPointCloud fused_point_cloud_;
  pv::CameraInformation camera_information_;
  pv::InitParameters init_parameters_;
  pv::Pose pose_;  ///< the last published pose (sendPath), under pose_mutex_
  std::mutex pose_mutex_;
  bool fused_point_cloud_mode_ = false;
  std::atomic<bool> position_changed_{false};
  std::atomic<int> start_frame_{0};  ///< the recording's frame the preview was last asked for
  bool buffers_allocated_ = false;
  std::atomic<int> frame_counter_{0};
  std::atomic<int> last_map_frame_{0};
  bool second_view_is_tracking_ = false;
  int tracking_state_ = 0;
  int end_code_ = END_BY_USER;
  std::atomic<int> map_request_state_{0};
  std::atomic<bool> abort_post_processing_{false};
  std::atomic<bool> post_processing_running_{false};
  int mesh_filter_level_ = 0;
  pv::SpatialMappingParameters mapping_parameters_;
};
