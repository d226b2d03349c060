// Steps of Mesh::filter, each on a mesh's whole-map arrays.
#pragma once

#include "pv/mesh.h"

namespace pv::internal {

struct FilterSettings {
  float target_ratio = 1.f;      ///< share of the triangles simplification aims to keep (1: none)
  float max_error_voxels = 0.f;  ///< simplification error bound, in voxels (median edge length)
  int smoothing_iterations = 0;  ///< Taubin shrink-and-inflate passes
};

FilterSettings filterSettings(MeshFilterParameters::MESH_FILTER level);

/// Merges vertices with identical positions (chunk borders repeat them).
void weldVertices(Mesh& m);
/// Removes triangles with a repeated corner or zero area.
void removeDegenerateTriangles(Mesh& m);
/// Removes connected pieces of fewer than `min_triangles` triangles.
void removeSmallFragments(Mesh& m, size_t min_triangles);
/// Median length of a sample of edges; the filter's stand-in for the voxel size.
float medianEdgeLength(const Mesh& m);
/// Collapses edges (meshoptimizer) towards `target_ratio` of the triangles while the error stays
/// under `max_error_abs` (mesh units); spatial pieces are simplified in parallel, their borders
/// kept, and welded back together.
void simplify(Mesh& m, float target_ratio, float max_error_abs);
/// Taubin smoothing (lambda 0.5, mu -0.53) over the vertex neighbourhoods.
void smoothTaubin(Mesh& m, int iterations);
/// Area-weighted vertex normals.
void computeNormals(Mesh& m);

}  // namespace pv::internal
