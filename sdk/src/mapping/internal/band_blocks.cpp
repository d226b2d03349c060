#include "mapping/internal/band_blocks.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "mapping/internal/tsdf_volume.h"
#include "mapping/internal/wide_vectors.h"

namespace pv::internal {

namespace {

static_assert(kBlockSide == 8, "block coordinates of a voxel index are taken with a shift by 3");
constexpr int kTile = 8;

/// Slot of a key in a power-of-two table: the key's bits mixed (a multiply-xorshift finaliser),
/// so that the low bits depend on all three coordinates.
size_t slotOf(uint64_t key, size_t mask) {
  uint64_t h = key ^ (key >> 33);
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  return size_t(h) & mask;
}

/// Voxel indices stay within what a packed key holds (21 bits of blocks per axis), and clear of
/// undefined conversions for absurd poses.
constexpr float kIndexLimit = 8.0e6f;

int floorToInt(float x) {
  x = std::clamp(x, -kIndexLimit, kIndexLimit);
  const int i = int(x);
  return i - int(x < float(i));
}
int ceilToInt(float x) {
  x = std::clamp(x, -kIndexLimit, kIndexLimit);
  const int i = int(x);
  return i + int(x > float(i));
}

/// Nearest and farthest of fused depths (0: not fused).
struct DepthRange {
  float lo = std::numeric_limits<float>::infinity(), hi = 0.f;

