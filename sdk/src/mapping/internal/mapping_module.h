// Spatial mapping state of one camera: the TSDF, its integration thread behind a bounded queue,
// incremental meshing on request, the published chunks and the keyframes kept for texturing.
#pragma once

#include <Eigen/Core>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "mapping/internal/marching_cubes.h"
#include "mapping/internal/tsdf_volume.h"
#include "pv/defines.h"
#include "pv/mesh.h"
#include "pv/types.h"

namespace pv::internal {

struct TextureSource;

struct MappingConfig {
  float voxel_m = 0.05f;
  float range_m = 5.f;  ///< depth beyond is not fused
  float min_depth_m = 0.f;
  /// Depth pixels whose confidence value (1 sure .. 100 unsure) is higher are not fused, whatever
  /// the grab's own threshold kept: in synthesized rooms at 2 cm, fusing the doubtful rest (mostly
  /// values the depth filter invented where no match held) tripled QUALITY's mean error for half a
  /// percent of the surface. Below it, each pixel weighs (100 - confidence)^2 / 99^2 of a sure one.
  float max_confidence = 85.f;
  bool weigh_by_confidence = true;
  size_t max_memory_bytes = size_t(2048) << 20;  ///< blocks, meshes and keyframes together
  bool save_texture = false;
  bool use_chunk_only = false;  ///< retrievals leave the whole-map arrays empty
  COORDINATE_SYSTEM coordinate_system = COORDINATE_SYSTEM::IMAGE;
  UNIT coordinate_units = UNIT::METER;
  size_t queue_capacity = 2;            ///< frames waiting for fusion; a full queue drops the new frame
  bool wait_for_room = false;           ///< a full queue makes submit wait instead (no frame is dropped)
  int overflow_window = 30;             ///< frames over which drops are counted for FPS_TOO_LOW
  SpatialMappingParameters parameters;  ///< as the application gave them (range resolved)
};

/// Figures of the map so far (thread safe to read).
struct MappingStats {
  size_t frames_submitted = 0, frames_fused = 0, frames_dropped = 0;
  size_t blocks = 0, chunks = 0, keyframes = 0;
  size_t block_bytes = 0, mesh_bytes = 0, keyframe_bytes = 0;
  double integrate_ms_total = 0, mesh_ms_last = 0;
  size_t chunks_meshed_last = 0;
};

/// A published chunk: its surface (IMAGE frame, metres) and a stamp that changes with every
/// new surface, unique over the process.
struct PublishedChunk {
  ChunkMesh mesh;
  uint64_t stamp = 0;
};

class MappingModule {
 public:
  explicit MappingModule(const MappingConfig& config);
  ~MappingModule();  ///< stops the integration thread (a pending request is abandoned)
  MappingModule(const MappingModule&) = delete;
  MappingModule& operator=(const MappingModule&) = delete;

  /// Queues a deep copy of the frame for fusion without waiting; false when the queue is full and
  /// the frame is dropped (with wait_for_room, waits for room instead). `bgr` may be empty. Called
  /// from one thread (the grabbing thread).
  bool submit(DepthFrame frame);
  /// Keeps `bgr` as a texturing keyframe when save_texture is on and the camera moved enough
  /// since the last one (and the memory budget allows).
  void offerKeyframe(const cv::Mat& bgr, const DepthFrame& frame);

  SPATIAL_MAPPING_STATE state() const;
  /// Starts meshing the chunks changed since the previous request.
  void requestMap();
  /// True once the last request is done.
  bool mapReady() const { return map_ready_.load(); }
  /// Waits until every queued frame is fused and a pending request is done.
  void waitIdle();

  /// Chunk hand-over: the holder's chunk list grows to the map's, chunks whose surface changed
  /// since this holder's last copy are copied with has_been_updated = true, the others are left
  /// with false. MAP_NOT_READY before the first request is done. Thread safe.
  ERROR_CODE retrieve(Mesh& mesh);
  ERROR_CODE retrieve(FusedPointCloud& cloud);
  /// Fuses what is queued, meshes every changed chunk and hands over the whole map (every chunk
  /// flagged, whole-map arrays filled).
  ERROR_CODE extractWhole(Mesh& mesh);
  ERROR_CODE extractWhole(FusedPointCloud& cloud);

  MappingStats stats() const;
  const MappingConfig& config() const { return config_; }

 private:
  void run();
  void integrateOne(const DepthFrame& frame);
  void meshChanged();
  size_t budgetLeftForBlocks() const;
  void convertChunk(const PublishedChunk& src, Chunk& dst) const;
  void convertChunk(const PublishedChunk& src, PointCloudChunk& dst) const;
  template <class Holder>
  ERROR_CODE handOver(Holder& holder, bool flag_all);
  std::shared_ptr<TextureSource> textureSnapshot() const;

  const MappingConfig config_;
  TsdfVolume volume_;  // integration thread only

  mutable std::mutex queue_mutex_;
  std::condition_variable queue_cv_, idle_cv_, room_cv_;
  std::deque<DepthFrame> queue_;
  bool busy_ = false, stop_ = false, mesh_requested_ = false;
  size_t frames_before_mesh_ = 0;
  std::deque<bool> recent_drops_;
  size_t recent_drop_count_ = 0;

  mutable std::mutex publish_mutex_;
  std::vector<PublishedChunk> published_;
  bool any_published_ = false;
  std::atomic<bool> map_ready_{false};

  mutable std::mutex keyframe_mutex_;
  std::shared_ptr<TextureSource> keyframes_;
  Eigen::Matrix4f last_keyframe_pose_ = Eigen::Matrix4f::Zero();

  std::atomic<bool> memory_exhausted_{false};
  std::atomic<bool> fused_any_{false};
  mutable std::mutex stats_mutex_;
  MappingStats stats_;
  std::thread thread_;
};

}  // namespace pv::internal
