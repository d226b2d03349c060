// Marching cubes over the blocks of one chunk of a TsdfVolume.
#pragma once

#include <Eigen/Core>
#include <array>
#include <cstdint>
#include <vector>

#include "mapping/internal/tsdf_volume.h"

namespace pv::internal {

/// Surface of one chunk, IMAGE frame, metres. Vertices are shared between the chunk's triangles;
/// triangles wind counter-clockwise seen from the observed (free-space) side.
struct ChunkMesh {
  std::vector<Eigen::Vector3f> vertices;
  std::vector<Eigen::Vector3f> normals;  ///< unit, pointing to free space
  std::vector<std::array<uint8_t, 3>> rgb;
  std::vector<std::array<uint32_t, 3>> triangles;
  size_t bytes() const {
    return vertices.capacity() * sizeof(Eigen::Vector3f) * 2 + rgb.capacity() * 3 + triangles.capacity() * 12;
  }
};

/// Triangles, as edge indices, of each of the 256 corner sign cases. Corner c sits at
/// (c & 1, c >> 1 & 1, c >> 2 & 1); a case's bit c is set when corner c is inside (tsdf < 0).
struct MarchingCubesTable {
  std::array<std::array<int, 2>, 12> edge_corners;  ///< corners of each edge
  std::array<std::vector<std::array<int, 3>>, 256> triangles;
};
const MarchingCubesTable& marchingCubesTable();

/// Meshes the cubes owned by the chunk's blocks (cube (i, j, k) of a block has its lowest corner
/// on voxel (i, j, k)); cubes touching an unobserved voxel are skipped.
void meshChunk(const TsdfVolume& volume, const ChunkInfo& chunk, ChunkMesh& out);

}  // namespace pv::internal