  void add(const float* d, int n) {
    float l = lo, h = hi;  // (locals: no round trip through memory per element)
    for (int i = 0; i < n; ++i) {
      l = std::min(l, d[i] > 0.f ? d[i] : l);
      h = std::max(h, d[i]);
    }
    lo = l;
    hi = h;
  }
  bool empty() const { return !(hi > 0.f); }
};

/// One row of the fused depth: 0 where the depth is invalid, out of range or on a depth edge (a
/// pixel that jumps from a 4-neighbour by more than a few percent of its depth mixes two
/// surfaces), and in the first and last columns. Comparisons with NaN are false, so invalid
/// pixels and neighbours drop out without tests; the masks combine with & so that the loop has no
/// branch and vectorises. Per column, the nearest and farthest fused depth so far come along.
PV_WIDE_VECTOR_CLONES
void filterDepthRow(const float* src, const float* up, const float* down, const float* confidence, int cols,
                    const BandView& view, float* dst, float* weight, float* column_lo, float* column_hi) {
  const float min_m = view.min_depth_m, max_m = view.max_depth_m, jump = view.edge_jump;
  const float max_confidence = view.max_confidence;
  dst[0] = 0.f;
  dst[cols - 1] = 0.f;
  for (int u = 1; u + 1 < cols; ++u) {
    const float d = src[u], limit = jump * d;
    const float l = src[u - 1], rt = src[u + 1], a = up[u], b = down[u];
    const bool ok = (d >= min_m) & (d <= max_m) & (d > 0.f);
    const bool edge = ((l > 0.f) & (std::fabs(l - d) > limit)) | ((rt > 0.f) & (std::fabs(rt - d) > limit)) |
                      ((a > 0.f) & (std::fabs(a - d) > limit)) | ((b > 0.f) & (std::fabs(b - d) > limit));
    dst[u] = (ok & !edge) ? d : 0.f;
  }
  if (confidence) {
    // Too doubtful a pixel is not fused (a NaN confidence is no doubt); a fused one weighs the less
    // the more it is doubted.
    for (int u = 0; u < cols; ++u) dst[u] = confidence[u] > max_confidence ? 0.f : dst[u];
    if (weight)
      for (int u = 0; u < cols; ++u) {
        const float c = confidence[u] == confidence[u] ? std::clamp(confidence[u], 1.f, 100.f) : 1.f;
        const float sure = (100.f - c) * (1.f / 99.f);
        weight[u] = sure * sure;
      }
  } else if (weight) {
    for (int u = 0; u < cols; ++u) weight[u] = 1.f;
  }
  for (int u = 0; u < cols; ++u) {
    const float fused = dst[u];
    column_lo[u] = (fused > 0.f) & (fused < column_lo[u]) ? fused : column_lo[u];
    column_hi[u] = fused > column_hi[u] ? fused : column_hi[u];
  }
}

/// Walks the tiles of one row of tiles and appends the keys of the blocks their frusta meet.
class TileVisitor {
 public:
  TileVisitor(const float* depth, int width, int height, const BandView& view, std::vector<uint64_t>& out)
      : depth_(depth), width_(width), height_(height), out_(out) {
    for (int a = 0; a < 3; ++a) {
      c0_[a] = view.R_world_camera(a, 0);
      c1_[a] = view.R_world_camera(a, 1);
      c2_[a] = view.R_world_camera(a, 2);
      t_[a] = view.t_world_camera[a];
    }
    c0t_ = c0_[0] * t_[0] + c0_[1] * t_[1] + c0_[2] * t_[2];
    c1t_ = c1_[0] * t_[0] + c1_[1] * t_[1] + c1_[2] * t_[2];
    c2t_ = c2_[0] * t_[0] + c2_[1] * t_[1] + c2_[2] * t_[2];
    // A voxel centre lands on pixel u when fx x / z + cx + 0.5 lies in [u, u + 1): the frustum
    // of pixels u0..u1 spans x / z in [(u0 - 0.5 - cx) / fx, (u1 + 0.5 - cx) / fx], widened by a
    // small margin that covers the rounding of the projection.
    constexpr double kPixelMargin = 0.01;
    inv_fx_ = float(1.0 / view.fx);
    inv_fy_ = float(1.0 / view.fy);
    x_before_ = float((-0.5 - kPixelMargin - view.cx) / view.fx);
    x_after_ = float((0.5 + kPixelMargin - view.cx) / view.fx);
    y_before_ = float((-0.5 - kPixelMargin - view.cy) / view.fy);
    y_after_ = float((0.5 + kPixelMargin - view.cy) / view.fy);
    vox_ = view.voxel_m;
    inv_vox_ = 1.f / view.voxel_m;
    trunc_m_ = view.truncation_m;
    // A block centre lies within this of each of its voxel centres (3.5 voxels along each axis).
    centre_offset_m_ = 0.5f * float(kBlockSide - 1) * std::sqrt(3.f) * view.voxel_m * 1.001f;
    // Runs of tiles merge while their depths spread over at most half the truncation: wider
    // spreads would take blocks off the band where the surface slants.
    merge_m_ = 0.5f * trunc_m_;
    // ... and while the run stays narrower than half a block at its far end.
    run_width_ = 0.5f * float(kBlockSide) * view.voxel_m * float(view.fx);
    recent_.fill(~uint64_t(0));
  }

  /// The tiles of one row of tiles, left to right. Neighbours whose depths together spread over
  /// little make one wider frustum: fewer frusta, nearly the same blocks.
  void visitInRow(int u0, int v0, const DepthRange& range) {
    const bool flat = !range.empty() && range.hi - range.lo <= merge_m_;
    const float far_m = std::max(run_.hi, range.hi) + trunc_m_;
    if (flat && run_tiles_ > 0 && float(u0 + kTile - run_u0_) * far_m <= run_width_ &&
        far_m - trunc_m_ - std::min(run_.lo, range.lo) <= merge_m_) {
      run_.lo = std::min(run_.lo, range.lo);
      run_.hi = std::max(run_.hi, range.hi);
      run_u1_ = std::min(u0 + kTile, width_) - 1;
      ++run_tiles_;
      return;
    }
    flush();
    if (!flat) {
      visit(u0, v0, kTile, range);
      return;
    }
    run_ = range;
    run_u0_ = u0;
    run_u1_ = std::min(u0 + kTile, width_) - 1;
    run_v0_ = v0;
    run_tiles_ = 1;
  }
  /// Ends the current run of tiles.
  void flush() {
    if (run_tiles_ > 0) emit(run_u0_, run_u1_, run_v0_, std::min(run_v0_ + kTile, height_) - 1, run_.lo, run_.hi);
    run_tiles_ = 0;
  }

