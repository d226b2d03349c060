#include "mapping/internal/surface_distance.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>

namespace pv::internal {

Eigen::Vector3f closestPointOnTriangle(const Eigen::Vector3f& p, const Eigen::Vector3f& a, const Eigen::Vector3f& b,
                                       const Eigen::Vector3f& c) {
  // Voronoi regions of the vertices, edges and face, in turn.
  const Eigen::Vector3f ab = b - a, ac = c - a, ap = p - a;
  const float d1 = ab.dot(ap), d2 = ac.dot(ap);
  if (d1 <= 0.f && d2 <= 0.f) return a;
  const Eigen::Vector3f bp = p - b;
  const float d3 = ab.dot(bp), d4 = ac.dot(bp);
  if (d3 >= 0.f && d4 <= d3) return b;
  const float vc = d1 * d4 - d3 * d2;
  if (vc <= 0.f && d1 >= 0.f && d3 <= 0.f) return a + ab * (d1 / (d1 - d3));
  const Eigen::Vector3f cp = p - c;
  const float d5 = ab.dot(cp), d6 = ac.dot(cp);
  if (d6 >= 0.f && d5 <= d6) return c;
  const float vb = d5 * d2 - d1 * d6;
  if (vb <= 0.f && d2 >= 0.f && d6 <= 0.f) return a + ac * (d2 / (d2 - d6));
  const float va = d3 * d6 - d5 * d4;
  if (va <= 0.f && (d4 - d3) >= 0.f && (d5 - d6) >= 0.f) return b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)));
  const float denom = va + vb + vc;
  if (std::abs(denom) < 1e-30f) return a;  // degenerate triangle
  const float v = vb / denom, w = vc / denom;
  return a + ab * v + ac * w;
}

uint64_t SurfaceDistance::key(int x, int y, int z) const {
  constexpr int kOffset = 1 << 20;
  return (uint64_t(uint32_t(x + kOffset) & 0x1FFFFF) << 42) | (uint64_t(uint32_t(y + kOffset) & 0x1FFFFF) << 21) |
         uint64_t(uint32_t(z + kOffset) & 0x1FFFFF);
}

SurfaceDistance::SurfaceDistance(const std::vector<Eigen::Vector3f>& vertices,
                                 const std::vector<std::array<uint32_t, 3>>& triangles, float cell_m)
    : cell_m_(std::max(cell_m, 1e-4f)) {
  std::vector<std::array<Eigen::Vector3f, 3>> todo;
  for (const auto& t : triangles) {
    if (t[0] >= vertices.size() || t[1] >= vertices.size() || t[2] >= vertices.size()) continue;
    todo.push_back({vertices[t[0]], vertices[t[1]], vertices[t[2]]});
  }
  // Split long triangles at their longest edge so that each one touches few cells.
  while (!todo.empty()) {
    const auto t = todo.back();
    todo.pop_back();
    int longest = 0;
    float len = 0.f;
    for (int e = 0; e < 3; ++e) {
      const float l = (t[size_t((e + 1) % 3)] - t[size_t(e)]).norm();
      if (l > len) {
        len = l;
        longest = e;
      }
    }
    if (len > cell_m_) {
      const Eigen::Vector3f& p0 = t[size_t(longest)];
      const Eigen::Vector3f& p1 = t[size_t((longest + 1) % 3)];
      const Eigen::Vector3f& p2 = t[size_t((longest + 2) % 3)];
      const Eigen::Vector3f m = 0.5f * (p0 + p1);
      todo.push_back({p0, m, p2});
      todo.push_back({m, p1, p2});
      continue;
    }
    triangles_.push_back(t);
  }
  for (uint32_t i = 0; i < triangles_.size(); ++i) {
    const auto& t = triangles_[i];
    const Eigen::Vector3f lo = t[0].cwiseMin(t[1]).cwiseMin(t[2]) / cell_m_;
    const Eigen::Vector3f hi = t[0].cwiseMax(t[1]).cwiseMax(t[2]) / cell_m_;
    for (int x = int(std::floor(lo.x())); x <= int(std::floor(hi.x())); ++x)
      for (int y = int(std::floor(lo.y())); y <= int(std::floor(hi.y())); ++y)
        for (int z = int(std::floor(lo.z())); z <= int(std::floor(hi.z())); ++z) grid_[key(x, y, z)].push_back(i);
  }
}

float SurfaceDistance::distance(const Eigen::Vector3f& p, float max_m) const { return search(p, max_m, false); }

bool SurfaceDistance::within(const Eigen::Vector3f& p, float radius_m) const {
  return search(p, radius_m, true) < radius_m;
}

