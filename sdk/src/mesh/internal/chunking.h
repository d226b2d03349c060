// Splitting whole maps into spatially compact chunks.
#pragma once

#include <vector>

#include "pv/mesh.h"

namespace pv::internal {

constexpr size_t kDefaultTrianglesPerChunk = 32768;
constexpr size_t kDefaultPointsPerChunk = 65536;

/// Replaces `chunks` with chunks of at most `max_triangles` triangles each, built from the
/// mesh's whole-map arrays: triangles are bucketed on a coarse grid, grid cells are walked in
/// Morton order and gathered until the next cell would overflow the chunk. Every chunk holds
/// copies of the vertices its triangles use and is flagged as updated.
void buildMeshChunks(Mesh& mesh, size_t max_triangles);

/// The same for a fused point cloud's whole-map points.
void buildPointCloudChunks(FusedPointCloud& cloud, size_t max_points);

}  // namespace pv::internal