  /// The tile of `size` pixels at (u0, v0) and the range of its depths.
  void visit(int u0, int v0, int size, const DepthRange& range) {
    if (range.empty()) return;
    const float lo = range.lo, hi = range.hi;
    const int u1 = std::min(u0 + size, width_) - 1, v1 = std::min(v0 + size, height_) - 1;
    if (size == 1 || hi - lo <= trunc_m_) {
      emit(u0, u1, v0, v1, lo, hi);
      return;
    }
    const int half = size / 2;
    for (int q = 0; q < 4; ++q) {
      const int qu = u0 + (q & 1) * half, qv = v0 + (q >> 1) * half;
      if (qu >= width_ || qv >= height_) continue;
      DepthRange quarter;
      const int n = std::min(half, width_ - qu);
      for (int v = qv; v < std::min(qv + half, height_); ++v) quarter.add(depth_ + size_t(v) * size_t(width_) + qu, n);
      visit(qu, qv, half, quarter);
    }
  }

 private:
  /// Blocks meeting the band of pixels [u0, u1] x [v0, v1] whose depths lie within [lo, hi].
  void emit(int u0, int u1, int v0, int v1, float lo, float hi) {
    const float xa = float(u0) * inv_fx_ + x_before_, xb = float(u1) * inv_fx_ + x_after_;
    const float ya = float(v0) * inv_fy_ + y_before_, yb = float(v1) * inv_fy_ + y_after_;
    const float band_m = bandHalfWidth(xa, xb, ya, yb, lo - trunc_m_);
    constexpr float kDepthMargin = 1e-4f, kIndexMargin = 1e-4f;
    const float zn = std::max(lo - band_m - kDepthMargin, 1e-3f), zf = hi + band_m + kDepthMargin;
    // Bounding box of the frustum's corners t + z (x c0 + y c1 + c2): per axis, the extremes of
    // the direction times the nearer or the farther depth. Then the voxel indices inside it.
    int ilo[3], ihi[3];
    for (int a = 0; a < 3; ++a) {
      const float x0 = xa * c0_[a], x1 = xb * c0_[a], y0 = ya * c1_[a], y1 = yb * c1_[a];
      const float dmin = std::min(x0, x1) + std::min(y0, y1) + c2_[a];
      const float dmax = std::max(x0, x1) + std::max(y0, y1) + c2_[a];
      const float lo = t_[a] + std::min(dmin * zn, dmin * zf), hi = t_[a] + std::max(dmax * zn, dmax * zf);
      ilo[a] = ceilToInt(lo * inv_vox_ - kIndexMargin);
      ihi[a] = floorToInt(hi * inv_vox_ + kIndexMargin);
      if (ilo[a] > ihi[a]) return;
    }
    const int blo[3] = {ilo[0] >> 3, ilo[1] >> 3, ilo[2] >> 3}, bhi[3] = {ihi[0] >> 3, ihi[1] >> 3, ihi[2] >> 3};
    const int spanning = int(blo[0] != bhi[0]) + int(blo[1] != bhi[1]) + int(blo[2] != bhi[2]);
    if (spanning <= 1) {
      // The frustum is convex: crossing block faces along one axis only, it meets every block
      // of that row.
      for (int bz = blo[2]; bz <= bhi[2]; ++bz)
        for (int by = blo[1]; by <= bhi[1]; ++by)
          for (int bx = blo[0]; bx <= bhi[0]; ++bx) push(packBlockKey(bx, by, bz));
      return;
    }
    // Otherwise keep the blocks whose voxel centres (within the box) are not all outside one of
    // the frustum's six planes, n . p + offset >= 0 inside, in the world frame. Blocks taken
    // lately (neighbouring tiles share most of theirs) need no test.
    float n[6][3], offset[6];
    for (int a = 0; a < 3; ++a) {
      n[0][a] = c0_[a] - xa * c2_[a];
      n[1][a] = xb * c2_[a] - c0_[a];
      n[2][a] = c1_[a] - ya * c2_[a];
      n[3][a] = yb * c2_[a] - c1_[a];
      n[4][a] = c2_[a];
      n[5][a] = -c2_[a];
    }
    offset[0] = xa * c2t_ - c0t_;
    offset[1] = c0t_ - xb * c2t_;
    offset[2] = ya * c2t_ - c1t_;
    offset[3] = c1t_ - yb * c2t_;
    offset[4] = -c2t_ - zn;
    offset[5] = c2t_ + zf;
    // The test's sum splits by axis: each loop adds its axis' share, the coordinate of the box's
    // corner farthest along the plane's normal.
    const auto bounds = [&](int a, int block, float& lo, float& hi) {
      lo = float(std::max(ilo[a], block * kBlockSide)) * vox_;
      hi = float(std::min(ihi[a], block * kBlockSide + kBlockSide - 1)) * vox_;
    };
    for (int bz = blo[2]; bz <= bhi[2]; ++bz) {
      float lz, hz;
      bounds(2, bz, lz, hz);
      float reach_z[6];
      for (int p = 0; p < 6; ++p) reach_z[p] = offset[p] + n[p][2] * (n[p][2] > 0.f ? hz : lz);
      for (int by = blo[1]; by <= bhi[1]; ++by) {
        float ly, hy;
        bounds(1, by, ly, hy);
        float reach_y[6];
        for (int p = 0; p < 6; ++p) reach_y[p] = reach_z[p] + n[p][1] * (n[p][1] > 0.f ? hy : ly);
        for (int bx = blo[0]; bx <= bhi[0]; ++bx) {
          const uint64_t key = packBlockKey(bx, by, bz);
          if (recent(key)) continue;
          float lx, hx;
          bounds(0, bx, lx, hx);
          bool inside = true;
          for (int p = 0; p < 6; ++p) inside &= reach_y[p] + n[p][0] * (n[p][0] > 0.f ? hx : lx) >= -1e-5f;
          if (inside) push(key);
        }
      }
    }
  }

