#include "mapping/internal/tsdf_volume.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace pv::internal {

namespace {

/// Inverse variance of stereo-like depth noise (sigma grows with z^2), 1 at one metre, bounded so
/// that very near pixels cannot freeze the average.
float noiseWeight(float z) {
  const float zz = std::max(z, 0.4f);
  return 1.f / (zz * zz * zz * zz);
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

int TsdfVolume::allocate(const GridKey& key) {
  auto it = block_index_.find(key);
  if (it != block_index_.end()) return it->second;
  if (blocks_.size() >= max_blocks_) return -1;
  auto block = std::make_unique<VoxelBlock>();
  block->tsdf.fill(1.f);
  block->weight.fill(0.f);
  for (auto& c : block->bgr) c = {0, 0, 0};
  block->key = key;
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
  blocks_.push_back(std::move(block));
  block_index_.emplace(key, index);
  return index;
}

void TsdfVolume::collectBlocks(const DepthFrame& f, std::vector<int>& out, IntegrationStats& stats) {
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
  band_.compute(f.depth_m, view, band_keys_);
  out.clear();
  out.reserve(band_keys_.size());
  for (const uint64_t packed : band_keys_) {
    GridKey key;
    unpackBlockKey(packed, key.x, key.y, key.z);
    const size_t before = blocks_.size();
    const int index = allocate(key);
    if (index < 0) {
      ++stats.blocks_refused;
      continue;
    }
    if (blocks_.size() > before) ++stats.blocks_allocated;
    out.push_back(index);
  }
}

void TsdfVolume::integrateBlock(VoxelBlock& b, const DepthFrame& f, const Eigen::Matrix3f& R_cw,
                                const Eigen::Vector3f& t_cw) const {
  const float vox = p_.voxel_m;
  const float inv_trunc = 1.f / (p_.truncation_vox * vox);
  const float fx = float(f.fx), fy = float(f.fy), cx = float(f.cx), cy = float(f.cy);
  const int w = band_.width(), h = band_.height();
  const bool colour = !f.bgr.empty();
  const Eigen::Vector3f origin_w(float(b.key.x * kBlockSide) * vox, float(b.key.y * kBlockSide) * vox,
                                 float(b.key.z * kBlockSide) * vox);
  const Eigen::Vector3f origin_c = R_cw * origin_w + t_cw;
  const Eigen::Vector3f ax = R_cw.col(0) * vox, ay = R_cw.col(1) * vox, az = R_cw.col(2) * vox;
  // Ray length over depth, nearly constant over one block: taken at its centre.
  const Eigen::Vector3f centre = origin_c + (ax + ay + az) * (0.5f * float(kBlockSide - 1));
  if (centre.z() <= 0.f) return;
  const float along_ray = centre.norm() / centre.z();
  const float scale = along_ray * inv_trunc;
  // The measurement's noise weight, at the block's depth (the band is thin against the depth).
  const float wn = noiseWeight(centre.z());
  const float fw = float(w), fh = float(h);
  const float max_weight = p_.max_weight;
  const float* depth_data = band_.depth();
  const int outside = band_.outsideIndex();
  // Three passes over the block's voxels, so that the projection and the update vectorise: the
  // projection, the gather of the depth under each voxel, the running averages.
  alignas(32) float zs[kBlockVoxels];
  alignas(32) int pixel[kBlockVoxels];
  for (int k = 0; k < kBlockSide; ++k) {
    for (int j = 0; j < kBlockSide; ++j) {
      const Eigen::Vector3f row = origin_c + ay * float(j) + az * float(k);
      const int row_start = kBlockSide * j + kBlockSide * kBlockSide * k;
      for (int i = 0; i < kBlockSide; ++i) {
        const float x = row.x() + ax.x() * float(i), y = row.y() + ax.y() * float(i), z = row.z() + ax.z() * float(i);
        const float inv_z = 1.f / z;
        const float u = fx * x * inv_z + cx + 0.5f, v = fy * y * inv_z + cy + 0.5f;
        const bool inside = (z > 0.f) & (u >= 0.f) & (v >= 0.f) & (u < fw) & (v < fh);
        zs[row_start + i] = z;
        pixel[row_start + i] = inside ? int(v) * w + int(u) : outside;
      }
    }
  }
  alignas(32) float ds[kBlockVoxels];
  for (int n = 0; n < kBlockVoxels; ++n) ds[n] = depth_data[pixel[n]];
  alignas(32) float rate[kBlockVoxels];
  float* T = b.tsdf.data();
  float* W = b.weight.data();
  for (int n = 0; n < kBlockVoxels; ++n) {
    // Signed distance along the ray through the voxel, in truncation units.
    const float value = (ds[n] - zs[n]) * scale;
    // Free space seen again where only free space was seen: nothing to average. (Everything is
    // computed and then selected, so that the loop has no branch and vectorises.)
    const bool settled = (value >= 1.f) & (T[n] >= 1.f) & (W[n] > 0.f);
    const bool update = (ds[n] > 0.f) & (value >= -1.f) & !settled;
    const float total = W[n] + wn;
    const float ratio = wn / total;
    const float a = update ? ratio : 0.f;
    const float clipped = value < 1.f ? value : 1.f;
    const float capped = total < max_weight ? total : max_weight;
    T[n] += a * (clipped - T[n]);
    W[n] += update ? capped - W[n] : 0.f;
    // Colour follows the surface only: the rate near it, 0 elsewhere.
    rate[n] = value < 1.f ? a : 0.f;
  }
  if (!colour) return;
  const uint8_t* bgr_data = f.bgr.ptr<uint8_t>();
  for (int n = 0; n < kBlockVoxels; ++n) {
    if (rate[n] <= 0.f) continue;
    const uint8_t* c = bgr_data + 3 * pixel[n];
    auto& dst = b.bgr[size_t(n)];
    for (int ch = 0; ch < 3; ++ch)
      dst[size_t(ch)] = uint8_t(float(dst[size_t(ch)]) + rate[n] * (float(c[ch]) - float(dst[size_t(ch)])) + 0.5f);
  }
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
  if (input.depth_m.empty() || input.depth_m.type() != CV_32F || input.fx <= 0 || input.fy <= 0) return stats;
  // Colour is used when it matches the depth pixel for pixel.
  DepthFrame frame = input;
  if (!frame.bgr.empty() && (frame.bgr.size() != frame.depth_m.size() || frame.bgr.type() != CV_8UC3))
    frame.bgr.release();
  else if (!frame.bgr.isContinuous())
    frame.bgr = frame.bgr.clone();
  std::vector<int> band;
  collectBlocks(frame, band, stats);
  const Eigen::Matrix3f R_cw = frame.T_world_camera.topLeftCorner<3, 3>().transpose();
  const Eigen::Vector3f t_cw = -R_cw * frame.T_world_camera.topRightCorner<3, 1>();
  tbb::parallel_for(tbb::blocked_range<size_t>(0, band.size(), 16), [&](const tbb::blocked_range<size_t>& r) {
    for (size_t i = r.begin(); i != r.end(); ++i) integrateBlock(*blocks_[size_t(band[i])], frame, R_cw, t_cw);
  });
  for (int index : band) markChanged(*blocks_[size_t(index)], frame.timestamp_ns);
  stats.blocks_updated = int(band.size());
  return stats;
}

}  // namespace pv::internal
