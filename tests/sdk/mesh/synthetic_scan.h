// A synthetic scan with known ground truth: a ball of radius 0.5 resting on a 3 m square floor,
// both meshed as grids with normal-direction noise, cut into chunks whose borders repeat
// vertices (as a mapping module's chunks do), with a few degenerate triangles and small
// floating fragments added. Shared by the tests and the benchmarks.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "mesh_test_utils.h"
#include "pv/mesh.h"

namespace mapura::test {

struct SyntheticScene {
  pv::float3 ball_centre{0.f, 0.5f, 0.f};
  float ball_radius = 0.5f;
  float floor_half_size = 1.5f;  ///< floor: y = 0, |x|, |z| <= this

  /// Distance from `p` to the true surface.
  float distance(const pv::float3& p) const {
    const pv::float3 d = p - ball_centre;
    const float to_ball = std::fabs(std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z) - ball_radius);
    const float dx = std::max(std::fabs(p.x) - floor_half_size, 0.f),
                dz = std::max(std::fabs(p.z) - floor_half_size, 0.f);
    const float to_floor = std::sqrt(p.y * p.y + dx * dx + dz * dz);
    return std::min(to_ball, to_floor);
  }
};

inline void appendGrid(pv::Mesh& m, int n, const std::function<pv::float3(float, float)>& at) {
  const unsigned base = unsigned(m.vertices.size());
  for (int i = 0; i <= n; ++i)
    for (int j = 0; j <= n; ++j) m.vertices.push_back(at(float(i) / float(n), float(j) / float(n)));
  const unsigned row = unsigned(n + 1);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      const unsigned a = base + unsigned(i) * row + unsigned(j), b = a + 1, c = a + row, d = c + 1;
      m.triangles.push_back({a, b, c});
      m.triangles.push_back({b, d, c});
    }
}

/// About 4 * n * n triangles; `noise_m` is the standard deviation along the surface normal.
inline pv::Mesh makeNoisyScan(int n, float noise_m, unsigned seed = 7, const SyntheticScene& scene = {}) {
  pv::Mesh m;
  std::mt19937 rng(seed);
  std::normal_distribution<float> noise(0.f, noise_m);
  const float h = scene.floor_half_size;
  appendGrid(m, n, [&](float u, float v) { return pv::float3(-h + 2 * h * u, noise(rng), -h + 2 * h * v); });
  appendGrid(m, n, [&](float u, float v) {
    const float theta = float(M_PI) * u, phi = 2.f * float(M_PI) * v;
    const pv::float3 dir(std::sin(theta) * std::cos(phi), std::cos(theta), std::sin(theta) * std::sin(phi));
    return scene.ball_centre + dir * (scene.ball_radius + noise(rng));
  });
  // Degenerate triangles and floating fragments of two triangles each.
  for (unsigned i = 0; i < 20; ++i) m.triangles.push_back({i, i, i + 1});
  std::uniform_real_distribution<float> where(-1.f, 1.f);
  for (int f = 0; f < 10; ++f) {
    const pv::float3 o(where(rng), 1.2f + 0.3f * where(rng), where(rng));
    const unsigned b = unsigned(m.vertices.size());
    for (pv::float3 d :
         {pv::float3(0, 0, 0), pv::float3(0.02f, 0, 0), pv::float3(0, 0.02f, 0), pv::float3(0.02f, 0.02f, 0)})
      m.vertices.push_back(o + d);
    m.triangles.push_back({b, b + 1, b + 2});
    m.triangles.push_back({b + 1, b + 3, b + 2});
  }
  m.colors.assign(m.vertices.size(), pv::uchar3(200, 180, 160));
  // Chunks repeat the vertices on their borders; the whole map is rebuilt from them.
  m.mergeChunks(std::max(1000, n * n / 4));
  m.updateMeshFromChunkList();
  return m;
}

/// Mean distance to the true surface of `samples` points spread over the triangles by area.
inline double meanSurfaceError(const pv::Mesh& m, const SyntheticScene& scene, size_t samples = 100000) {
  std::vector<double> cumulative;
  double total = 0;
  for (const pv::uint3& t : m.triangles) {
    const pv::float3 a = m.vertices[t.y] - m.vertices[t.x], b = m.vertices[t.z] - m.vertices[t.x];
    const pv::float3 c(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
    total += 0.5 * std::sqrt(double(c.x) * c.x + double(c.y) * c.y + double(c.z) * c.z);
    cumulative.push_back(total);
  }
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> u(0, 1);
  double sum = 0;
  for (size_t s = 0; s < samples; ++s) {
    const size_t t =
        size_t(std::lower_bound(cumulative.begin(), cumulative.end(), u(rng) * total) - cumulative.begin());
    const pv::uint3& tri = m.triangles[std::min(t, m.triangles.size() - 1)];
    double r1 = std::sqrt(u(rng)), r2 = u(rng);
    const float wa = float(1 - r1), wb = float(r1 * (1 - r2)), wc = float(r1 * r2);
    sum += scene.distance(m.vertices[tri.x] * wa + m.vertices[tri.y] * wb + m.vertices[tri.z] * wc);
  }
  return sum / double(samples);
}

}  // namespace mapura::test
