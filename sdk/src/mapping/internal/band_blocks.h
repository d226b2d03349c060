// The depth a frame fuses (unusable pixels set to 0) and the voxel blocks it updates: those
// holding a voxel centre that projects onto a fused pixel and lies within the truncation band of
// that pixel's depth.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace pv::internal {

/// Block coordinates packed into 63 bits (21 bits per axis, two's complement); ~0 is never a key.
inline uint64_t packBlockKey(int x, int y, int z) {
  constexpr uint64_t kMask = (uint64_t(1) << 21) - 1;
  return (uint64_t(uint32_t(x)) & kMask) | ((uint64_t(uint32_t(y)) & kMask) << 21) |
         ((uint64_t(uint32_t(z)) & kMask) << 42);
}
inline void unpackBlockKey(uint64_t key, int& x, int& y, int& z) {
  // Shift each field to the top of a signed 64-bit value and back: sign extension.
  x = int(int64_t(key << 43) >> 43);
  y = int(int64_t(key << 22) >> 43);
  z = int(int64_t(key << 1) >> 43);
}

/// Set of packed block keys: open addressing, linear probing; cleared in time proportional to its
/// capacity, so that it can be reused from frame to frame.
class BlockKeySet {
 public:
  /// True when `key` was not in the set yet.
  bool insert(uint64_t key);
  void clear();
  size_t size() const { return size_; }

 private:
  void grow();
  static constexpr uint64_t kEmpty = ~uint64_t(0);
  std::vector<uint64_t> slots_ = std::vector<uint64_t>(4096, kEmpty);
  size_t size_ = 0;
};

/// One frame's view and what of its depth is fused, in metres.
struct BandView {
  double fx = 0, fy = 0, cx = 0, cy = 0;
  Eigen::Matrix3f R_world_camera = Eigen::Matrix3f::Identity();
  Eigen::Vector3f t_world_camera = Eigen::Vector3f::Zero();
  float voxel_m = 0.05f;
  float truncation_m = 0.2f;
  float min_depth_m = 0.f, max_depth_m = 5.f;
  float edge_jump = 0.04f;           ///< depth step to a 4-neighbour, relative, that marks a depth edge
  float max_confidence = 100.f;      ///< pixels of a higher confidence value are not fused
  bool weigh_by_confidence = false;  ///< each fused pixel's weight from its confidence (weights())
};

/// Works in rows of 8x8-pixel tiles, in parallel: filters the rows, then takes each tile's
/// frustum between its nearest depth minus the truncation and its farthest plus the truncation,
/// which contains the band of all its pixels, and the blocks whose voxel centres meet it. A tile
/// whose depths spread over more than the truncation is split in four, down to single pixels, so
/// that a depth edge does not fill the free space between its sides; neighbouring tiles of
/// nearly one depth share one frustum. Conservative: no block of the band is missed.
class DepthBand {
 public:
  /// `depth_m`: CV_32F, NaN or 0 where invalid; `confidence`: CV_32F of its size (1 sure .. 100
  /// unsure) or empty. `keys`: packed keys of the blocks, each once, in an order that depends on the
  /// frame only.
  void compute(const cv::Mat& depth_m, const cv::Mat& confidence, const BandView& view, std::vector<uint64_t>& keys);
  /// The fused depth of the last frame: 0 at every pixel that is not fused (invalid, out of range,
  /// on a depth edge, too doubtful, or in the outermost columns), continuous, followed by one more 0 that
  /// `outsideIndex()` addresses.
  const float* depth() const { return buffer_.data(); }
  /// With BandView::weigh_by_confidence, each pixel's measurement weight (1 for a sure pixel, less
  /// the higher its confidence value), laid out as depth(); else null.
  const float* weights() const { return weights_.empty() ? nullptr : weights_.data(); }
  int width() const { return width_; }
  int height() const { return height_; }
  int outsideIndex() const { return width_ * height_; }

 private:
  void filterRows(const cv::Mat& depth_m, const cv::Mat& confidence, const BandView& view, int v0, int v1,
                  float* column_lo, float* column_hi);

  std::vector<float> buffer_;
  std::vector<float> weights_;
  int width_ = 0, height_ = 0;
  std::vector<std::vector<uint64_t>> tile_rows_;  ///< keys found per row of tiles
  BlockKeySet seen_;
};

}  // namespace pv::internal
