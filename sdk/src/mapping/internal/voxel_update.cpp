#include "mapping/internal/voxel_update.h"

#include "mapping/internal/tsdf_volume.h"
#include "mapping/internal/wide_vectors.h"

namespace pv::internal {

PV_WIDE_VECTOR_CLONES
int updateBlockVoxels(const BlockProjection& p, const float* depth, const float* pixel_weight, float* tsdf,
                      float* weight, int* pixel, float* rate) {
  const float fw = float(p.width), fh = float(p.height);
  // Three passes, so that the projection and the update vectorise: the projection of each voxel,
  // the gather of the depth under it, the running averages.
  alignas(32) float zs[kBlockVoxels];
  for (int k = 0; k < kBlockSide; ++k) {
    for (int j = 0; j < kBlockSide; ++j) {
      float row[3];
      for (int c = 0; c < 3; ++c) row[c] = p.origin[c] + p.step[1][c] * float(j) + p.step[2][c] * float(k);
      const int row_start = kBlockSide * j + kBlockSide * kBlockSide * k;
      for (int i = 0; i < kBlockSide; ++i) {
        const float x = row[0] + p.step[0][0] * float(i), y = row[1] + p.step[0][1] * float(i),
                    z = row[2] + p.step[0][2] * float(i);
        const float inv_z = 1.f / z;
        const float u = p.fx * x * inv_z + p.cx + 0.5f, v = p.fy * y * inv_z + p.cy + 0.5f;
        const bool inside = (z > 0.f) & (u >= 0.f) & (v >= 0.f) & (u < fw) & (v < fh);
        zs[row_start + i] = z;
        pixel[row_start + i] = inside ? int(v) * p.width + int(u) : p.outside;
      }
    }
  }
  alignas(32) float ds[kBlockVoxels], ws[kBlockVoxels];
  for (int n = 0; n < kBlockVoxels; ++n) ds[n] = depth[pixel[n]];
  if (pixel_weight)
    for (int n = 0; n < kBlockVoxels; ++n) ws[n] = p.weight * pixel_weight[pixel[n]];
  else
    for (int n = 0; n < kBlockVoxels; ++n) ws[n] = p.weight;
  const float max_weight = p.max_weight, scale = p.scale;
  int updated = 0;
  for (int n = 0; n < kBlockVoxels; ++n) {
    // Signed distance along the ray through the voxel, in truncation units.
    const float value = (ds[n] - zs[n]) * scale;
    // Free space seen again where only free space was seen: nothing to average. (Everything is
    // computed and then selected, so that the loop has no branch.)
    const bool settled = (value >= 1.f) & (tsdf[n] >= 1.f) & (weight[n] > 0.f);
    const float wn = ws[n];
    const bool update = (ds[n] > 0.f) & (wn > 0.f) & (value >= -1.f) & !settled;
    const float total = weight[n] + wn;
    const float ratio = total > 0.f ? wn / total : 0.f;
    const float a = update ? ratio : 0.f;
    const float clipped = value < 1.f ? value : 1.f;
    const float capped = total < max_weight ? total : max_weight;
    tsdf[n] += a * (clipped - tsdf[n]);
    weight[n] += update ? capped - weight[n] : 0.f;
    // Colour follows the surface only: the rate near it, 0 elsewhere.
    rate[n] = value < 1.f ? a : 0.f;
    updated += int(update);
  }
  return updated;
}

}  // namespace pv::internal
