// libFuzzer target for the PLY reader: any bytes must give a consistent mesh or a refusal, and a
// mesh read must split into chunks that hold all its triangles.
#include <cstdint>
#include <cstdlib>

#include "io/internal/ply.h"
#include "mesh/internal/chunking.h"
#include "mesh/internal/mesh_convert.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pv::internal::MeshData mesh;
  const pv::internal::FileResult r = pv::internal::parsePly(reinterpret_cast<const char*>(data), size, mesh);
  if (!r.ok) {
    if (r.error.empty()) std::abort();  // a refusal always says why
    return 0;
  }
  if (!mesh.consistent()) std::abort();
  pv::Mesh m;
  const size_t triangles = mesh.triangles.size();
  pv::internal::dataToMesh(std::move(mesh), m);
  pv::internal::buildMeshChunks(m, 16);
  size_t in_chunks = 0;
  for (const pv::Chunk& c : m.chunks) {
    in_chunks += c.triangles.size();
    for (const pv::uint3& t : c.triangles)
      if (t.x >= c.vertices.size() || t.y >= c.vertices.size() || t.z >= c.vertices.size()) std::abort();
  }
  if (in_chunks != triangles) std::abort();
  return 0;
}
