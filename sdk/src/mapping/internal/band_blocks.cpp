#include "mapping/internal/band_blocks.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "mapping/internal/tsdf_volume.h"

namespace pv::internal {

namespace {

size_t slotOf(uint64_t key, size_t mask) {
  const uint64_t h = key * 0x9E3779B97F4A7C15ull;
  return size_t(h ^ (h >> 32)) & mask;
}

constexpr int kTile = 8;

/// Walks the tiles of one row of tiles and appends the keys of the blocks their frusta meet.
class TileVisitor {
 public:
  TileVisitor(const cv::Mat& depth, const BandView& view, std::vector<uint64_t>& out)
      : depth_(depth), view_(view), out_(out), R_(view.R_world_camera), t_(view.t_world_camera) {
    inv_vox_ = 1.f / view.voxel_m;
    // A tile is split when its depths spread over more than the band's half width.
    split_m_ = view.truncation_m;
    recent_.fill(~uint64_t(0));
  }

  void visit(int u0, int v0, int size) {
    const int u1 = std::min(u0 + size, depth_.cols) - 1, v1 = std::min(v0 + size, depth_.rows) - 1;
    const float inf = std::numeric_limits<float>::infinity();
    float lo = inf, hi = 0.f;
    for (int v = v0; v <= v1; ++v) {
      const float* row = depth_.ptr<float>(v);
      for (int u = u0; u <= u1; ++u) {
        const float d = row[u];
        lo = std::min(lo, d > 0.f ? d : inf);
        hi = std::max(hi, d);
      }
    }
    if (!(hi > 0.f)) return;
    if (size > 1 && hi - lo > split_m_) {
      const int half = size / 2;
      for (int q = 0; q < 4; ++q) {
        const int qu = u0 + (q & 1) * half, qv = v0 + (q >> 1) * half;
        if (qu < depth_.cols && qv < depth_.rows) visit(qu, qv, half);
      }
      return;
    }
    emit(u0, u1, v0, v1, lo - view_.truncation_m, hi + view_.truncation_m);
  }

 private:
  /// Blocks meeting the frustum of pixels [u0, u1] x [v0, v1] between depths z_near and z_far.
  void emit(int u0, int u1, int v0, int v1, float z_near, float z_far) {
    // A voxel centre lands on pixel u when fx x / z + cx + 0.5 lies in [u, u + 1); a small margin
    // covers the rounding of the projection.
    constexpr float kPixelMargin = 0.01f, kDepthMargin = 1e-4f;
    const float xa = float((u0 - 0.5 - kPixelMargin - view_.cx) / view_.fx);
    const float xb = float((u1 + 0.5 + kPixelMargin - view_.cx) / view_.fx);
    const float ya = float((v0 - 0.5 - kPixelMargin - view_.cy) / view_.fy);
    const float yb = float((v1 + 0.5 + kPixelMargin - view_.cy) / view_.fy);
    z_near = std::max(z_near - kDepthMargin, 1e-3f);
    z_far += kDepthMargin;
    const Eigen::Vector3f dirs[4] = {R_ * Eigen::Vector3f(xa, ya, 1.f), R_ * Eigen::Vector3f(xb, ya, 1.f),
                                     R_ * Eigen::Vector3f(xa, yb, 1.f), R_ * Eigen::Vector3f(xb, yb, 1.f)};
    Eigen::Vector3f lo = t_ + dirs[0] * z_near, hi = lo;
    for (const Eigen::Vector3f& d : dirs)
      for (const float z : {z_near, z_far}) {
        const Eigen::Vector3f p = t_ + d * z;
        lo = lo.cwiseMin(p);
        hi = hi.cwiseMax(p);
      }
    // Voxel centres (integer multiples of the voxel) inside the box, then their blocks.
    constexpr float kIndexMargin = 1e-4f;
    int ilo[3], ihi[3], blo[3], bhi[3];
    for (int a = 0; a < 3; ++a) {
      ilo[a] = int(std::ceil(lo[a] * inv_vox_ - kIndexMargin));
      ihi[a] = int(std::floor(hi[a] * inv_vox_ + kIndexMargin));
      if (ilo[a] > ihi[a]) return;
      blo[a] = floorDiv(ilo[a], kBlockSide);
      bhi[a] = floorDiv(ihi[a], kBlockSide);
    }
    if (blo[0] == bhi[0] && blo[1] == bhi[1] && blo[2] == bhi[2]) {
      push(packBlockKey(blo[0], blo[1], blo[2]));
      return;
    }
    // Several blocks: keep those not separated from the frustum by one of its six planes
    // (n . p + offset >= 0 inside), in the world frame.
    Eigen::Vector3f normals[6];
    float offsets[6];
    const Eigen::Vector3f camera_normals[6] = {{1.f, 0.f, -xa}, {-1.f, 0.f, xb}, {0.f, 1.f, -ya},
                                               {0.f, -1.f, yb}, {0.f, 0.f, 1.f}, {0.f, 0.f, -1.f}};
    const float camera_offsets[6] = {0.f, 0.f, 0.f, 0.f, -z_near, z_far};
    for (int n = 0; n < 6; ++n) {
      normals[n] = R_ * camera_normals[n];
      offsets[n] = camera_offsets[n] - normals[n].dot(t_);
    }
    const float vox = view_.voxel_m;
    for (int bz = blo[2]; bz <= bhi[2]; ++bz)
      for (int by = blo[1]; by <= bhi[1]; ++by)
        for (int bx = blo[0]; bx <= bhi[0]; ++bx) {
          const int b[3] = {bx, by, bz};
          Eigen::Vector3f box_lo, box_hi;
          for (int a = 0; a < 3; ++a) {
            box_lo[a] = float(std::max(ilo[a], b[a] * kBlockSide)) * vox;
            box_hi[a] = float(std::min(ihi[a], b[a] * kBlockSide + kBlockSide - 1)) * vox;
          }
          bool separated = false;
          for (int n = 0; n < 6 && !separated; ++n) {
            const Eigen::Vector3f& nn = normals[n];
            const Eigen::Vector3f far_corner(nn.x() > 0.f ? box_hi.x() : box_lo.x(),
                                             nn.y() > 0.f ? box_hi.y() : box_lo.y(),
                                             nn.z() > 0.f ? box_hi.z() : box_lo.z());
            separated = nn.dot(far_corner) + offsets[n] < -1e-5f;
          }
          if (!separated) push(packBlockKey(bx, by, bz));
        }
  }

