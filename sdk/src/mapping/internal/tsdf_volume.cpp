#include "mapping/internal/tsdf_volume.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>

#include "mapping/internal/voxel_update.h"

namespace pv::internal {

namespace {

/// Inverse variance of stereo-like depth noise (sigma grows with z^2), 1 at one metre, bounded so
/// that very near pixels cannot freeze the average.
float noiseWeight(float z) {
  const float zz = std::max(z, 0.4f);
  return 1.f / (zz * zz * zz * zz);
}

/// Asks the cache for a block's distances and weights.
void prefetchVoxels(const VoxelBlock& b) {
  constexpr size_t kLine = 64;
  const char* tsdf = reinterpret_cast<const char*>(b.tsdf.data());
  const char* weight = reinterpret_cast<const char*>(b.weight.data());
  for (size_t offset = 0; offset < sizeof(b.tsdf); offset += kLine) {
    __builtin_prefetch(tsdf + offset, 1);
    __builtin_prefetch(weight + offset, 1);
  }
}

}  // namespace

TsdfVolume::TsdfVolume(const TsdfParameters& parameters) : p_(parameters) {
  chunk_blocks_ = std::max(1, int(std::lround(p_.chunk_target_m / (kBlockSide * p_.voxel_m))));
  block_index_.reserve(4096);
}

const VoxelBlock* TsdfVolume::find(const GridKey& block_key) const {
  const auto it = block_index_.find(block_key);
  return it == block_index_.end() ? nullptr : blocks_[size_t(it->second)].get();
}

std::unique_ptr<VoxelBlock> TsdfVolume::freshBlock(const GridKey& key) {
  auto block = std::make_unique<VoxelBlock>();
  block->tsdf.fill(1.f);
  block->weight.fill(0.f);
  for (auto& c : block->bgr) c = {0, 0, 0};
  block->key = key;
  return block;
}

int TsdfVolume::adopt(std::unique_ptr<VoxelBlock> block) {
  const GridKey& key = block->key;
  const GridKey chunk_key{floorDiv(key.x, chunk_blocks_), floorDiv(key.y, chunk_blocks_),
                          floorDiv(key.z, chunk_blocks_)};
  auto cit = chunk_index_.find(chunk_key);
  if (cit == chunk_index_.end()) {
    cit = chunk_index_.emplace(chunk_key, int(chunks_.size())).first;
    chunks_.push_back(ChunkInfo{chunk_key, {}, false, 0});
  }
  block->chunk = cit->second;
  const int index = int(blocks_.size());
  chunks_[size_t(cit->second)].blocks.push_back(index);
  block_index_.emplace(key, index);
  blocks_.push_back(std::move(block));
  return index;
}

void TsdfVolume::collectBlocks(const DepthFrame& f, std::vector<int>& existing, std::vector<GridKey>& fresh) {
  BandView view;
  view.fx = f.fx;
  view.fy = f.fy;
  view.cx = f.cx;
  view.cy = f.cy;
  view.R_world_camera = f.T_world_camera.topLeftCorner<3, 3>();
  view.t_world_camera = f.T_world_camera.topRightCorner<3, 1>();
  view.voxel_m = p_.voxel_m;
  view.truncation_m = p_.truncation_vox * p_.voxel_m;
  view.min_depth_m = p_.min_depth_m;
  view.max_depth_m = p_.max_depth_m;
  view.edge_jump = p_.edge_jump;
  view.max_confidence = p_.max_confidence;
  view.weigh_by_confidence = p_.weigh_by_confidence;
  band_.compute(f.depth_m, f.confidence, view, band_keys_);
  existing.clear();
  fresh.clear();
  for (const uint64_t packed : band_keys_) {
    GridKey key;
    unpackBlockKey(packed, key.x, key.y, key.z);
    const auto it = block_index_.find(key);
    if (it != block_index_.end())
      existing.push_back(it->second);
    else
      fresh.push_back(key);
  }
}

int TsdfVolume::integrateBlock(VoxelBlock& b, const DepthFrame& f, const Eigen::Matrix3f& R_cw,
                               const Eigen::Vector3f& t_cw) const {
  const float vox = p_.voxel_m;
  const Eigen::Vector3f origin_w(float(b.key.x * kBlockSide) * vox, float(b.key.y * kBlockSide) * vox,
                                 float(b.key.z * kBlockSide) * vox);
  const Eigen::Vector3f origin_c = R_cw * origin_w + t_cw;
  const Eigen::Matrix3f steps = R_cw * vox;
  // Ray length over depth, nearly constant over one block: taken at its centre.
  const Eigen::Vector3f centre = origin_c + steps.rowwise().sum() * (0.5f * float(kBlockSide - 1));
  if (centre.z() <= 0.f) return 0;
  BlockProjection p;
  for (int c = 0; c < 3; ++c) {
    p.origin[c] = origin_c[c];
    for (int axis = 0; axis < 3; ++axis) p.step[axis][c] = steps(c, axis);
  }
  p.fx = float(f.fx);
  p.fy = float(f.fy);
  p.cx = float(f.cx);
  p.cy = float(f.cy);
  p.width = band_.width();
  p.height = band_.height();
  p.outside = band_.outsideIndex();
  p.scale = centre.norm() / centre.z() * (1.f / (p_.truncation_vox * vox));
  // The measurement's noise weight, at the block's depth (the band is thin against the depth).
  p.weight = noiseWeight(centre.z());
  p.max_weight = p_.max_weight;
  alignas(32) int pixel[kBlockVoxels];
  alignas(32) float rate[kBlockVoxels];
  const int updated = updateBlockVoxels(p, band_.depth(), band_.weights(), b.tsdf.data(), b.weight.data(), pixel, rate);
  if (f.bgr.empty()) return updated;
  const uint8_t* bgr_data = f.bgr.ptr<uint8_t>();
  for (int n = 0; n < kBlockVoxels; ++n) {
    if (rate[n] <= 0.f) continue;
    const uint8_t* c = bgr_data + 3 * pixel[n];
    auto& dst = b.bgr[size_t(n)];
    for (int ch = 0; ch < 3; ++ch)
      dst[size_t(ch)] = uint8_t(float(dst[size_t(ch)]) + rate[n] * (float(c[ch]) - float(dst[size_t(ch)])) + 0.5f);
  }
  return updated;
}

void TsdfVolume::markChanged(const VoxelBlock& b, uint64_t timestamp_ns) {
  auto mark = [&](int chunk) {
    ChunkInfo& c = chunks_[size_t(chunk)];
    c.dirty = true;
    c.last_change_ns = std::max(c.last_change_ns, timestamp_ns);
  };
  mark(b.chunk);
  // Cubes owned by the blocks at -1 along any axis read this block's voxels: when such a block
  // lies in another chunk, that chunk's mesh changes too.
  const int cb = chunk_blocks_;
  const bool edge_x = floorDiv(b.key.x, cb) * cb == b.key.x, edge_y = floorDiv(b.key.y, cb) * cb == b.key.y,
             edge_z = floorDiv(b.key.z, cb) * cb == b.key.z;
  if (!edge_x && !edge_y && !edge_z) return;
  for (int d = 1; d < 8; ++d) {
    const int dx = d & 1, dy = (d >> 1) & 1, dz = (d >> 2) & 1;
    if ((dx && !edge_x) || (dy && !edge_y) || (dz && !edge_z)) continue;
    const VoxelBlock* n = find({b.key.x - dx, b.key.y - dy, b.key.z - dz});
    if (n && n->chunk != b.chunk) mark(n->chunk);
  }
}

IntegrationStats TsdfVolume::integrate(const DepthFrame& input) {
  IntegrationStats stats;
  if (input.depth_m.empty() || input.depth_m.type() != CV_32F || !(input.fx > 0) || !(input.fy > 0) ||
      !std::isfinite(input.cx) || !std::isfinite(input.cy) || !input.T_world_camera.allFinite())
    return stats;
  // Colour is used when it matches the depth pixel for pixel.
  DepthFrame frame = input;
  if (!frame.confidence.empty() &&
      (frame.confidence.size() != frame.depth_m.size() || frame.confidence.type() != CV_32F))
    frame.confidence.release();
  if (!frame.bgr.empty() && (frame.bgr.size() != frame.depth_m.size() || frame.bgr.type() != CV_8UC3))
    frame.bgr.release();
  else if (!frame.bgr.isContinuous())
    frame.bgr = frame.bgr.clone();
  std::vector<int> band;
  std::vector<GridKey> fresh_keys;
  collectBlocks(frame, band, fresh_keys);
  const Eigen::Matrix3f R_cw = frame.T_world_camera.topLeftCorner<3, 3>().transpose();
  const Eigen::Vector3f t_cw = -R_cw * frame.T_world_camera.topRightCorner<3, 1>();
  // Blocks not in the volume yet are fused on the side and kept only where the frame updated a
  // voxel: the band's frusta are conservative, and a block they take in vain costs memory for
  // good.
  const size_t existing = band.size();
  std::vector<std::unique_ptr<VoxelBlock>> fresh(fresh_keys.size());
  tbb::parallel_for(tbb::blocked_range<size_t>(0, existing + fresh.size(), 16),
                    [&](const tbb::blocked_range<size_t>& r) {
                      for (size_t i = r.begin(); i != r.end(); ++i) {
                        if (i >= existing) {
                          auto block = freshBlock(fresh_keys[i - existing]);
                          if (integrateBlock(*block, frame, R_cw, t_cw) > 0) fresh[i - existing] = std::move(block);
                          continue;
                        }
                        // The next block's voxels come from memory while this one is fused.
                        if (i + 1 < std::min(r.end(), existing)) prefetchVoxels(*blocks_[size_t(band[i + 1])]);
                        integrateBlock(*blocks_[size_t(band[i])], frame, R_cw, t_cw);
                      }
                    });
  for (auto& block : fresh) {
    if (!block) continue;
    if (blocks_.size() >= max_blocks_) {
      ++stats.blocks_refused;
      continue;
    }
    band.push_back(adopt(std::move(block)));
    ++stats.blocks_allocated;
  }
  for (int index : band) markChanged(*blocks_[size_t(index)], frame.timestamp_ns);
  stats.blocks_updated = int(band.size());
  return stats;
}

}  // namespace pv::internal
