// Distances between surfaces, for judging a reconstructed mesh against a true one: exact
// point-to-triangle distances through a uniform grid of (subdivided) triangles.
#pragma once

#include <Eigen/Core>
#include <array>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

#include "mapping/internal/tsdf_volume.h"

namespace pv::internal {

/// Closest point of triangle (a, b, c) to p.
Eigen::Vector3f closestPointOnTriangle(const Eigen::Vector3f& p, const Eigen::Vector3f& a, const Eigen::Vector3f& b,
                                       const Eigen::Vector3f& c);

/// Nearest-surface queries on a triangle mesh. Not thread safe to build; queries are const.
class SurfaceDistance {
 public:
  /// `cell_m`: grid cell size; triangles are split until no edge exceeds it.
  SurfaceDistance(const std::vector<Eigen::Vector3f>& vertices, const std::vector<std::array<uint32_t, 3>>& triangles,
                  float cell_m);
  /// Distance from p to the surface, or `max_m` when nothing lies nearer than that.
  float distance(const Eigen::Vector3f& p, float max_m) const;
  /// True when some part of the surface lies nearer than `radius_m` (stops at the first).
  bool within(const Eigen::Vector3f& p, float radius_m) const;
  bool empty() const { return triangles_.empty(); }
  size_t triangleCount() const { return triangles_.size(); }

 private:
  using Cell = std::array<int, 3>;
  uint64_t key(int x, int y, int z) const;
  float search(const Eigen::Vector3f& p, float max_m, bool first_hit) const;
  std::vector<std::array<Eigen::Vector3f, 3>> triangles_;
  std::unordered_map<uint64_t, std::vector<uint32_t>> grid_;
  float cell_m_;
};

/// Points spread over the triangles at about `spacing_m` (each triangle gets at least its centroid).
std::vector<Eigen::Vector3f> sampleSurface(const std::vector<Eigen::Vector3f>& vertices,
                                           const std::vector<std::array<uint32_t, 3>>& triangles, float spacing_m);

struct MeshEvaluation {
  double accuracy_mean_m = 0, accuracy_rms_m = 0;  ///< mesh vertices to the truth
  double completeness_pct = 0;                     ///< seen truth within the threshold of the mesh
  size_t mesh_points = 0, truth_points = 0, truth_seen = 0;
};

/// Accuracy of `mesh` against `truth` and completeness of the truth within `threshold_m`, over
/// the truth the camera saw: where `seen` is given it decides; otherwise truth farther than
/// `seen_radius_m` from any part of the mesh counts as never seen and is left out.
MeshEvaluation evaluateMesh(const std::vector<Eigen::Vector3f>& mesh_vertices,
                            const std::vector<std::array<uint32_t, 3>>& mesh_triangles,
                            const std::vector<Eigen::Vector3f>& truth_vertices,
                            const std::vector<std::array<uint32_t, 3>>& truth_triangles, float threshold_m,
                            float seen_radius_m, const std::function<bool(const Eigen::Vector3f&)>& seen = {});

/// True when `p_world` shows in one of the frames (every `stride`-th checked): in view, within
/// `max_depth_m` and not hidden, its depth agreeing with the frame's within `tolerance_m`.
bool visibleInAny(const std::vector<DepthFrame>& frames, const Eigen::Vector3f& p_world, size_t stride,
                  float tolerance_m, float max_depth_m);

}  // namespace pv::internal
