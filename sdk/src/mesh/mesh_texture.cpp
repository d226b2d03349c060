// Mesh::applyTexture: a texture atlas from the keyframes kept while mapping.
#include <meshoptimizer.h>

#include <exception>

#include "core/internal/error.h"
#include "mesh/internal/chunking.h"
#include "mesh/internal/mesh_convert.h"
#include "mesh/internal/texture_atlas.h"
#include "mesh/internal/texture_source.h"
#include "pv/mesh.h"

namespace pv {
namespace {

// The triangles renumbered so that vertices at the same position (chunk borders repeat them)
// are one: charts and neighbourhoods then cross chunk borders.
std::vector<uint3> weldedTriangles(const std::vector<float3>& vertices, const std::vector<uint3>& triangles) {
  std::vector<unsigned> remap(vertices.size());
  meshopt_generateVertexRemap(remap.data(), &triangles[0].x, triangles.size() * 3, vertices.data(), vertices.size(),
                              sizeof(float3));
  std::vector<unsigned> representative(vertices.size(), ~0u);
  for (unsigned v = 0; v < vertices.size(); ++v)
    if (remap[v] != ~0u && representative[remap[v]] == ~0u) representative[remap[v]] = v;
  std::vector<uint3> out(triangles.size());
  for (size_t t = 0; t < triangles.size(); ++t)
    for (size_t k = 0; k < 3; ++k) out[t][k] = representative[remap[triangles[t][k]]];
  return out;
}

}  // namespace

bool Mesh::applyTexture(MESH_TEXTURE_FORMAT format) {
  try {
    if (!texture_source || texture_source->keyframes.empty()) {
      internal::fail(ERROR_CODE::FAILURE, "no keyframes to texture from (map the scene with save_texture)");
      return false;
    }
    if (format != MESH_TEXTURE_FORMAT::RGB && format != MESH_TEXTURE_FORMAT::RGBA) {
      internal::fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown texture format");
      return false;
    }
    Mesh whole;
    const Mesh& source = triangles.empty() ? whole : *this;
    if (triangles.empty()) {
      whole.chunks = chunks;
      whole.updateMeshFromChunkList();
    }
    if (source.triangles.empty()) {
      internal::fail(ERROR_CODE::FAILURE, "the mesh is empty; nothing to texture");
      return false;
    }
    const auto& keyframes = texture_source->keyframes;
    const std::vector<uint3> welded = weldedTriangles(source.vertices, source.triangles);
    const std::vector<int> labels = internal::chooseKeyframes(source.vertices, welded, keyframes);
    internal::AtlasResult atlas =
        internal::buildAtlas(source.vertices, welded, labels, keyframes, format == MESH_TEXTURE_FORMAT::RGBA);

    std::vector<float3> new_normals;
    std::vector<uchar3> new_colors;
    const bool has_normals = source.normals.size() == source.vertices.size();
    const bool has_colors = source.colors.size() == source.vertices.size();
    for (unsigned v : atlas.source_vertex) {
      if (has_normals) new_normals.push_back(source.normals[v]);
      if (has_colors) new_colors.push_back(source.colors[v]);
    }
    Mat image = internal::toPvMat(atlas.atlas);
    vertices = std::move(atlas.vertices);
    triangles = std::move(atlas.triangles);
    uv = std::move(atlas.uv);
    normals = std::move(new_normals);
    colors = std::move(new_colors);
    texture = image;
    internal::buildMeshChunks(*this, internal::kDefaultTrianglesPerChunk);
    return true;
  } catch (const std::exception& e) {
    internal::fail(ERROR_CODE::FAILURE, std::string("cannot texture the mesh: ") + e.what());
    return false;
  }
}

}  // namespace pv
