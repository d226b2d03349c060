// Mesh::filter: cleanup (welding, degenerate faces, small fragments), simplification with
// meshoptimizer and Taubin smoothing; the chunks are rebuilt from the result.
#include <meshoptimizer.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <numeric>

#include <tbb/parallel_for.h>

#include "core/internal/error.h"
#include "mesh/internal/chunking.h"
#include "mesh/internal/mesh_filter.h"
#include "pv/mesh.h"

namespace pv {
namespace internal {
namespace {

constexpr size_t kSimplifyPieceTriangles = 65536;

float3 cross(const float3& a, const float3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
float norm(const float3& a) { return std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z); }

// Keeps the vertices listed in `order` (new index -> old index) and renumbers the triangles.
void compact(Mesh& m, const std::vector<unsigned>& old_to_new, size_t kept) {
  const auto gather = [&](auto& array) {
    if (array.empty()) return;
    std::remove_reference_t<decltype(array)> out(kept);
    for (size_t i = 0; i < array.size(); ++i)
      if (old_to_new[i] != ~0u) out[old_to_new[i]] = array[i];
    array.swap(out);
  };
  gather(m.vertices);
  gather(m.normals);
  gather(m.colors);
  gather(m.uv);
  for (uint3& t : m.triangles) t = {old_to_new[t.x], old_to_new[t.y], old_to_new[t.z]};
}

// Drops vertices no triangle uses.
void dropUnusedVertices(Mesh& m) {
  std::vector<unsigned> old_to_new(m.vertices.size(), ~0u);
  unsigned next = 0;
  for (const uint3& t : m.triangles)
    for (size_t k = 0; k < 3; ++k)
      if (old_to_new[t[k]] == ~0u) old_to_new[t[k]] = next++;
  compact(m, old_to_new, next);
}

unsigned findRoot(std::vector<unsigned>& parent, unsigned v) {
  while (parent[v] != v) {
    parent[v] = parent[parent[v]];
    v = parent[v];
  }
  return v;
}

// Vertex neighbours as compressed rows (each triangle adds both directions of its edges).
void buildNeighbours(const Mesh& m, std::vector<unsigned>& start, std::vector<unsigned>& list) {
  start.assign(m.vertices.size() + 1, 0);
  for (const uint3& t : m.triangles)
    for (size_t k = 0; k < 3; ++k) start[t[k] + 1] += 2;
  std::partial_sum(start.begin(), start.end(), start.begin());
  list.resize(start.back());
  std::vector<unsigned> fill(start.begin(), start.end() - 1);
  for (const uint3& t : m.triangles)
    for (size_t k = 0; k < 3; ++k) {
      list[fill[t[k]]++] = t[(k + 1) % 3];
      list[fill[t[k]]++] = t[(k + 2) % 3];
    }
}

}  // namespace

void weldVertices(Mesh& m) {
  std::vector<unsigned> remap(m.vertices.size());
  const size_t unique = meshopt_generateVertexRemap(remap.data(), &m.triangles[0].x, m.triangles.size() * 3,
                                                    m.vertices.data(), m.vertices.size(), sizeof(float3));
  compact(m, remap, unique);
}

void removeDegenerateTriangles(Mesh& m) {
  const auto degenerate = [&m](const uint3& t) {
    if (t.x == t.y || t.y == t.z || t.x == t.z) return true;
    return !(norm(cross(m.vertices[t.y] - m.vertices[t.x], m.vertices[t.z] - m.vertices[t.x])) > 0.f);
  };
  m.triangles.erase(std::remove_if(m.triangles.begin(), m.triangles.end(), degenerate), m.triangles.end());
}

void removeSmallFragments(Mesh& m, size_t min_triangles) {
  std::vector<unsigned> parent(m.vertices.size());
  std::iota(parent.begin(), parent.end(), 0u);
  for (const uint3& t : m.triangles) {
    const unsigned a = findRoot(parent, t.x), b = findRoot(parent, t.y), c = findRoot(parent, t.z);
    parent[b] = a;
    parent[c] = a;
  }
  std::vector<unsigned> count(m.vertices.size(), 0);
  for (const uint3& t : m.triangles) ++count[findRoot(parent, t.x)];
  m.triangles.erase(std::remove_if(m.triangles.begin(), m.triangles.end(),
                                   [&](const uint3& t) { return count[findRoot(parent, t.x)] < min_triangles; }),
                    m.triangles.end());
}

float medianEdgeLength(const Mesh& m) {
  std::vector<float> lengths;
  const size_t step = std::max<size_t>(1, m.triangles.size() / 4096);
  for (size_t i = 0; i < m.triangles.size(); i += step) {
    const uint3& t = m.triangles[i];
    lengths.push_back(norm(m.vertices[t.y] - m.vertices[t.x]));
  }
  if (lengths.empty()) return 0.f;
  std::nth_element(lengths.begin(), lengths.begin() + long(lengths.size() / 2), lengths.end());
  return lengths[lengths.size() / 2];
}

void simplify(Mesh& m, float target_ratio, float max_error_abs) {
  // Spatial pieces are simplified in parallel with their borders locked, so the pieces still
  // meet exactly and weld back into one mesh.
  Mesh pieces;
  pieces.vertices = std::move(m.vertices);
  pieces.triangles = std::move(m.triangles);
  pieces.normals = std::move(m.normals);
  pieces.colors = std::move(m.colors);
  pieces.uv = std::move(m.uv);
  buildMeshChunks(pieces, kSimplifyPieceTriangles);
  pieces.vertices.clear();
  pieces.triangles.clear();
  tbb::parallel_for(size_t(0), pieces.chunks.size(), [&](size_t c) {
    Chunk& chunk = pieces.chunks[c];
    const size_t index_count = chunk.triangles.size() * 3;
    const float scale = meshopt_simplifyScale(&chunk.vertices[0].x, chunk.vertices.size(), sizeof(float3));
    if (!(scale > 0.f)) return;
    const size_t target = size_t(double(index_count) * target_ratio) / 3 * 3;
    std::vector<unsigned> out(index_count);
    const size_t n =
        meshopt_simplify(out.data(), &chunk.triangles[0].x, index_count, &chunk.vertices[0].x, chunk.vertices.size(),
                         sizeof(float3), target, max_error_abs / scale, meshopt_SimplifyLockBorder, nullptr);
    chunk.triangles.resize(n / 3);
    std::copy(out.begin(), out.begin() + long(n), &chunk.triangles[0].x);
  });
  pieces.updateMeshFromChunkList();
  m.vertices = std::move(pieces.vertices);
  m.triangles = std::move(pieces.triangles);
  m.normals = std::move(pieces.normals);
  m.colors = std::move(pieces.colors);
  m.uv = std::move(pieces.uv);
  if (!m.triangles.empty()) weldVertices(m);
}

void smoothTaubin(Mesh& m, int iterations) {
  if (iterations <= 0) return;
  std::vector<unsigned> start, list;
  buildNeighbours(m, start, list);
  std::vector<float3> moved(m.vertices.size());
  const auto step = [&](float factor) {
    for (size_t v = 0; v < m.vertices.size(); ++v) {
      const unsigned b = start[v], e = start[v + 1];
      if (b == e) {
        moved[v] = m.vertices[v];
        continue;
      }
      float3 sum;
      for (unsigned k = b; k < e; ++k) sum += m.vertices[list[k]];
      moved[v] = m.vertices[v] + (sum / float(e - b) - m.vertices[v]) * factor;
    }
    m.vertices.swap(moved);
  };
  for (int i = 0; i < iterations; ++i) {
    step(0.5f);    // shrink
    step(-0.53f);  // and inflate back: low frequencies keep their size
  }
}

void computeNormals(Mesh& m) {
  m.normals.assign(m.vertices.size(), float3());
  for (const uint3& t : m.triangles) {
    const float3 n = cross(m.vertices[t.y] - m.vertices[t.x], m.vertices[t.z] - m.vertices[t.x]);
    m.normals[t.x] += n;
    m.normals[t.y] += n;
    m.normals[t.z] += n;
  }
  for (float3& n : m.normals) {
    const float l = norm(n);
    n = l > 0 ? n / l : float3();
  }
}

FilterSettings filterSettings(MeshFilterParameters::MESH_FILTER level) {
  switch (level) {
    case MeshFilterParameters::LOW: return {1.f, 0.f, 0};
    case MeshFilterParameters::MEDIUM: return {0.5f, 0.5f, 1};
    case MeshFilterParameters::HIGH: return {0.2f, 1.f, 3};
  }
  return {1.f, 0.f, 0};
}

}  // namespace internal

bool Mesh::filter(MeshFilterParameters params, bool update_chunk_only) {
  try {
    if (triangles.empty()) updateMeshFromChunkList();
    if (triangles.empty()) {
      internal::fail(ERROR_CODE::FAILURE, "the mesh is empty; nothing to filter");
      return false;
    }
    const internal::FilterSettings s = internal::filterSettings(params.filtering);
    internal::weldVertices(*this);
    internal::removeDegenerateTriangles(*this);
    // Fragments below 0.1 % of the map (at least 10 and at most 1000 triangles) are noise.
    internal::removeSmallFragments(*this, std::clamp<size_t>(triangles.size() / 1000, 10, 1000));
    if (s.target_ratio < 1.f && !triangles.empty()) {
      internal::simplify(*this, s.target_ratio, s.max_error_voxels * internal::medianEdgeLength(*this));
      internal::smoothTaubin(*this, s.smoothing_iterations);
    }
    internal::dropUnusedVertices(*this);
    internal::computeNormals(*this);
    internal::buildMeshChunks(*this, internal::kDefaultTrianglesPerChunk);
    if (update_chunk_only) {
      vertices.clear();
      triangles.clear();
      normals.clear();
      colors.clear();
      uv.clear();
    }
    return true;
  } catch (const std::exception& e) {
    internal::fail(ERROR_CODE::FAILURE, std::string("cannot filter the mesh: ") + e.what());
    return false;
  }
}

}  // namespace pv
