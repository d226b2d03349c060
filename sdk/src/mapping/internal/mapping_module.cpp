#include "mapping/internal/mapping_module.h"

#include <tbb/parallel_for.h>

#include <Eigen/Geometry>
#include <chrono>
#include <cstring>

#include "core/internal/coordinates.h"
#include "core/internal/error.h"
#include "mesh/internal/texture_source.h"

namespace pv::internal {

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// A stamp after `at_least` and after every stamp handed out before, over the whole process, so
/// that a holder can never mistake one surface of a chunk for another.
uint64_t nextStamp(uint64_t at_least) {
  static std::atomic<uint64_t> last{0};
  uint64_t prev = last.load();
  uint64_t next;
  do {
    next = std::max(at_least, prev + 1);
  } while (!last.compare_exchange_weak(prev, next));
  return next;
}

TsdfParameters tsdfParameters(const MappingConfig& c) {
  TsdfParameters p;
  p.voxel_m = c.voxel_m;
  p.max_depth_m = c.range_m;
  p.min_depth_m = c.min_depth_m;
  p.max_confidence = c.max_confidence;
  p.weigh_by_confidence = c.weigh_by_confidence;
  return p;
}

float packColour(const std::array<uint8_t, 3>& rgb) {
  const uint32_t bits = (uint32_t(rgb[0]) << 16) | (uint32_t(rgb[1]) << 8) | uint32_t(rgb[2]);
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

template <class T>
bool sameArray(const std::vector<T>& a, const std::vector<T>& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

bool sameSurface(const ChunkMesh& a, const ChunkMesh& b) {
  return sameArray(a.vertices, b.vertices) && sameArray(a.triangles, b.triangles) && sameArray(a.rgb, b.rgb);
}

constexpr float kKeyframeMinMove_m = 0.25f;
constexpr float kKeyframeMinTurn_rad = 0.26f;  // 15 degrees

}  // namespace

MappingModule::MappingModule(const MappingConfig& config) : config_(config), volume_(tsdfParameters(config)) {
  if (config_.save_texture) keyframes_ = std::make_shared<TextureSource>();
  thread_ = std::thread([this] { run(); });
}

MappingModule::~MappingModule() {
  {
    std::lock_guard<std::mutex> lock(queue_mutex_);
    stop_ = true;
  }
  queue_cv_.notify_all();
  idle_cv_.notify_all();
  room_cv_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool MappingModule::submit(DepthFrame frame) {
  bool room;
  {
    std::unique_lock<std::mutex> lock(queue_mutex_);
    if (config_.wait_for_room) room_cv_.wait(lock, [&] { return stop_ || queue_.size() < config_.queue_capacity; });
    room = queue_.size() < config_.queue_capacity;
  }
  // Only this thread adds to the queue, so room found above stays; copy outside the lock.
  if (room) {
    frame.depth_m = frame.depth_m.clone();
    frame.confidence = frame.confidence.clone();
    frame.bgr = frame.bgr.clone();
  }
  {
    std::lock_guard<std::mutex> lock(queue_mutex_);
    if (room) queue_.push_back(std::move(frame));
    recent_drops_.push_back(!room);
    recent_drop_count_ += !room;
    if (int(recent_drops_.size()) > config_.overflow_window) {
      recent_drop_count_ -= recent_drops_.front();
      recent_drops_.pop_front();
    }
  }
  if (room) queue_cv_.notify_one();
  std::lock_guard<std::mutex> lock(stats_mutex_);
  ++stats_.frames_submitted;
  stats_.frames_dropped += !room;
  return room;
}

void MappingModule::offerKeyframe(const cv::Mat& bgr, const DepthFrame& frame) {
  if (!keyframes_ || bgr.empty()) return;
  const Eigen::Matrix4f& T = frame.T_world_camera;
  if (last_keyframe_pose_(3, 3) != 0.f) {
    const float move = (T.topRightCorner<3, 1>() - last_keyframe_pose_.topRightCorner<3, 1>()).norm();
    const Eigen::Matrix3f dR = last_keyframe_pose_.topLeftCorner<3, 3>().transpose() * T.topLeftCorner<3, 3>();
    const float turn = Eigen::AngleAxisf(dR).angle();
    if (move < kKeyframeMinMove_m && turn < kKeyframeMinTurn_rad) return;
  }
  const size_t bytes = bgr.total() * bgr.elemSize();
  {
    std::lock_guard<std::mutex> lock(stats_mutex_);
    if (stats_.block_bytes + stats_.mesh_bytes + stats_.keyframe_bytes + bytes > config_.max_memory_bytes) return;
    stats_.keyframe_bytes += bytes;
    ++stats_.keyframes;
  }
  TextureKeyframe kf;
  kf.bgr = bgr.clone();
  const Eigen::Matrix3f C = basisFromImage(config_.coordinate_system);
  const float scale = metresTo(config_.coordinate_units);
  kf.T_mesh_camera.topLeftCorner<3, 3>() = C * T.topLeftCorner<3, 3>();
  kf.T_mesh_camera.topRightCorner<3, 1>() = C * T.topRightCorner<3, 1>() * scale;
  kf.fx = frame.fx;
  kf.fy = frame.fy;
  kf.cx = frame.cx;
  kf.cy = frame.cy;
  kf.unit_per_metre = scale;
  kf.timestamp_ns = frame.timestamp_ns;
  std::lock_guard<std::mutex> lock(keyframe_mutex_);
  keyframes_->keyframes.push_back(std::move(kf));
  last_keyframe_pose_ = T;
}

SPATIAL_MAPPING_STATE MappingModule::state() const {
  if (memory_exhausted_) return SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY;
  {
    std::lock_guard<std::mutex> lock(queue_mutex_);
    if (int(recent_drops_.size()) >= config_.overflow_window / 2 && 2 * recent_drop_count_ > recent_drops_.size())
      return SPATIAL_MAPPING_STATE::FPS_TOO_LOW;
  }
  return fused_any_ ? SPATIAL_MAPPING_STATE::OK : SPATIAL_MAPPING_STATE::INITIALIZING;
}

void MappingModule::requestMap() {
  {
    std::lock_guard<std::mutex> lock(queue_mutex_);
    mesh_requested_ = true;
    frames_before_mesh_ = queue_.size();  // the map includes the frames handed over before
    map_ready_ = false;
  }
  queue_cv_.notify_one();
}

void MappingModule::waitIdle() {
  std::unique_lock<std::mutex> lock(queue_mutex_);
  idle_cv_.wait(lock, [&] { return stop_ || (queue_.empty() && !busy_ && !mesh_requested_); });
}

void MappingModule::run() {
  std::unique_lock<std::mutex> lock(queue_mutex_);
  for (;;) {
    queue_cv_.wait(lock, [&] { return stop_ || mesh_requested_ || !queue_.empty(); });
    if (stop_) break;
    busy_ = true;
    if (mesh_requested_ && frames_before_mesh_ == 0) {
      lock.unlock();
      meshChanged();
      lock.lock();
      mesh_requested_ = false;
      map_ready_ = true;
    } else {
      DepthFrame frame = std::move(queue_.front());
      queue_.pop_front();
      room_cv_.notify_one();
      if (frames_before_mesh_ > 0) --frames_before_mesh_;
      lock.unlock();
      integrateOne(frame);
      lock.lock();
    }
    busy_ = false;
    idle_cv_.notify_all();
  }
}

size_t MappingModule::budgetLeftForBlocks() const {
  std::lock_guard<std::mutex> lock(stats_mutex_);
  const size_t other = stats_.mesh_bytes + stats_.keyframe_bytes;
  return other >= config_.max_memory_bytes ? 0 : config_.max_memory_bytes - other;
}

void MappingModule::integrateOne(const DepthFrame& frame) {
  const auto start = Clock::now();
  volume_.setMaxBlocks(budgetLeftForBlocks() / TsdfVolume::blockBytes());
  const IntegrationStats s = volume_.integrate(frame);
  if (s.blocks_refused > 0) memory_exhausted_ = true;
  if (s.blocks_updated > 0) fused_any_ = true;
  std::lock_guard<std::mutex> lock(stats_mutex_);
  ++stats_.frames_fused;
  stats_.blocks = volume_.blockCount();
  stats_.chunks = volume_.chunks().size();
  stats_.block_bytes = volume_.blockCount() * TsdfVolume::blockBytes();
  stats_.integrate_ms_total += msSince(start);
}

void MappingModule::meshChanged() {
  const auto start = Clock::now();
  std::vector<ChunkInfo>& chunks = volume_.chunks();
  std::vector<std::pair<size_t, ChunkMesh>> fresh;
  for (size_t i = 0; i < chunks.size(); ++i) {
    if (!chunks[i].dirty) continue;
    chunks[i].dirty = false;
    fresh.emplace_back(i, ChunkMesh());
  }
  // Chunks are independent: mesh them in parallel, publish them together.
  tbb::parallel_for(tbb::blocked_range<size_t>(0, fresh.size(), 1), [&](const tbb::blocked_range<size_t>& r) {
    for (size_t n = r.begin(); n < r.end(); ++n) meshChunk(volume_, chunks[fresh[n].first], fresh[n].second);
  });
  size_t mesh_bytes = 0;
  {
    std::lock_guard<std::mutex> lock(publish_mutex_);
    if (published_.size() < chunks.size()) published_.resize(chunks.size());
    for (auto& [index, mesh] : fresh) {
      PublishedChunk& dst = published_[index];
      // A surface that came out the same keeps its stamp: holders need not copy it again.
      if (dst.stamp != 0 && sameSurface(dst.mesh, mesh)) continue;
      dst.mesh = std::move(mesh);
      dst.stamp = nextStamp(chunks[index].last_change_ns);
    }
    any_published_ = true;
    for (const PublishedChunk& c : published_) mesh_bytes += c.mesh.bytes();
  }
  std::lock_guard<std::mutex> lock(stats_mutex_);
  stats_.mesh_bytes = mesh_bytes;
  stats_.mesh_ms_last = msSince(start);
  stats_.chunks_meshed_last = fresh.size();
}

namespace {

// Walks a chunk's vertices in the map's coordinate system and unit, calling visit(i, position,
// normal) for each; returns their barycentre (zero for an empty chunk).
template <typename Visit>
float3 convertVertices(const ChunkMesh& m, COORDINATE_SYSTEM system, UNIT unit, Visit visit) {
  const Eigen::Matrix3f C = basisFromImage(system);
  const float scale = metresTo(unit);
  Eigen::Vector3f sum = Eigen::Vector3f::Zero();
  for (size_t i = 0; i < m.vertices.size(); ++i) {
    const Eigen::Vector3f p = C * m.vertices[i] * scale;
    visit(i, p, Eigen::Vector3f(C * m.normals[i]));
    sum += p;
  }
  if (!m.vertices.empty()) sum /= float(m.vertices.size());
  return {sum.x(), sum.y(), sum.z()};
}

}  // namespace

void MappingModule::convertChunk(const PublishedChunk& src, Chunk& dst) const {
  const ChunkMesh& m = src.mesh;
  dst.clear();
  dst.vertices.resize(m.vertices.size());
  dst.normals.resize(m.normals.size());
  dst.colors.resize(m.rgb.size());
  dst.barycenter = convertVertices(m, config_.coordinate_system, config_.coordinate_units,
                                   [&](size_t i, const Eigen::Vector3f& p, const Eigen::Vector3f& n) {
                                     dst.vertices[i] = {p.x(), p.y(), p.z()};
                                     dst.normals[i] = {n.x(), n.y(), n.z()};
                                     dst.colors[i] = {m.rgb[i][0], m.rgb[i][1], m.rgb[i][2]};
                                   });
  dst.triangles.resize(m.triangles.size());
  for (size_t i = 0; i < m.triangles.size(); ++i)
    dst.triangles[i] = {m.triangles[i][0], m.triangles[i][1], m.triangles[i][2]};
  dst.timestamp_ns = src.stamp;
}

void MappingModule::convertChunk(const PublishedChunk& src, PointCloudChunk& dst) const {
  const ChunkMesh& m = src.mesh;
  dst.clear();
  dst.vertices.resize(m.vertices.size());
  dst.normals.resize(m.normals.size());
  dst.barycenter = convertVertices(m, config_.coordinate_system, config_.coordinate_units,
                                   [&](size_t i, const Eigen::Vector3f& p, const Eigen::Vector3f& n) {
                                     dst.vertices[i] = {p.x(), p.y(), p.z(), packColour(m.rgb[i])};
                                     dst.normals[i] = {n.x(), n.y(), n.z()};
                                   });
  dst.timestamp_ns = src.stamp;
}

std::shared_ptr<TextureSource> MappingModule::textureSnapshot() const {
  if (!keyframes_) return nullptr;
  std::lock_guard<std::mutex> lock(keyframe_mutex_);
  return std::make_shared<TextureSource>(*keyframes_);  // images are shared, not copied
}

template <class Holder>
ERROR_CODE MappingModule::handOver(Holder& holder, bool flag_all) {
  std::lock_guard<std::mutex> lock(publish_mutex_);
  if (!any_published_) return fail(ERROR_CODE::MAP_NOT_READY, "no spatial map has been requested and made yet");
  // New chunks are appended; a holder with more chunks than this map held another map before
  // and loses the extra ones.
  holder.chunks.resize(published_.size());
  for (size_t i = 0; i < published_.size(); ++i) {
    auto& dst = holder.chunks[i];
    const bool changed = dst.timestamp_ns != published_[i].stamp;
    if (changed) convertChunk(published_[i], dst);
    dst.has_been_updated = changed || flag_all;
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE MappingModule::retrieve(Mesh& mesh) {
  const ERROR_CODE code = handOver(mesh, false);
  if (code != ERROR_CODE::SUCCESS) return code;
  if (config_.use_chunk_only) {
    mesh.vertices.clear();
    mesh.triangles.clear();
    mesh.normals.clear();
    mesh.colors.clear();
    mesh.uv.clear();
  } else {
    mesh.updateMeshFromChunkList();
  }
  mesh.texture_source = textureSnapshot();
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE MappingModule::retrieve(FusedPointCloud& cloud) {
  const ERROR_CODE code = handOver(cloud, false);
  if (code != ERROR_CODE::SUCCESS) return code;
  if (config_.use_chunk_only) {
    cloud.vertices.clear();
    cloud.normals.clear();
  } else {
    cloud.updateFromChunkList();
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE MappingModule::extractWhole(Mesh& mesh) {
  waitIdle();
  requestMap();
  waitIdle();
  const ERROR_CODE code = handOver(mesh, true);
  if (code != ERROR_CODE::SUCCESS) return code;
  mesh.updateMeshFromChunkList();
  mesh.texture_source = textureSnapshot();
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE MappingModule::extractWhole(FusedPointCloud& cloud) {
  waitIdle();
  requestMap();
  waitIdle();
  const ERROR_CODE code = handOver(cloud, true);
  if (code != ERROR_CODE::SUCCESS) return code;
  cloud.updateFromChunkList();
  return ERROR_CODE::SUCCESS;
}

MappingStats MappingModule::stats() const {
  std::lock_guard<std::mutex> lock(stats_mutex_);
  return stats_;
}

}  // namespace pv::internal