  /// Appends a key unless it was among the last few seen (neighbouring tiles share blocks).
  void push(uint64_t key) {
    uint64_t& slot = recent_[slotOf(key, recent_.size() - 1)];
    if (slot == key) return;
    slot = key;
    out_.push_back(key);
  }

  const cv::Mat& depth_;
  const BandView& view_;
  std::vector<uint64_t>& out_;
  const Eigen::Matrix3f R_;
  const Eigen::Vector3f t_;
  float inv_vox_ = 1.f, split_m_ = 0.f;
  std::array<uint64_t, 32> recent_;
};

}  // namespace

bool BlockKeySet::insert(uint64_t key) {
  if (2 * (size_ + 1) > slots_.size()) grow();
  const size_t mask = slots_.size() - 1;
  for (size_t i = slotOf(key, mask);; i = (i + 1) & mask) {
    if (slots_[i] == key) return false;
    if (slots_[i] == kEmpty) {
      slots_[i] = key;
      ++size_;
      return true;
    }
  }
}

void BlockKeySet::clear() {
  std::fill(slots_.begin(), slots_.end(), kEmpty);
  size_ = 0;
}

void BlockKeySet::grow() {
  std::vector<uint64_t> previous(slots_.size() * 2, kEmpty);
  previous.swap(slots_);
  size_ = 0;
  for (uint64_t key : previous)
    if (key != kEmpty) insert(key);
}

void BandBlockFinder::find(const cv::Mat& depth_m, const BandView& view, std::vector<uint64_t>& keys) {
  const int tiles_x = (depth_m.cols + kTile - 1) / kTile, tiles_y = (depth_m.rows + kTile - 1) / kTile;
  tile_rows_.resize(size_t(tiles_y));
  tbb::parallel_for(tbb::blocked_range<int>(0, tiles_y), [&](const tbb::blocked_range<int>& r) {
    for (int ty = r.begin(); ty < r.end(); ++ty) {
      std::vector<uint64_t>& out = tile_rows_[size_t(ty)];
      out.clear();
      TileVisitor visitor(depth_m, view, out);
      for (int tx = 0; tx < tiles_x; ++tx) visitor.visit(tx * kTile, ty * kTile, kTile);
    }
  });
  seen_.clear();
  keys.clear();
  for (const std::vector<uint64_t>& row : tile_rows_)
    for (uint64_t key : row)
      if (seen_.insert(key)) keys.push_back(key);
}

}  // namespace pv::internal
