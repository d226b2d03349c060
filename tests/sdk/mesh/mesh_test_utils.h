// Synthetic meshes and comparisons shared by the map object tests.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "pv/mesh.h"

namespace mapura::test {

/// A UV sphere of `rings` x `segments` quads (two triangles each), with outward normals,
/// colours from the position and texture coordinates from the angles.
inline pv::Mesh makeSphereMesh(float radius, int rings, int segments, pv::float3 centre = {}) {
  pv::Mesh m;
  for (int r = 0; r <= rings; ++r) {
    const float theta = float(M_PI) * float(r) / float(rings);
    for (int s = 0; s <= segments; ++s) {
      const float phi = 2.f * float(M_PI) * float(s) / float(segments);
      const pv::float3 n(std::sin(theta) * std::cos(phi), std::cos(theta), std::sin(theta) * std::sin(phi));
      m.vertices.push_back(centre + n * radius);
      m.normals.push_back(n);
      m.colors.push_back({static_cast<unsigned char>(127 + 127 * n.x), static_cast<unsigned char>(127 + 127 * n.y),
                          static_cast<unsigned char>(127 + 127 * n.z)});
      m.uv.push_back({float(s) / float(segments), float(r) / float(rings)});
    }
  }
  const unsigned row = unsigned(segments + 1);
  for (int r = 0; r < rings; ++r)
    for (int s = 0; s < segments; ++s) {
      const unsigned a = unsigned(r) * row + unsigned(s), b = a + 1, c = a + row, d = c + 1;
      m.triangles.push_back({a, c, b});
      m.triangles.push_back({b, c, d});
    }
  return m;
}

/// Position, normal, colour and texture coordinate of every triangle corner, in triangle order:
/// two meshes with the same list draw the same, however their vertices are numbered.
struct Corner {
  pv::float3 p, n;
  pv::uchar3 c;
  pv::float2 uv;
};

inline std::vector<Corner> corners(const pv::Mesh& m) {
  std::vector<Corner> out;
  for (const pv::uint3& t : m.triangles)
    for (size_t k = 0; k < 3; ++k) {
      const unsigned v = t[k];
      out.push_back({m.vertices[v], m.normals.empty() ? pv::float3() : m.normals[v],
                     m.colors.empty() ? pv::uchar3() : m.colors[v], m.uv.empty() ? pv::float2() : m.uv[v]});
    }
  return out;
}

/// Sorted triangle corner positions of the chunks, for comparing chunk sets with whole maps.
inline std::vector<std::array<float, 9>> triangleSet(const std::vector<pv::float3>& v,
                                                     const std::vector<pv::uint3>& t) {
  std::vector<std::array<float, 9>> out;
  for (const pv::uint3& tri : t) {
    std::array<float, 9> a{};
    for (size_t k = 0; k < 3; ++k)
      for (size_t c = 0; c < 3; ++c) a[k * 3 + c] = v[tri[k]][c];
    out.push_back(a);
  }
  std::sort(out.begin(), out.end());
  return out;
}

inline std::vector<std::array<float, 9>> chunkTriangleSet(const pv::Mesh& m) {
  std::vector<std::array<float, 9>> out;
  for (const pv::Chunk& c : m.chunks) {
    const auto part = triangleSet(c.vertices, c.triangles);
    out.insert(out.end(), part.begin(), part.end());
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace mapura::test