float SurfaceDistance::search(const Eigen::Vector3f& p, float max_m, bool first_hit) const {
  const Eigen::Vector3f q = p / cell_m_;
  const int cx = int(std::floor(q.x())), cy = int(std::floor(q.y())), cz = int(std::floor(q.z()));
  const int max_ring = int(std::ceil(max_m / cell_m_));
  float best = max_m;
  for (int ring = 0; ring <= max_ring; ++ring) {
    // Anything in this ring is at least (ring - 1) cells away.
    if (float(ring - 1) * cell_m_ > best || (first_hit && best < max_m)) break;
    auto visit = [&](int x, int y, int z) {
      const auto it = grid_.find(key(x, y, z));
      if (it == grid_.end()) return;
      for (uint32_t i : it->second) {
        if (first_hit && best < max_m) return;
        const auto& t = triangles_[i];
        best = std::min(best, (closestPointOnTriangle(p, t[0], t[1], t[2]) - p).norm());
      }
    };
    // Only the shell of cells at Chebyshev distance `ring`.
    for (int x = cx - ring; x <= cx + ring; ++x)
      for (int y = cy - ring; y <= cy + ring; ++y) {
        if (std::abs(x - cx) == ring || std::abs(y - cy) == ring) {
          for (int z = cz - ring; z <= cz + ring; ++z) visit(x, y, z);
        } else {
          visit(x, y, cz - ring);
          visit(x, y, cz + ring);
        }
      }
  }
  return best;
}

std::vector<Eigen::Vector3f> sampleSurface(const std::vector<Eigen::Vector3f>& vertices,
                                           const std::vector<std::array<uint32_t, 3>>& triangles, float spacing_m) {
  std::vector<Eigen::Vector3f> out;
  for (const auto& t : triangles) {
    if (t[0] >= vertices.size() || t[1] >= vertices.size() || t[2] >= vertices.size()) continue;
    const Eigen::Vector3f &a = vertices[t[0]], &b = vertices[t[1]], &c = vertices[t[2]];
    const float longest = std::max({(b - a).norm(), (c - b).norm(), (a - c).norm()});
    const int n = std::max(1, int(std::ceil(longest / spacing_m)));
    // Barycentric grid with n steps per edge; cell centres only, so shared edges are not doubled.
    for (int i = 0; i < n; ++i)
      for (int j = 0; i + j < n; ++j) {
        const float u = (float(i) + 1.f / 3.f) / float(n), v = (float(j) + 1.f / 3.f) / float(n);
        out.push_back(a + (b - a) * u + (c - a) * v);
      }
  }
  return out;
}

MeshEvaluation evaluateMesh(const std::vector<Eigen::Vector3f>& mesh_vertices,
                            const std::vector<std::array<uint32_t, 3>>& mesh_triangles,
                            const std::vector<Eigen::Vector3f>& truth_vertices,
                            const std::vector<std::array<uint32_t, 3>>& truth_triangles, float threshold_m,
                            float seen_radius_m, const std::function<bool(const Eigen::Vector3f&)>& seen) {
  MeshEvaluation r;
  const float cell = std::max(threshold_m, 0.02f);
  const SurfaceDistance truth(truth_vertices, truth_triangles, cell);
  const SurfaceDistance mesh(mesh_vertices, mesh_triangles, cell);
  // Coarser cells for the question whether the camera saw a place at all.
  const SurfaceDistance mesh_coarse(mesh_vertices, mesh_triangles, std::max(cell, 0.5f * seen_radius_m));
  const float far_m = std::max(seen_radius_m, 10.f * threshold_m);
  double sum = 0, sum2 = 0;
  for (const auto& v : mesh_vertices) {
    const double d = truth.distance(v, far_m);
    sum += d;
    sum2 += d * d;
  }
  r.mesh_points = mesh_vertices.size();
  if (r.mesh_points) {
    r.accuracy_mean_m = sum / double(r.mesh_points);
    r.accuracy_rms_m = std::sqrt(sum2 / double(r.mesh_points));
  }
  const std::vector<Eigen::Vector3f> samples = sampleSurface(truth_vertices, truth_triangles, 0.5f * threshold_m);
  r.truth_points = samples.size();
  size_t close = 0;
  for (const auto& s : samples) {
    if (seen && !seen(s)) continue;
    if (mesh.within(s, threshold_m)) {
      ++r.truth_seen;
      ++close;
    } else if (seen || mesh_coarse.within(s, seen_radius_m)) {
      ++r.truth_seen;
    }
  }
  if (r.truth_seen) r.completeness_pct = 100.0 * double(close) / double(r.truth_seen);
  return r;
}

bool visibleInAny(const std::vector<DepthFrame>& frames, const Eigen::Vector3f& p_world, size_t stride,
                  float tolerance_m, float max_depth_m) {
  for (size_t i = 0; i < frames.size(); i += std::max<size_t>(stride, 1)) {
    const DepthFrame& f = frames[i];
    const Eigen::Matrix3f R = f.T_world_camera.topLeftCorner<3, 3>();
    const Eigen::Vector3f pc = R.transpose() * (p_world - f.T_world_camera.topRightCorner<3, 1>());
    if (pc.z() <= 0.05f || pc.z() > max_depth_m) continue;
    const int u = int(f.fx * pc.x() / pc.z() + f.cx + 0.5), v = int(f.fy * pc.y() / pc.z() + f.cy + 0.5);
    if (u < 0 || v < 0 || u >= f.depth_m.cols || v >= f.depth_m.rows) continue;
    if (std::abs(f.depth_m.at<float>(v, u) - pc.z()) < tolerance_m) return true;
  }
  return false;
}

}  // namespace pv::internal
