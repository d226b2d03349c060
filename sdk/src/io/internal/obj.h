// Wavefront OBJ reading (with MTL materials and their diffuse texture) and writing.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "mesh/internal/mesh_data.h"

namespace pv::internal {

/// Loads a material library named in an OBJ; returns false when absent.
using SideFileLoader = std::function<bool(const std::string& path, std::string& bytes)>;

/// Parses OBJ text held in memory. `directory` is where relative material paths start;
/// `load_side_file` reads material libraries (missing ones are tolerated). Vertices that carry
/// different texture coordinates or normals in different faces are split. Polygons are
/// triangulated as fans; points and lines are ignored. Fails on indices out of range, faces
/// with fewer than three corners, non-numeric data or UTF-16 text. The diffuse texture of the
/// material that covers most faces is named in `out.texture_file` (not read). With
/// `vertices_only`, every `v` line becomes a point and faces are not read.
FileResult parseObj(const char* data, size_t size, const std::string& directory, const SideFileLoader& load_side_file,
                    MeshData& out, bool vertices_only = false);
/// Reads the OBJ at `path`, its material library and the diffuse texture of the material used
/// by most faces (a missing library or image leaves the mesh untextured).
FileResult readObj(const std::string& path, MeshData& out, bool vertices_only = false);
/// `path` when it exists, else a file in the same folder whose name differs only in case.
std::string findFileIgnoringCase(const std::string& path);
/// Parses MTL text: the diffuse texture path (`map_Kd`, options skipped) per material name.
void parseMtl(const std::string& text, std::vector<std::pair<std::string, std::string>>& diffuse_maps);

/// Writes `<stem>.obj` at `path`, and, when the mesh has a texture and texture coordinates,
/// `<stem>.mtl` and `<stem>.png` beside it; every file goes through a temporary name.
FileResult writeObj(const std::string& path, const MeshData& mesh);

}  // namespace pv::internal
