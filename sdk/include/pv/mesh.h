// PAVO SDK: spatial maps (chunked meshes and fused point clouds) and their files.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "pv/defines.h"
#include "pv/mat.h"
#include "pv/math.h"

namespace pv {

namespace internal {
struct TextureSource;  // keyframes kept while mapping with save_texture
}

/// One spatial chunk of a mesh; indices in `triangles` refer to this chunk's vertices.
struct Chunk {
  std::vector<float3> vertices;  ///< metres, in the map's coordinate system
  std::vector<uint3> triangles;
  std::vector<float3> normals;  ///< per vertex, may be empty
  std::vector<uchar3> colors;   ///< per vertex, red, green, blue; may be empty
  /// Per vertex texture coordinates once textured: (column, row) over the texture's width and
  /// height, with the origin at the texture's first row (files store v = 1 - row).
  std::vector<float2> uv;
  float3 barycenter;
  uint64_t timestamp_ns = 0;      ///< last change
  bool has_been_updated = false;  ///< changed since the holder's previous retrieval
  void clear();
  /// Axis-aligned bounds of the vertices (min, max); zero when empty.
  void getBoundaries(float3& min, float3& max) const;
};

/// One spatial chunk of a fused point cloud.
struct PointCloudChunk {
  /// x, y, z in metres; w holds the colour bits: red 16-23, green 8-15, blue 0-7.
  std::vector<float4> vertices;
  std::vector<float3> normals;
  float3 barycenter;
  uint64_t timestamp_ns = 0;
  bool has_been_updated = false;
  void clear();
};

/// Mesh filtering strength.
struct MeshFilterParameters {
  enum MESH_FILTER { LOW = 0, MEDIUM = 1, HIGH = 2 };
  MESH_FILTER filtering = LOW;
  MeshFilterParameters(MESH_FILTER level = LOW) : filtering(level) {}  // NOLINT: implicit by design
  void set(MESH_FILTER level) { filtering = level; }
};

String toString(MeshFilterParameters::MESH_FILTER value);

/// A triangle mesh made of spatial chunks, with optional whole-map arrays and texture.
/// Not thread safe; callers serialise access (the application uses one mutex).
class Mesh {
 public:
  Mesh();
  ~Mesh();
  Mesh(const Mesh&);
  Mesh& operator=(const Mesh&);
  Mesh(Mesh&&) noexcept;
  Mesh& operator=(Mesh&&) noexcept;

  std::vector<Chunk> chunks;
  // Whole-map arrays, filled by extractWholeSpatialMap, load, filter and applyTexture.
  std::vector<float3> vertices;
  std::vector<uint3> triangles;
  std::vector<float3> normals;
  std::vector<uchar3> colors;
  std::vector<float2> uv;
  /// Texture atlas, CPU, U8_C3 or U8_C4 in blue, green, red (alpha) order; empty when untextured.
  Mat texture;

  /// Triangles of the whole-map arrays when filled, else the sum over chunks.
  size_t getNumberOfTriangles() const;
  /// Vertices of the whole-map arrays when filled, else the sum over chunks.
  size_t getNumberOfPoints() const;
  void clear();
  /// Filters the mesh (LOW: cleanup; MEDIUM, HIGH: also simplification and smoothing); the chunks
  /// are rebuilt. `update_chunk_only` leaves the whole-map arrays empty. False on an empty mesh.
  bool filter(MeshFilterParameters params = MeshFilterParameters(), bool update_chunk_only = false);
  /// Builds a texture atlas from the keyframes kept while mapping with save_texture. False (and
  /// no change) when no keyframes are available.
  bool applyTexture(MESH_TEXTURE_FORMAT format = MESH_TEXTURE_FORMAT::RGB);
  /// Writes the chunks listed in `ids` (all when empty): PLY binary, PLY ASCII, or OBJ with
  /// <name>.mtl and <name>.png beside. Written under a temporary name then renamed; false on any
  /// failure, leaving an earlier file intact.
  bool save(const String& path, MESH_FILE_FORMAT format = MESH_FILE_FORMAT::OBJ,
            const std::vector<int>& ids = {}) const;
  /// Reads a PLY or OBJ mesh and splits it into chunks. False (and an empty mesh) on a file
  /// without faces or a corrupt file.
  bool load(const String& path, bool update_chunk_only = false);
  /// Regroups the whole-map arrays into chunks of at most `faces_per_chunk` triangles.
  void mergeChunks(int faces_per_chunk);
  /// Rebuilds the whole-map arrays from the chunks.
  void updateMeshFromChunkList();
  /// True when keyframes for applyTexture are held.
  bool hasTextureSource() const;

  /// Set by the spatial mapping module; not for applications.
  std::shared_ptr<internal::TextureSource> texture_source;
};

/// A coloured point cloud made of spatial chunks.
class FusedPointCloud {
 public:
  std::vector<PointCloudChunk> chunks;
  /// Whole-map points (x, y, z, packed colour) and normals.
  std::vector<float4> vertices;
  std::vector<float3> normals;

  size_t getNumberOfPoints() const;
  void clear();
  /// Writes PLY binary, PLY ASCII or OBJ (points only); temporary name then rename.
  bool save(const String& path, MESH_FILE_FORMAT format = MESH_FILE_FORMAT::PLY,
            const std::vector<int>& ids = {}) const;
  /// Reads a PLY or OBJ file's vertices (faces ignored) and splits them into chunks.
  bool load(const String& path, bool update_chunk_only = false);
  /// Rebuilds the whole-map arrays from the chunks.
  void updateFromChunkList();
};

}  // namespace pv