  /// How far from a pixel's depth, in depth, the voxels it updates lie: the truncation over the
  /// ray length per depth at the voxel's block centre (the volume measures distances along that
  /// ray). Lower bound of that ray length over the frustum [xa, xb] x [ya, yb] (normalised
  /// coordinates) nearer than `z_min`: the angle to the optical axis of its ray nearest the axis,
  /// less the largest angle a block centre can lie off a voxel's ray.
  float bandHalfWidth(float xa, float xb, float ya, float yb, float z_min) const {
    const float x = std::clamp(0.f, xa, xb), y = std::clamp(0.f, ya, yb);
    const float tan2 = x * x + y * y;  // tan^2 of the angle to the axis
    if (!(z_min > centre_offset_m_)) return trunc_m_;
    const float sin_off = centre_offset_m_ / z_min;
    // angle > offset <=> sin^2 > sin_off^2, with sin^2 = tan^2 / (1 + tan^2)
    if (tan2 <= sin_off * sin_off * (1.f + tan2)) return trunc_m_;
    // cos(angle - offset) = (cos(offset) + tan sin(offset)) cos(angle)
    const float cos_off = std::sqrt(1.f - sin_off * sin_off);
    return trunc_m_ * (cos_off + std::sqrt(tan2) * sin_off) / std::sqrt(1.f + tan2);
  }

  /// Whether `key` was among the last few appended.
  bool recent(uint64_t key) const { return recent_[slotOf(key, recent_.size() - 1)] == key; }

