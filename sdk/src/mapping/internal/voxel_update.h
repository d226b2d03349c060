// The running-average update of one block's voxels from one depth image: the inner loop of the
// TSDF's integration.
#pragma once

namespace pv::internal {

/// One block of 8x8x8 voxels seen from one camera, in plain numbers. Camera frame, metres.
struct BlockProjection {
  float origin[3] = {0.f, 0.f, 0.f};  ///< centre of voxel (0, 0, 0)
  float step[3][3] = {};              ///< offset of one voxel along the block's i, j and k
  float fx = 0.f, fy = 0.f, cx = 0.f, cy = 0.f;
  int width = 0, height = 0;  ///< of the depth image
  int outside = 0;            ///< index of a 0 kept past the depth image's pixels
  float scale = 1.f;          ///< ray length over depth, over the truncation distance
  float weight = 1.f;         ///< the measurement's weight
  float max_weight = 100.f;   ///< cap of a voxel's weight
};

/// Fuses `depth` (continuous, 0 where not fused, `outside` addressing a 0) into the block's 512
/// voxels: signed distances in truncation units and weights, voxel (i, j, k) at i + 8 j + 64 k.
/// `pixel_weight` (laid out as `depth`, or null for 1 everywhere) scales each pixel's
/// measurement weight.
/// Writes per voxel the pixel it projects to (`outside` if none) and the rate at which its colour
/// follows that pixel (0: the voxel is not near the surface or was not updated). Returns the
/// number of voxels updated.
int updateBlockVoxels(const BlockProjection& p, const float* depth, const float* pixel_weight, float* tsdf,
                      float* weight, int* pixel, float* rate);

}  // namespace pv::internal
