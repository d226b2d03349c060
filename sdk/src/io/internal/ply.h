// PLY reading (ASCII, binary little and big endian) and writing (ASCII, binary little endian).
#pragma once

#include <cstddef>
#include <string>

#include "mesh/internal/mesh_data.h"

namespace pv::internal {

/// Parses a whole PLY file held in memory. Polygons are triangulated as fans; elements and
/// properties other than vertex positions, normals, colours, texture coordinates and face
/// indices are skipped. Fails on truncated data, indices out of range or a malformed header.
FileResult parsePly(const char* data, size_t size, MeshData& out);
/// Reads the file at `path` with parsePly.
FileResult readPly(const std::string& path, MeshData& out);
/// Writes `mesh` (the texture is not written) to `path` directly; callers that need the
/// temporary-name protocol go through writeFileAtomically.
FileResult writePly(const std::string& path, const MeshData& mesh, bool binary);

}  // namespace pv::internal