  /// Appends a key unless it was among the last few seen (neighbouring tiles share blocks).
  void push(uint64_t key) {
    uint64_t& slot = recent_[slotOf(key, recent_.size() - 1)];
    if (slot == key) return;
    slot = key;
    out_.push_back(key);
  }

  const float* depth_;
  int width_, height_;
  std::vector<uint64_t>& out_;
  float c0_[3], c1_[3], c2_[3], t_[3];  // world directions of the camera's axes, its centre
  float c0t_, c1t_, c2t_;
  float inv_fx_, inv_fy_, x_before_, x_after_, y_before_, y_after_;
  float vox_, inv_vox_, trunc_m_;
  std::array<uint64_t, 256> recent_;
  float merge_m_ = 0.f, run_width_ = 0.f, centre_offset_m_ = 0.f;  // run_width_: pixels times metres of depth
  DepthRange run_;
  int run_u0_ = 0, run_u1_ = 0, run_v0_ = 0, run_tiles_ = 0;
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

void DepthBand::filterRows(const cv::Mat& depth_m, const cv::Mat& confidence, const BandView& view, int v0, int v1,
                           float* column_lo, float* column_hi) {
  for (int v = v0; v < v1; ++v) {
    const size_t row = size_t(v) * size_t(width_);
    filterDepthRow(depth_m.ptr<float>(v), depth_m.ptr<float>(std::max(v - 1, 0)),
                   depth_m.ptr<float>(std::min(v + 1, height_ - 1)),
                   confidence.empty() ? nullptr : confidence.ptr<float>(v), width_, view, buffer_.data() + row,
                   weights_.empty() ? nullptr : weights_.data() + row, column_lo, column_hi);
  }
}

void DepthBand::compute(const cv::Mat& depth_m, const cv::Mat& confidence, const BandView& view,
                        std::vector<uint64_t>& keys) {
  CV_Assert(confidence.empty() || (confidence.type() == CV_32F && confidence.size() == depth_m.size()));
  width_ = depth_m.cols;
  height_ = depth_m.rows;
  buffer_.resize(size_t(width_) * size_t(height_) + 1);
  buffer_.back() = 0.f;
  if (view.weigh_by_confidence) {
    weights_.resize(buffer_.size());
    weights_.back() = 0.f;
  } else {
    weights_.clear();
  }
  const int tiles_x = (width_ + kTile - 1) / kTile, tiles_y = (height_ + kTile - 1) / kTile;
  tile_rows_.resize(size_t(tiles_y));
  tbb::parallel_for(tbb::blocked_range<int>(0, tiles_y), [&](const tbb::blocked_range<int>& r) {
    for (int ty = r.begin(); ty < r.end(); ++ty) {
      const int v0 = ty * kTile, v1 = std::min(v0 + kTile, height_);
      std::vector<float> column_lo(size_t(width_), std::numeric_limits<float>::infinity());
      std::vector<float> column_hi(size_t(width_), 0.f);
      filterRows(depth_m, confidence, view, v0, v1, column_lo.data(), column_hi.data());
      std::vector<uint64_t>& out = tile_rows_[size_t(ty)];
      out.clear();
      TileVisitor visitor(buffer_.data(), width_, height_, view, out);
      for (int tx = 0; tx < tiles_x; ++tx) {
        const int u0 = tx * kTile, u1 = std::min(u0 + kTile, width_);
        float lo = column_lo[size_t(u0)], hi = column_hi[size_t(u0)];
        for (int u = u0 + 1; u < u1; ++u) {
          lo = std::min(lo, column_lo[size_t(u)]);
          hi = std::max(hi, column_hi[size_t(u)]);
        }
        DepthRange range;
        range.lo = lo;
        range.hi = hi;
        visitor.visitInRow(u0, v0, range);
      }
      visitor.flush();
    }
  });
  seen_.clear();
  keys.clear();
  for (const std::vector<uint64_t>& row : tile_rows_)
    for (uint64_t key : row)
      if (seen_.insert(key)) keys.push_back(key);
}

}  // namespace pv::internal
