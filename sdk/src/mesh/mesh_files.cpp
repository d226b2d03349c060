// Mesh and FusedPointCloud: reading and writing PLY and OBJ files, chunk regrouping.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <exception>
#include <filesystem>

#include "core/internal/error.h"
#include "io/internal/obj.h"
#include "io/internal/ply.h"
#include "mesh/internal/chunking.h"
#include "mesh/internal/file_util.h"
#include "mesh/internal/mesh_convert.h"

namespace pv {
namespace {

using internal::FileResult;
using internal::MeshData;

enum class FileKind { PLY, OBJ, UNKNOWN };

FileKind kindOf(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  if (ext == ".ply") return FileKind::PLY;
  if (ext == ".obj") return FileKind::OBJ;
  // Unknown extension: a PLY file says so in its first bytes.
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return FileKind::UNKNOWN;
  char magic[4] = {0, 0, 0, 0};
  const size_t n = std::fread(magic, 1, 4, f);
  std::fclose(f);
  return n == 4 && std::memcmp(magic, "ply", 3) == 0 && (magic[3] == '\n' || magic[3] == '\r') ? FileKind::PLY
                                                                                               : FileKind::UNKNOWN;
}

FileResult readAny(const std::string& path, MeshData& data, bool vertices_only) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return FileResult::failure("no such file: " + path);
  switch (kindOf(path)) {
    case FileKind::PLY: return internal::readPly(path, data);
    case FileKind::OBJ: return internal::readObj(path, data, vertices_only);
    case FileKind::UNKNOWN: break;
  }
  return FileResult::failure("not a PLY or OBJ file: " + path);
}

FileResult writeAny(const std::string& path, const MeshData& data, MESH_FILE_FORMAT format) {
  switch (format) {
    case MESH_FILE_FORMAT::PLY:
    case MESH_FILE_FORMAT::PLY_ASCII: {
      const bool binary = format == MESH_FILE_FORMAT::PLY;
      return internal::writeFileAtomically(
          path, [&](const std::string& tmp) { return internal::writePly(tmp, data, binary); });
    }
    case MESH_FILE_FORMAT::OBJ: return internal::writeObj(path, data);
    default: break;
  }
  return FileResult::failure("unknown mesh file format");
}

bool failed(ERROR_CODE code, const std::string& why) {
  internal::fail(code, why);
  return false;
}

}  // namespace

bool Mesh::save(const String& path, MESH_FILE_FORMAT format, const std::vector<int>& ids) const {
  try {
    MeshData data;
    if (!internal::meshToData(*this, ids, data))
      return failed(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "chunk id out of range");
    if (data.positions.empty()) return failed(ERROR_CODE::FAILURE, "the mesh is empty; nothing to save");
    const FileResult r = writeAny(path.str(), data, format);
    return r.ok || failed(ERROR_CODE::FILE_IO_ERROR, r.error);
  } catch (const std::exception& e) {
    return failed(ERROR_CODE::FAILURE, std::string("cannot save the mesh: ") + e.what());
  }
}

bool Mesh::load(const String& path, bool update_chunk_only) {
  clear();
  try {
    MeshData data;
    FileResult r = readAny(path.str(), data, false);
    if (r.ok && data.triangles.empty()) r = FileResult::failure("the file holds no faces (a point cloud?)");
    if (!r.ok) {
      clear();
      return failed(ERROR_CODE::FILE_IO_ERROR, r.error);
    }
    internal::dataToMesh(std::move(data), *this);
    internal::buildMeshChunks(*this, internal::kDefaultTrianglesPerChunk);
    if (update_chunk_only) {
      const Mat kept = texture;
      std::vector<Chunk> kept_chunks = std::move(chunks);
      clear();
      chunks = std::move(kept_chunks);
      texture = kept;
    }
    return true;
  } catch (const std::exception& e) {
    clear();
    return failed(ERROR_CODE::FAILURE, std::string("cannot load the mesh: ") + e.what());
  }
}

void Mesh::mergeChunks(int faces_per_chunk) {
  try {
    const bool had_whole_map = !triangles.empty();
    if (!had_whole_map) updateMeshFromChunkList();
    internal::buildMeshChunks(*this,
                              faces_per_chunk > 0 ? size_t(faces_per_chunk) : internal::kDefaultTrianglesPerChunk);
  } catch (const std::exception& e) {
    internal::fail(ERROR_CODE::FAILURE, std::string("cannot regroup the chunks: ") + e.what());
  }
}

bool FusedPointCloud::save(const String& path, MESH_FILE_FORMAT format, const std::vector<int>& ids) const {
  try {
    MeshData data;
    if (!internal::pointCloudToData(*this, ids, data))
      return failed(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "chunk id out of range");
    if (data.positions.empty()) return failed(ERROR_CODE::FAILURE, "the point cloud is empty; nothing to save");
    const FileResult r = writeAny(path.str(), data, format);
    return r.ok || failed(ERROR_CODE::FILE_IO_ERROR, r.error);
  } catch (const std::exception& e) {
    return failed(ERROR_CODE::FAILURE, std::string("cannot save the point cloud: ") + e.what());
  }
}

bool FusedPointCloud::load(const String& path, bool update_chunk_only) {
  clear();
  try {
    MeshData data;
    FileResult r = readAny(path.str(), data, true);
    if (r.ok && data.positions.empty()) r = FileResult::failure("the file holds no vertices");
    if (!r.ok) {
      clear();
      return failed(ERROR_CODE::FILE_IO_ERROR, r.error);
    }
    internal::dataToPointCloud(data, *this);
    internal::buildPointCloudChunks(*this, internal::kDefaultPointsPerChunk);
    if (update_chunk_only) {
      vertices.clear();
      normals.clear();
    }
    return true;
  } catch (const std::exception& e) {
    clear();
    return failed(ERROR_CODE::FAILURE, std::string("cannot load the point cloud: ") + e.what());
  }
}

}  // namespace pv
