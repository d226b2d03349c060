// Truncated signed distance volume: 8x8x8-voxel blocks in a spatial hash, grouped into chunks
// (fixed cubes of space about 1.5 m a side). Everything in the IMAGE frame and metres.
#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <unordered_map>
#include <vector>

#include "mapping/internal/band_blocks.h"

namespace pv::internal {

constexpr int kBlockSide = 8;
constexpr int kBlockVoxels = kBlockSide * kBlockSide * kBlockSide;

/// Integer coordinates of a block (or of a chunk), in block (chunk) units.
struct GridKey {
  int x = 0, y = 0, z = 0;
  bool operator==(const GridKey& o) const { return x == o.x && y == o.y && z == o.z; }
};
struct GridKeyHash {
  size_t operator()(const GridKey& k) const {
    return size_t(uint32_t(k.x) * 73856093u) ^ size_t(uint32_t(k.y) * 19349669u) ^ size_t(uint32_t(k.z) * 83492791u);
  }
};

/// One block. Voxel (i, j, k) sits at index i + 8 j + 64 k; its centre is at
/// (8 key + (i, j, k)) * voxel_m in the world.
struct VoxelBlock {
  std::array<float, kBlockVoxels> tsdf;    ///< signed distance / truncation, in [-1, 1]
  std::array<float, kBlockVoxels> weight;  ///< 0: never observed
  std::array<std::array<uint8_t, 3>, kBlockVoxels> bgr;
  GridKey key;
  int chunk = -1;
};

struct TsdfParameters {
  float voxel_m = 0.05f;
  float truncation_vox = 4.f;        ///< truncation distance in voxels
  float min_depth_m = 0.f;           ///< depth nearer than this is not fused
  float max_depth_m = 5.f;           ///< depth farther than this (the range) is not fused
  float max_weight = 100.f;          ///< cap of the running average's weight
  float chunk_target_m = 1.5f;       ///< chunk side, rounded to whole blocks
  float edge_jump = 0.02f;           ///< depth step to a neighbour, relative, that marks a depth edge
  float max_confidence = 100.f;      ///< pixels whose confidence value (1 sure .. 100 unsure) is higher are not fused
  bool weigh_by_confidence = false;  ///< a pixel's measurement weighs less the higher its confidence value
};

/// One depth frame to fuse. `depth_m`: CV_32F, NaN or 0 where invalid; `confidence`: CV_32F of the
/// same size, 1 (sure) .. 100 (unsure), or empty (every pixel sure); `bgr`: CV_8UC3 of the same
/// size, or empty. Pinhole intrinsics of that image.
struct DepthFrame {
  cv::Mat depth_m;
  cv::Mat confidence;
  cv::Mat bgr;
  Eigen::Matrix4f T_world_camera = Eigen::Matrix4f::Identity();
  double fx = 0, fy = 0, cx = 0, cy = 0;
  uint64_t timestamp_ns = 0;
};

/// A chunk: stable index (its position in chunks()), the blocks inside, and change tracking.
struct ChunkInfo {
  GridKey key;
  std::vector<int> blocks;      ///< indices into the block store
  bool dirty = false;           ///< changed since the last meshing
  uint64_t last_change_ns = 0;  ///< timestamp of the last frame that changed it
};

struct IntegrationStats {
  int blocks_updated = 0;
  int blocks_allocated = 0;
  int blocks_refused = 0;  ///< not allocated because of the block limit
};

/// Not thread safe: one thread integrates and meshes.
class TsdfVolume {
 public:
  explicit TsdfVolume(const TsdfParameters& parameters);

  /// Fuses one frame. A block is allocated where the frame updates one of its voxels; blocks
  /// beyond `max_blocks` are not (counted as refused).
  IntegrationStats integrate(const DepthFrame& frame);
  /// Limit on the number of blocks (the memory budget); existing blocks are kept.
  void setMaxBlocks(size_t max_blocks) { max_blocks_ = max_blocks; }

  const VoxelBlock* find(const GridKey& block_key) const;
  const std::vector<ChunkInfo>& chunks() const { return chunks_; }
  std::vector<ChunkInfo>& chunks() { return chunks_; }
  const VoxelBlock& block(int index) const { return *blocks_[size_t(index)]; }
  size_t blockCount() const { return blocks_.size(); }
  static constexpr size_t blockBytes() { return sizeof(VoxelBlock) + 64; }  // + hash entry
  float voxelSize() const { return p_.voxel_m; }
  int chunkBlocks() const { return chunk_blocks_; }
  const TsdfParameters& parameters() const { return p_; }

 private:
  static std::unique_ptr<VoxelBlock> freshBlock(const GridKey& key);
  int adopt(std::unique_ptr<VoxelBlock> block);
  void collectBlocks(const DepthFrame& frame, std::vector<int>& existing, std::vector<GridKey>& fresh);
  /// Returns the number of voxels updated.
  int integrateBlock(VoxelBlock& block, const DepthFrame& frame, const Eigen::Matrix3f& R_cw,
                     const Eigen::Vector3f& t_cw) const;
  void markChanged(const VoxelBlock& block, uint64_t timestamp_ns);

  TsdfParameters p_;
  int chunk_blocks_ = 1;
  size_t max_blocks_ = SIZE_MAX;
  std::vector<std::unique_ptr<VoxelBlock>> blocks_;
  std::unordered_map<GridKey, int, GridKeyHash> block_index_;
  std::vector<ChunkInfo> chunks_;
  std::unordered_map<GridKey, int, GridKeyHash> chunk_index_;
  // Scratch reused from frame to frame: the fused depth and the keys of its band's blocks.
  DepthBand band_;
  std::vector<uint64_t> band_keys_;
};

/// floor(a / b) for integers.
inline int floorDiv(int a, int b) { return (a >= 0) ? a / b : -((-a + b - 1) / b); }

}  // namespace pv::internal
