#include <algorithm>
#include <limits>

#include "core/internal/error.h"
#include "pv/mesh.h"

namespace pv {

void Chunk::clear() {
  vertices.clear();
  triangles.clear();
  normals.clear();
  colors.clear();
  uv.clear();
  barycenter = float3();
  timestamp_ns = 0;
  has_been_updated = false;
}

void Chunk::getBoundaries(float3& min, float3& max) const {
  if (vertices.empty()) {
    min = max = float3();
    return;
  }
  min = max = vertices.front();
  for (const float3& v : vertices) {
    min = {std::min(min.x, v.x), std::min(min.y, v.y), std::min(min.z, v.z)};
    max = {std::max(max.x, v.x), std::max(max.y, v.y), std::max(max.z, v.z)};
  }
}

void PointCloudChunk::clear() {
  vertices.clear();
  normals.clear();
  barycenter = float3();
  timestamp_ns = 0;
  has_been_updated = false;
}

Mesh::Mesh() = default;
Mesh::~Mesh() = default;
Mesh::Mesh(const Mesh&) = default;
Mesh& Mesh::operator=(const Mesh&) = default;
Mesh::Mesh(Mesh&&) noexcept = default;
Mesh& Mesh::operator=(Mesh&&) noexcept = default;

size_t Mesh::getNumberOfTriangles() const {
  if (!triangles.empty()) return triangles.size();
  size_t n = 0;
  for (const Chunk& c : chunks) n += c.triangles.size();
  return n;
}

size_t Mesh::getNumberOfPoints() const {
  if (!vertices.empty()) return vertices.size();
  size_t n = 0;
  for (const Chunk& c : chunks) n += c.vertices.size();
  return n;
}

void Mesh::clear() {
  chunks.clear();
  vertices.clear();
  triangles.clear();
  normals.clear();
  colors.clear();
  uv.clear();
  texture.free();
  texture_source.reset();
}

bool Mesh::hasTextureSource() const { return texture_source != nullptr; }

void Mesh::updateMeshFromChunkList() {
  vertices.clear();
  triangles.clear();
  normals.clear();
  colors.clear();
  uv.clear();
  for (const Chunk& c : chunks) {
    const unsigned base = unsigned(vertices.size());
    vertices.insert(vertices.end(), c.vertices.begin(), c.vertices.end());
    normals.insert(normals.end(), c.normals.begin(), c.normals.end());
    colors.insert(colors.end(), c.colors.begin(), c.colors.end());
    uv.insert(uv.end(), c.uv.begin(), c.uv.end());
    for (const uint3& t : c.triangles) triangles.push_back({t.x + base, t.y + base, t.z + base});
  }
}

size_t FusedPointCloud::getNumberOfPoints() const {
  if (!vertices.empty()) return vertices.size();
  size_t n = 0;
  for (const PointCloudChunk& c : chunks) n += c.vertices.size();
  return n;
}

void FusedPointCloud::clear() {
  chunks.clear();
  vertices.clear();
  normals.clear();
}

void FusedPointCloud::updateFromChunkList() {
  vertices.clear();
  normals.clear();
  for (const PointCloudChunk& c : chunks) {
    vertices.insert(vertices.end(), c.vertices.begin(), c.vertices.end());
    normals.insert(normals.end(), c.normals.begin(), c.normals.end());
  }
}

}  // namespace pv
